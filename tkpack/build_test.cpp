// tkpack build and tkpack check: packages from description files, and failures that
// say what and where.
#include "tkpack/tkpack_test_fixture.h"

namespace tk {
namespace {

using TkpackBuild = TkpackTest;

constexpr const char* kSampleStream =
    "TAVIK PACKAGE FILE\n1\n[HEADER]\nVersion = 5\nProduct = tavik\n"
    "[Dir]\nName = Bin\n\n[File]\nName = run.sh\nSize = 18\n#!/bin/sh\necho hi\n\n\n"
    "[Exec]\nName = run.sh\n\n\n[Dir]\nName = Bin/lib\n\n[File]\nName = x.so\nSize = 3\nXSO\n\n"
    "[Dir]\nName = Doc\n\n[File]\nName = readme.txt\nSize = 12\nline1\r\nline2\n\n"
    "[TextFile]\nName = readme.txt\n\n\n";

TEST_F(TkpackBuild, SourcesResolveAgainstTheDescriptionDirectoryOrBase) {
  BuildSample();
  WriteFile("desc.txt", ReadFile("src/desc.txt"));
  const std::vector<std::string> cases[] = {
      {"build", "src/desc.txt", "a.pkg"},
      {"build", Path("src/desc.txt"), "a.pkg"},
      {"build", "--base=" + Path("src"), "desc.txt", "a.pkg"},
  };
  for (const std::vector<std::string>& words : cases) {
    const test::ChildResult result = Tkpack(words);
    const auto size = std::filesystem::file_size(Path("a.pkg"));
    ExpectRun(result, kExitSuccess, "built a.pkg (" + std::to_string(size) + " bytes)\n", "");
    ASSERT_EQ(Tkpack({"decompress", "a.pkg", "a.plain"}).exitStatus, kExitSuccess);
    EXPECT_EQ(ReadFile("a.plain"), kSampleStream) << words[1];
    EXPECT_EQ(Leftovers(), 0);
  }
}

TEST_F(TkpackBuild, FailuresOfBuildAndCheckNameWhatAndWhere) {
  BuildSample();
  const std::pair<std::string, std::string> cases[] = {
      {"", "tkpack: Cannot open description file src/bad.txt\n"},
      {"[Bin]\ncopyfile: missing.txt\n", "tkpack: Bad file: src/Bin/missing.txt\n"},
      {"[a/../b]\n", "tkpack: Bad directory: src/a/../b\n"},
      {"[Bin]\ncopyfile: =run.sh\n", "tkpack: No target file\n"},
  };
  for (const auto& [description, err] : cases) {
    if (!description.empty()) WriteFile("src/bad.txt", description);
    ExpectRun(Tkpack({"build", "src/bad.txt", "bad.pkg"}), kExitFailure, "", err);
    EXPECT_FALSE(std::filesystem::exists(Path("bad.pkg")));
    EXPECT_EQ(Leftovers(), 0);
    ExpectRun(Tkpack({"check", "src/bad.txt"}), kExitFailure, "", err);
    std::filesystem::remove(Path("src/bad.txt"));
  }
  ExpectRun(Tkpack({"build", "src/desc.txt", "no/dir/a.pkg"}), kExitFailure, "",
            "tkpack: Cannot open temporary package file no/dir/a.pkg.tk_temp\n");
}

TEST_F(TkpackBuild, CheckValidatesAndWritesNothing) {
  BuildSample();
  WriteFile("other/desc.txt", ReadFile("src/desc.txt"));
  const auto before = Snapshot(".");
  ExpectRun(Tkpack({"check", "src/desc.txt"}), kExitSuccess, "src/desc.txt: ok\n", "");
  ExpectRun(Tkpack({"check", "other/desc.txt", "--base", "src"}), kExitSuccess,
            "other/desc.txt: ok\n", "");
  ExpectRun(Tkpack({"check", "other/desc.txt"}), kExitFailure, "",
            "tkpack: Bad directory: other/Bin\n");
  EXPECT_EQ(Snapshot("."), before);
}

}  // namespace
}  // namespace tk
