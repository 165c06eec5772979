#include <random>
#include <vector>

#include "package/package_test_fixture.h"

namespace tk {
namespace {

using RoundTripTest = PackageTest;

// Long contents shown by their hash, so that a difference stays readable.
Tree Digest(Tree tree) {
  for (auto& [path, value] : tree) {
    if (value.size() > 100) value = std::to_string(std::hash<std::string>()(value));
  }
  return tree;
}

// A tree built into a package and installed over an older installation comes back
// identical (names, bytes, modes of [Exec] files) but for the exclusions and the text
// conversion; the old files are replaced, and removed where the package says so.
TEST_F(RoundTripTest, InstalledTreeEqualsTheBuiltOne) {
  std::mt19937 generator(1);
  std::string random(300000, '\0');
  for (char& byte : random) byte = static_cast<char>(generator());
  const Tree files = {
      {"Tools/run.sh", "#!/bin/sh\necho hi\n"},
      {"Tools/other", "x"},
      {"Bin/empty", ""},
      {"Bin/tricky",
       std::string("[Exec]\nName = x\n\n[Dir]\nName = ..\n\0[File]\r\nSize = 9\n", 51)},
      {"Bin/lib/deep/er/blob", random},
      {"Bin/lib/Name = x", "Name = x\n"},
      {"Bin/lib/skip.o", "o"},
      {"Bin/cache/skipped", "c"},
      {"Bin/.hidden", "h"},
      {"Doc/notes.txt", "line 1\r\nline 2"},
      {"Doc/b.bin", "\r\n"},
      {"Doc/sub/raw.txt", "keep\r\n"}};
  for (const auto& [path, bytes] : files) WriteFile("src/" + path, bytes);
  std::filesystem::permissions(Path("src/Tools/run.sh"), std::filesystem::perms(0755));
  Tree expected = Digest(Snapshot(Path("src")));
  for (const char* gone : {"Bin/lib/skip.o", "Bin/cache", "Bin/cache/skipped", "Bin/.hidden"}) {
    expected.erase(gone);
  }
  expected["Doc/notes.txt"] = "420:line 1\nline 2\n";
  expected["Doc/b.bin"] = "420:\n";
  WriteFile("dest/Bin/old.log", "stale");
  WriteFile("dest/Tools/other", "old contents that are longer");
  WriteFile("desc.txt",
            "[HEADER]\nVersion = 3\n[Bin]\nremovefile: *.log\ncopydirsub:\n"
            "excludefile: *.o\nexcludedir: cache\n[Tools]\nexec: run.sh\ncopydir:\n"
            "[Doc]\ncopydirsub:\ntextdir:\n");
  ASSERT_TRUE(
      package_.BuildPackage(Path("desc.txt").c_str(), Path("src").c_str(), Path("p.pkg").c_str()))
      << package_.ErrorText();
  ASSERT_TRUE(package_.InstallPackage(Path("p.pkg").c_str(), Path("dest").c_str(), 0))
      << package_.ErrorText();
  EXPECT_EQ(Digest(Snapshot(Path("dest"))), expected);
  EXPECT_EQ(TempFilesLeft(), 0);
  std::vector<std::string> header;
  EXPECT_TRUE(package_.ReadPackageHeader(Path("p.pkg").c_str(), header));
  EXPECT_EQ(header, std::vector<std::string>{"Version = 3"});
}

}  // namespace
}  // namespace tk
