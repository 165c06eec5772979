#include <set>
#include <vector>

#include "package/package_test_fixture.h"

namespace tk {
namespace {

using Patterns = std::vector<std::string>;

class CaptureTest : public PackageTest {
 protected:
  // AddPackageEntry into a fresh stream; returns what it wrote.
  std::string Entry(const std::string& target, const std::string& source, bool isDirectory,
                    bool subdirectories, bool remove, bool text, const std::string& relative,
                    const Patterns* files = nullptr, const Patterns* dirs = nullptr,
                    bool perl = false) {
    return Capture([&](FILE* out) {
      EXPECT_TRUE(package_.AddPackageEntry(target, source, out, isDirectory, subdirectories,
                                           remove, text, relative, files, dirs, perl));
    });
  }
  std::string Tree(const std::string& relative, bool subdirectories,
                   const Patterns* files = nullptr, const Patterns* dirs = nullptr) {
    return Entry("ignored", Path("src"), true, subdirectories, false, false, relative, files, dirs);
  }
  std::string File(const std::string& source, bool perl) {
    return Entry("t", Path(source), false, false, false, false, "", nullptr, nullptr, perl);
  }
};

TEST_F(CaptureTest, FilesComeBeforeSubdirectoriesDepthFirst) {
  WriteFile("src/a.txt", "A");
  WriteFile("src/.hidden", "H");
  WriteFile("src/lib/x.so", "X");
  WriteFile("src/lib/deep/y", "");
  const std::string top = "[File]\nName = a.txt\nSize = 1\nA\n\n";
  EXPECT_EQ(Tree("Bin", true),
            top + "[Dir]\nName = Bin/lib\n\n[File]\nName = x.so\nSize = 1\nX\n\n"
                  "[Dir]\nName = Bin/lib/deep\n\n[File]\nName = y\nSize = 0\n\n\n");
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
    const std::string stream = Tree("", true, &c.files, &c.dirs);
    std::set<std::string> names;
    for (std::size_t at = stream.find("Name = "); at != std::string::npos;
         at = stream.find("Name = ", at + 1)) {
      if (stream.compare(at - 7, 7, "[File]\n") == 0) {
        names.insert(stream.substr(at + 7, stream.find('\n', at) - at - 7));
      }
    }
    EXPECT_EQ(names, c.captured);
  }
}

TEST_F(CaptureTest, SingleRecordsHaveTheirExactBytes) {
  WriteFile("e", "");
  WriteFile("run.PL", "print 1;\n");
  WriteFile("done.pl", "TAVIK PERL ENCODED FILE\nx");
  EXPECT_EQ(File("e", true), "[File]\nName = t\nSize = 0\n\n\n");
  EXPECT_EQ(File("run.PL", true), "[File]\n\n\n");
  EXPECT_EQ(File("run.PL", false), "[File]\nName = t\nSize = 9\nprint 1;\n\n\n");
  EXPECT_EQ(File("done.pl", true), "[File]\nName = t\nSize = 25\nTAVIK PERL ENCODED FILE\nx\n\n");
  EXPECT_EQ(Entry("", "Old/x", true, false, true, false, ""),
            "[RmDir]\nName = Old/x\nWithsubdir = NO\n\n");
  EXPECT_EQ(Entry("", "Old/x", true, true, true, true, ""),
            "[RmDir]\nName = Old/x\nWithsubdir = YES\n\n");
  EXPECT_EQ(Entry("", "Old/x", true, false, false, true, ""),
            "[TextDir]\nName = Old/x\nName = Old/x\n\n\n");
}

TEST_F(CaptureTest, FailuresSetTheirText) {
  FILE* out = std::fopen(Path("out").c_str(), "wb");
  EXPECT_FALSE(package_.AddPackageEntry("t", Path("missing"), out, false, false, false, false, "",
                                        nullptr, nullptr, false));
  EXPECT_EQ(package_.ErrorText(), "Cannot read file: " + Path("missing"));
  EXPECT_EQ(std::ftell(out), 0);
  std::fclose(out);
  WriteFile("f", "data");
  FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  std::setvbuf(full, nullptr, _IONBF, 0);
  EXPECT_FALSE(package_.AddPackageEntry("t", Path("f"), full, false, false, false, false, "",
                                        nullptr, nullptr, false));
  EXPECT_EQ(package_.ErrorText(), "Cannot write package file");
  std::fclose(full);
}

}  // namespace
}  // namespace tk
