#include <random>

#include "package/package_test_fixture.h"

namespace tk {
namespace {

using Tree = std::map<std::string, std::string>;

class RoundTripTest : public PackageTest {
 protected:
  // Builds a package from `description` (base directory root/src) and installs it into
  // root/dest; returns the installed tree.
  Tree BuildAndInstall(const std::string& description) {
    WriteFile("desc.txt", description);
    EXPECT_TRUE(package_.BuildPackage(Path("desc.txt").c_str(), Path("src").c_str(),
                                      Path("p.pkg").c_str()))
        << package_.ErrorText();
    EXPECT_TRUE(package_.InstallPackage(Path("p.pkg").c_str(), Path("dest").c_str(), 0))
        << package_.ErrorText();
    EXPECT_EQ(TempFilesLeft(), 0);
    return Snapshot(Path("dest"));
  }

  // Long contents replaced by their size and hash, to keep failure reports readable.
  static Tree Digest(Tree tree) {
    for (auto& [path, value] : tree) {
      if (value.size() > 100) {
        value = std::to_string(value.size()) + "#" + std::to_string(std::hash<std::string>()(value));
      }
    }
    return tree;
  }

  static std::string RandomBytes(std::size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(generator());
    return bytes;
  }
};

TEST_F(RoundTripTest, InstalledTreeEqualsTheBuiltOne) {
  const std::string tricky =
      std::string("[Exec]\nName = x\n\n[Dir]\nName = ..\n") + '\0' + "[File]\r\nSize = 99\n";
  const Tree files = {
      {"Tools/run.sh", "#!/bin/sh\necho hi\n"},
      {"Tools/other", "x"},
      {"Bin/empty", ""},
      {"Bin/tricky.bin", tricky + std::string(1, '\0')},
      {"Bin/lib/deep/er/blob", RandomBytes(300000, 1)},
      {"Bin/lib/Name = x", "Name = x\n"},
      {"Bin/lib/skip.o", "object"},
      {"Bin/cache/skipped", "c"},
      {"Bin/.hidden", "h"},
      {"Doc/notes.txt", "line 1\r\nline 2"},
      {"Doc/sub/raw.txt", "keep\r\n"},
  };
  for (const auto& [path, bytes] : files) WriteFile("src/" + path, bytes);
  std::filesystem::permissions(Path("src/Tools/run.sh"), std::filesystem::perms(0755));
  const Tree installed = BuildAndInstall(
      "[HEADER]\nVersion = 3\n[Bin]\ncopydirsub:\nexcludefile: *.o\nexcludedir: cache\n"
      "[Tools]\nexec: run.sh\ncopydir:\n[Doc]\ncopydirsub:\ntextdir:\n");

  Tree expected = Digest(Snapshot(Path("src")));
  for (const char* gone : {"Bin/lib/skip.o", "Bin/cache", "Bin/cache/skipped", "Bin/.hidden"}) {
    expected.erase(gone);
  }
  expected["Doc/notes.txt"] = "420:line 1\nline 2\n";
  EXPECT_EQ(Digest(installed), expected);
  std::vector<std::string> header;
  EXPECT_TRUE(package_.ReadPackageHeader(Path("p.pkg").c_str(), header));
  EXPECT_EQ(header, std::vector<std::string>{"Version = 3"});
}

TEST_F(RoundTripTest, InstallingTwiceOverwritesAndRemovesAsRecorded) {
  WriteFile("src/App/a", "new");
  WriteFile("dest/App/old.log", "stale");
  WriteFile("dest/App/a", "old contents that are longer");
  EXPECT_EQ(BuildAndInstall("[App]\nremovefile: *.log\na\n"), (Tree{{"App", "dir"}, {"App/a", "420:new"}}));
}

}  // namespace
}  // namespace tk
