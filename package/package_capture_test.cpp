#include <cstdio>
#include <set>
#include <sstream>
#include <vector>

#include "package/package.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using Patterns = std::vector<std::string>;
using test::FileRecord;

class CaptureTest : public test::TempDirTest {
 protected:
  // AddPackageEntry with target name "t" into a fresh unbuffered stream (/dev/full, where
  // every write fails, with `fullDevice_`); what it wrote, after "failed: " + the error
  // text + "|" when it failed.
  std::string Entry(const std::string& source, bool isDirectory, bool subdirectories, bool remove,
                    bool text, bool perl = false, const std::string& relative = "",
                    const Patterns* files = nullptr, const Patterns* dirs = nullptr) {
    const std::string path = fullDevice_ ? "/dev/full" : Path("capture");
    FILE* out = std::fopen(path.c_str(), "wb");
    std::setvbuf(out, nullptr, _IONBF, 0);
    const bool ok = package_.AddPackageEntry("t", source, out, isDirectory, subdirectories, remove,
                                             text, relative, files, dirs, perl);
    std::fclose(out);
    return (ok ? "" : "failed: " + package_.ErrorText() + "|") +
           (fullDevice_ ? "" : ReadFile(path));
  }
  // The capture of the directory "src".
  std::string Tree(const std::string& relative, bool subdirectories,
                   const Patterns* files = nullptr, const Patterns* dirs = nullptr) {
    return Entry(Path("src"), true, subdirectories, false, false, false, relative, files, dirs);
  }
  TkPackage package_;
  bool fullDevice_ = false;
};

TEST_F(CaptureTest, FilesComeBeforeSubdirectoriesDepthFirst) {
  ASSERT_TRUE(WriteFile("src/a.txt", "A") && WriteFile("src/.hidden", "H") &&
              WriteFile("src/lib/x.so", "X") && WriteFile("src/lib/deep/y", ""));
  const std::string top = FileRecord("a.txt", "A");
  EXPECT_EQ(Tree("Bin", true), top + test::DirRecord("Bin/lib") + FileRecord("x.so", "X") +
                                   test::DirRecord("Bin/lib/deep") + FileRecord("y", ""));
  EXPECT_EQ(Tree("Bin", false), top);
  EXPECT_EQ(Tree("", true).substr(top.size(), 18), test::DirRecord("lib"));
}

// A file pattern skips its names at every depth, a directory pattern the whole subtree.
TEST_F(CaptureTest, ExclusionPatternsTestBareNames) {
  for (const std::string name :
       {"m.o", "m.o.c", "tmpfile", "core", "Core", "x.tmp*", "cache/core", "keep/m.o"}) {
    ASSERT_TRUE(WriteFile("src/" + name, ""));
  }
  const std::tuple<Patterns, Patterns, std::multiset<std::string>> cases[] = {
      {{"*.o"}, {}, {"m.o.c", "tmpfile", "core", "Core", "x.tmp*", "core"}},
      {{"tmp*", "core"}, {"keep"}, {"m.o", "m.o.c", "Core", "x.tmp*"}},
      {{"*"}, {"*"}, {}},
      {{"*tmp*", ""}, {"k*"}, {"m.o", "m.o.c", "tmpfile", "core", "Core", "core"}}};
  for (const auto& [files, dirs, captured] : cases) {
    std::istringstream lines(Tree("", true, &files, &dirs));
    std::multiset<std::string> names;
    for (std::string line, previous; std::getline(lines, line); previous = line) {
      if (previous == "[File]" && line.starts_with("Name = ")) names.insert(line.substr(7));
    }
    EXPECT_EQ(names, captured);
  }
}

TEST_F(CaptureTest, SingleRecordsHaveTheirExactBytesOrFailWithTheirText) {
  ASSERT_TRUE(WriteFile("e", "") && WriteFile("run.PL", "print 1;\n") &&
              WriteFile("done.pl", "TAVIK PERL ENCODED FILE\nx"));
  EXPECT_EQ(Entry(Path("e"), false, false, false, false, true), FileRecord("t", ""));
  EXPECT_EQ(Entry(Path("run.PL"), false, false, false, false, true), "[File]\n\n\n");
  EXPECT_EQ(Entry(Path("run.PL"), false, false, false, false), FileRecord("t", "print 1;\n"));
  EXPECT_EQ(Entry(Path("done.pl"), false, false, false, false, true),
            FileRecord("t", "TAVIK PERL ENCODED FILE\nx"));
  EXPECT_EQ(Entry(Path("missing"), false, false, false, false),
            "failed: Cannot read file: " + Path("missing") + "|");
  ASSERT_TRUE(WriteFile("only/sub/.hidden", ""));
  fullDevice_ = true;
  for (const std::string& written :
       {Entry(Path("e"), false, false, false, false), Entry("x", true, false, true, false),
        Entry("x", true, false, false, true), Entry(Path("only"), true, true, false, false)}) {
    EXPECT_EQ(written, "failed: Cannot write package file|");
  }
}

TEST(RecordWriter, FileSizesKeepThirtyTwoBitsSignExtended) {
  const std::pair<int64_t, unsigned long> cases[] = {{0, 0},
                                                     {5, 5},
                                                     {0x7FFFFFFF, 0x7FFFFFFF},
                                                     {int64_t{1} << 31, 18446744071562067968ul},
                                                     {(int64_t{1} << 32) + 3, 3}};
  for (const auto& [size, recorded] : cases) EXPECT_EQ(RecordedFileSize(size), recorded) << size;
}

}  // namespace
}  // namespace tk
