// tkpack build and tkpack check: packages from description files, and failures that
// say what and where.
#include "tkpack/tkpack_test_fixture.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

using TkpackBuild = TkpackTest;

constexpr const char* kSampleStream =
    "TAVIK PACKAGE FILE\n1\n"
    "[HEADER]\nVersion = 5\nProduct = tavik\n"
    "[Dir]\nName = Bin\n\n"
    "[File]\nName = run.sh\nSize = 18\n#!/bin/sh\necho hi\n\n\n"
    "[Exec]\nName = run.sh\n\n\n"
    "[Dir]\nName = Bin/lib\n\n"
    "[File]\nName = x.so\nSize = 3\nXSO\n\n"
    "[Dir]\nName = Doc\n\n"
    "[File]\nName = readme.txt\nSize = 12\nline1\r\nline2\n\n"
    "[TextFile]\nName = readme.txt\n\n\n";

TEST_F(TkpackBuild, SourcesResolveAgainstTheDescriptionDirectoryOrBase) {
  WriteSample();
  std::filesystem::copy_file(Path("src/desc.txt"), Path("desc.txt"));
  struct Case {
    std::vector<std::string> words;
  };
  const Case cases[] = {
      {{"build", "src/desc.txt", "a.pkg"}},
      {{"build", Path("src/desc.txt"), "a.pkg"}},
      {{"build", "desc.txt", "a.pkg", "--base", "src"}},
      {{"build", "--base=" + Path("src"), "desc.txt", "a.pkg"}},
  };
  for (const Case& c : cases) {
    const test::ChildResult result = Tkpack(c.words);
    const std::string size = std::to_string(std::filesystem::file_size(Path("a.pkg")));
    ExpectRun(result, kExitSuccess, "built a.pkg (" + size + " bytes)\n", "");
    EXPECT_EQ(Decompress(Path("a.pkg")), kSampleStream) << c.words[1];
    EXPECT_EQ(Leftovers(), 0);
    std::filesystem::remove(Path("a.pkg"));
  }
}

TEST_F(TkpackBuild, FailuresNameWhatAndWhere) {
  WriteSample();
  struct Case {
    std::string description;  // written to src/bad.txt; "" = no such file
    std::string err;
  };
  const Case cases[] = {
      {"", "tkpack: Cannot open description file src/bad.txt\n"},
      {"[Bin]\ncopyfile: missing.txt\n", "tkpack: Bad file: src/Bin/missing.txt\n"},
      {"[a/../b]\n", "tkpack: Bad directory: src/a/../b\n"},
      {"[Bin]\ncopydir: nowhere\n", "tkpack: Bad directory: nowhere\n"},
      {"[Bin]\ncopyfile: =run.sh\n", "tkpack: No target file\n"},
  };
  for (const Case& c : cases) {
    if (!c.description.empty()) WriteFile("src/bad.txt", c.description);
    ExpectRun(Tkpack({"build", "src/bad.txt", "bad.pkg"}), kExitFailure, "", c.err);
    EXPECT_FALSE(std::filesystem::exists(Path("bad.pkg")));
    EXPECT_EQ(Leftovers(), 0);
    ExpectRun(Tkpack({"check", "src/bad.txt"}), kExitFailure, "", c.err);
    std::filesystem::remove(Path("src/bad.txt"));
  }
}

TEST_F(TkpackBuild, UnwritablePackagePathIsNamed) {
  WriteSample();
  ExpectRun(Tkpack({"build", "src/desc.txt", "no/such/dir/a.pkg"}), kExitFailure, "",
            "tkpack: Cannot open temporary package file no/such/dir/a.pkg.tk_temp\n");
}

TEST_F(TkpackBuild, CheckValidatesAndWritesNothing) {
  WriteSample();
  const auto before = Everything();
  ExpectRun(Tkpack({"check", "src/desc.txt"}), kExitSuccess, "src/desc.txt: ok\n", "");
  WriteFile("other/desc.txt", ReadFile(Path("src/desc.txt")));
  ExpectRun(Tkpack({"check", "other/desc.txt", "--base", "src"}), kExitSuccess,
            "other/desc.txt: ok\n", "");
  ExpectRun(Tkpack({"check", "other/desc.txt"}), kExitFailure, "",
            "tkpack: Bad directory: other/Bin\n");
  std::filesystem::remove_all(Path("other"));
  EXPECT_EQ(Everything(), before);
}

}  // namespace
}  // namespace tk
