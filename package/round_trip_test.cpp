#include <random>
#include <vector>

#include "package/package_test_fixture.h"

namespace tk {
namespace {

class RoundTripTest : public PackageTest {
 protected:
  // Builds a package from `description` (base directory root/src) and installs it into
  // root/dest; returns the installed tree with long contents shown by size and hash.
  Tree BuildAndInstall(const std::string& description) {
    WriteFile("desc.txt", description);
    EXPECT_TRUE(package_.BuildPackage(Path("desc.txt").c_str(), Path("src").c_str(),
                                      Path("p.pkg").c_str()))
        << package_.ErrorText();
    EXPECT_TRUE(package_.InstallPackage(Path("p.pkg").c_str(), Path("dest").c_str(), 0))
        << package_.ErrorText();
    EXPECT_EQ(TempFilesLeft(), 0);
    return Digest(Snapshot(Path("dest")));
  }
  static Tree Digest(Tree tree) {
    for (auto& [path, value] : tree) {
      if (value.size() > 100) value = std::to_string(std::hash<std::string>()(value));
    }
    return tree;
  }
};

TEST_F(RoundTripTest, InstalledTreeEqualsTheBuiltOne) {
  std::mt19937 generator(1);
  std::string random(300000, '\0');
  for (char& byte : random) byte = static_cast<char>(generator());
  const Tree files = {
      {"Tools/run.sh", "#!/bin/sh\necho hi\n"}, {"Tools/other", "x"}, {"Bin/empty", ""},
      {"Bin/tricky",
       std::string("[Exec]\nName = x\n\n[Dir]\nName = ..\n\0[File]\r\nSize = 9\n", 51)},
      {"Bin/lib/deep/er/blob", random}, {"Bin/lib/Name = x", "Name = x\n"}, {"Bin/lib/skip.o", "o"},
      {"Bin/cache/skipped", "c"}, {"Bin/.hidden", "h"}, {"Doc/notes.txt", "line 1\r\nline 2"},
      {"Doc/sub/raw.txt", "keep\r\n"}};
  for (const auto& [path, bytes] : files) WriteFile("src/" + path, bytes);
  std::filesystem::permissions(Path("src/Tools/run.sh"), std::filesystem::perms(0755));
  Tree expected = Digest(Snapshot(Path("src")));
  for (const char* gone : {"Bin/lib/skip.o", "Bin/cache", "Bin/cache/skipped", "Bin/.hidden"}) {
    expected.erase(gone);
  }
  expected["Doc/notes.txt"] = "420:line 1\nline 2\n";
  EXPECT_EQ(BuildAndInstall("[HEADER]\nVersion = 3\n[Bin]\ncopydirsub:\nexcludefile: *.o\n"
                            "excludedir: cache\n[Tools]\nexec: run.sh\ncopydir:\n"
                            "[Doc]\ncopydirsub:\ntextdir:\n"),
            expected);
  std::vector<std::string> header;
  EXPECT_TRUE(package_.ReadPackageHeader(Path("p.pkg").c_str(), header));
  EXPECT_EQ(header, std::vector<std::string>{"Version = 3"});
}

TEST_F(RoundTripTest, InstallingOverAnOldTreeReplacesAndRemoves) {
  WriteFile("src/App/a", "new");
  WriteFile("dest/App/old.log", "stale");
  WriteFile("dest/App/a", "old contents that are longer");
  EXPECT_EQ(BuildAndInstall("[App]\nremovefile: *.log\na\n"),
            (Tree{{"App", "dir"}, {"App/a", "420:new"}}));
}

}  // namespace
}  // namespace tk
