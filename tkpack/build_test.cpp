// tkpack build and tkpack check: packages from description files, and failures that
// say what and where.
#include "tkpack/tkpack_test_fixture.h"

namespace tk {
namespace {

using TkpackBuild = TkpackTest;

// With the description named relative or absolute, or away from its sources with an
// explicit base, check passes writing nothing and build makes the sample package (whose
// records the install and list tests check) again. Without the base, sources are
// looked for beside the description.
TEST_F(TkpackBuild, SourcesResolveAgainstTheDescriptionDirectoryOrBase) {
  BuildSample();
  WriteFile("other/desc.txt", ReadFile("src/desc.txt"));
  const std::pair<std::vector<std::string>, std::vector<std::string>> cases[] = {
      {{"build", "src/desc.txt", "a.pkg"}, {"check", "src/desc.txt"}},
      {{"build", Path("src/desc.txt"), "a.pkg"}, {"check", Path("src/desc.txt")}},
      {{"build", "--base=" + Path("src"), "other/desc.txt", "a.pkg"},
       {"check", "--base", "src", "other/desc.txt"}},
  };
  for (const auto& [build, check] : cases) {
    std::filesystem::remove(Path("a.pkg"));
    const auto before = Snapshot(".");
    ExpectRun(Tkpack(check), kExitSuccess, check.back() + ": ok\n", "");
    EXPECT_EQ(Snapshot("."), before);
    const test::ChildResult result = Tkpack(build);
    const auto size = std::filesystem::file_size(Path("a.pkg"));
    ExpectRun(result, kExitSuccess, "built a.pkg (" + std::to_string(size) + " bytes)\n", "");
    EXPECT_EQ(ReadFile("a.pkg"), ReadFile("sample.pkg")) << build[1];
    EXPECT_EQ(Leftovers(), 0);
  }
  ExpectRun(Tkpack({"check", "other/desc.txt"}), kExitFailure, "",
            "tkpack: Bad directory: other/Bin\n");
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

}  // namespace
}  // namespace tk
