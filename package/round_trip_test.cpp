#include <filesystem>

#include "package/package.h"
#include "package/temp_paths.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using RoundTripTest = test::TempDirTest;

// A tree built into a package and installed over an older installation comes back
// identical (names, bytes, modes of [Exec] files) but for the exclusions and the text
// conversion; the old files are replaced, and removed where the package says so.
TEST_F(RoundTripTest, InstalledTreeEqualsTheBuiltOne) {
  std::string large;
  for (int i = 0; large.size() < 40000; ++i) large += std::to_string(i * 7919 % 65521) + ",";
  const test::Tree files = {
      {"Tools/run.sh", "#!/bin/sh\n"},
      {"Tools/other", "x"},
      {"Bin/tricky",
       std::string("[Exec]\nName = x\n\n[Dir]\nName = ..\n\0[File]\r\nSize = 9\n", 51)},
      {"Bin/lib/deep/large", large},
      {"Bin/lib/Name = x", ""},
      {"Bin/lib/skip.o", "o"},
      {"Bin/cache/skipped", "c"},
      {"Doc/notes.txt", "line 1\r\nline 2"},
      {"Doc/sub/raw.txt", "keep\r\n"}};
  for (const auto& [file, bytes] : files) ASSERT_TRUE(WriteFile("src/" + file, bytes));
  std::filesystem::permissions(Path("src/Tools/run.sh"), std::filesystem::perms(0755));
  test::Tree expected = Snapshot("src");
  for (const char* gone : {"Bin/lib/skip.o", "Bin/cache", "Bin/cache/skipped"})
    expected.erase(gone);
  expected["Doc/notes.txt"] = "644:line 1\nline 2\n";
  ASSERT_TRUE(WriteFile("dest/Bin/old.log", "") && WriteFile("dest/Tools/other", "longer, older"));
  ASSERT_TRUE(
      WriteFile("desc.txt",
                "[Bin]\nremovefile: *.log\ncopydirsub:\nexcludefile: *.o\nexcludedir: cache\n"
                "[Tools]\nexec: run.sh\ncopydir:\n[Doc]\ncopydirsub:\ntextdir:\n"));
  TkPackage package;
  ASSERT_TRUE(
      package.BuildPackage(Path("desc.txt").c_str(), Path("src").c_str(), Path("p.pkg").c_str()));
  ASSERT_TRUE(package.InstallPackage(Path("p.pkg").c_str(), Path("dest").c_str(), 0));
  EXPECT_EQ(Snapshot("dest"), expected);
  EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0);
}

}  // namespace
}  // namespace tk
