#include <set>
#include <vector>

#include "package/package_test_fixture.h"

namespace tk {
namespace {

using Patterns = std::vector<std::string>;

class CaptureTest : public PackageTest {
 protected:
  // AddPackageEntry with target name "t" into a fresh stream (/dev/full with
  // `fullDevice_`); returns what it wrote, after "failed: " + the error text + "|" when
  // it failed.
  std::string Entry(const std::string& source, bool isDirectory, bool subdirectories, bool remove,
                    bool text, bool perl = false, const std::string& relative = "",
                    const Patterns* files = nullptr, const Patterns* dirs = nullptr) {
    bool ok = false;
    const std::string written = Capture(
        [&](FILE* out) {
          ok = package_.AddPackageEntry("t", source, out, isDirectory, subdirectories, remove, text,
                                        relative, files, dirs, perl);
        },
        fullDevice_);
    return (ok ? "" : "failed: " + package_.ErrorText() + "|") + written;
  }
  std::string Tree(const std::string& relative, bool subdirectories,
                   const Patterns* files = nullptr, const Patterns* dirs = nullptr) {
    return Entry(Path("src"), true, subdirectories, false, false, false, relative, files, dirs);
  }
  bool fullDevice_ = false;
};

TEST_F(CaptureTest, FilesComeBeforeSubdirectoriesDepthFirst) {
  WriteFile("src/a.txt", "A");
  WriteFile("src/.hidden", "H");
  WriteFile("src/lib/x.so", "X");
  WriteFile("src/lib/deep/y", "");
  const std::string top = FileRecord("a.txt", "A");
  EXPECT_EQ(Tree("Bin", true), top + "[Dir]\nName = Bin/lib\n\n" + FileRecord("x.so", "X") +
                                   "[Dir]\nName = Bin/lib/deep\n\n" + FileRecord("y", ""));
  EXPECT_EQ(Tree("Bin", false), top);
  EXPECT_EQ(Tree("", true).substr(top.size(), 18), "[Dir]\nName = lib\n\n");
}

TEST_F(CaptureTest, ExclusionPatternsTestBareNames) {
  for (const char* name :
       {"m.o", "m.o.c", "tmpfile", "core", "Core", "x.tmp*", "cache/core", "keep/m.o"}) {
    WriteFile(std::string("src/") + name, "");
  }
  const struct {
    Patterns files, dirs;
    std::set<std::string> captured;
  } cases[] = {
      {{"*.o"}, {}, {"m.o.c", "tmpfile", "core", "Core", "x.tmp*"}},
      {{"tmp*", "core"}, {"cache"}, {"m.o", "m.o.c", "Core", "x.tmp*"}},
      {{"*"}, {"*"}, {}},
      {{"*tmp*", ""}, {"k*"}, {"m.o", "m.o.c", "tmpfile", "core", "Core"}},
  };
  for (const auto& c : cases) {
    std::istringstream lines(Tree("", true, &c.files, &c.dirs));
    std::set<std::string> names;
    for (std::string line, previous; std::getline(lines, line); previous = line) {
      if (previous == "[File]" && line.starts_with("Name = ")) names.insert(line.substr(7));
    }
    EXPECT_EQ(names, c.captured);
  }
}

TEST_F(CaptureTest, SingleRecordsHaveTheirExactBytesOrFailWithTheirText) {
  WriteFile("e", "");
  WriteFile("run.PL", "print 1;\n");
  WriteFile("done.pl", "TAVIK PERL ENCODED FILE\nx");
  EXPECT_EQ(Entry(Path("e"), false, false, false, false, true), FileRecord("t", ""));
  EXPECT_EQ(Entry(Path("run.PL"), false, false, false, false, true), "[File]\n\n\n");
  EXPECT_EQ(Entry(Path("run.PL"), false, false, false, false), FileRecord("t", "print 1;\n"));
  EXPECT_EQ(Entry(Path("done.pl"), false, false, false, false, true),
            FileRecord("t", "TAVIK PERL ENCODED FILE\nx"));
  EXPECT_EQ(Entry("Old/x", true, false, true, false), "[RmDir]\nName = Old/x\nWithsubdir = NO\n\n");
  EXPECT_EQ(Entry("Old/x", true, true, true, true), "[RmDir]\nName = Old/x\nWithsubdir = YES\n\n");
  EXPECT_EQ(Entry("Old/x", true, false, false, true),
            "[TextDir]\nName = Old/x\nName = Old/x\n\n\n");
  EXPECT_EQ(Entry(Path("missing"), false, false, false, false),
            "failed: Cannot read file: " + Path("missing") + "|");
  fullDevice_ = true;
  EXPECT_EQ(Entry(Path("e"), false, false, false, false), "failed: Cannot write package file|");
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
