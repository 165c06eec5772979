#include <set>
#include <vector>

#include "package/name_pattern.h"
#include "package/package_test_fixture.h"

namespace tk {
namespace {

using Patterns = std::vector<std::string>;

class CaptureTest : public PackageTest {
 protected:
  // The records of a capture of root/src with `relative` as its installation path.
  std::string CaptureTree(const std::string& relative, bool subdirectories,
                          const Patterns* files = nullptr, const Patterns* dirs = nullptr) {
    return Capture([&](FILE* out) {
      EXPECT_TRUE(package_.AddPackageEntry("ignored", Path("src"), out, true, subdirectories,
                                           false, false, relative, files, dirs, false));
    });
  }

  std::string CaptureOne(const std::string& source, bool perl) {
    return Capture([&](FILE* out) {
      EXPECT_TRUE(package_.AddPackageEntry("t", Path(source), out, false, false, false, false,
                                           "", nullptr, nullptr, perl));
    });
  }

  // The names of the [File] records of a stream, whatever their order.
  static std::set<std::string> FileNames(const std::string& stream) {
    std::set<std::string> names;
    for (std::size_t at = stream.find("[File]\nName = "); at != std::string::npos;
         at = stream.find("[File]\nName = ", at + 1)) {
      const std::size_t start = at + 14;
      names.insert(stream.substr(start, stream.find('\n', start) - start));
    }
    return names;
  }
};

TEST_F(CaptureTest, FilesComeBeforeSubdirectoriesDepthFirst) {
  WriteFile("src/a.txt", "A");
  WriteFile("src/.hidden", "H");
  WriteFile("src/lib/x.so", "X");
  WriteFile("src/lib/deep/y", "");
  const std::string lib = "[Dir]\nName = Bin/lib\n\n[File]\nName = x.so\nSize = 1\nX\n\n"
                          "[Dir]\nName = Bin/lib/deep\n\n[File]\nName = y\nSize = 0\n\n\n";
  EXPECT_EQ(CaptureTree("Bin", true), "[File]\nName = a.txt\nSize = 1\nA\n\n" + lib);
  EXPECT_EQ(CaptureTree("Bin", false), "[File]\nName = a.txt\nSize = 1\nA\n\n");
  EXPECT_NE(CaptureTree("", true).find("\n[Dir]\nName = lib\n\n[File]"), std::string::npos);
}

TEST_F(CaptureTest, ExclusionPatternsTestBareNames) {
  for (const char* name : {"m.o", "m.o.c", "tmpfile", "core", "Core", "x.tmp*"}) {
    WriteFile(std::string("src/") + name, "");
  }
  WriteFile("src/cache/core", "");
  WriteFile("src/keep/m.o", "");
  const struct {
    Patterns files;
    Patterns dirs;
    std::set<std::string> captured;
  } cases[] = {
      {{"*.o"}, {}, {"m.o.c", "tmpfile", "core", "Core", "x.tmp*"}},
      {{"tmp*", "core"}, {"cache"}, {"m.o", "m.o.c", "Core", "x.tmp*"}},
      {{"*"}, {"*"}, {}},
      {{"*tmp*", ""}, {"k*"}, {"m.o", "m.o.c", "tmpfile", "core", "Core"}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FileNames(CaptureTree("", true, &c.files, &c.dirs)), c.captured);
  }
}

TEST_F(CaptureTest, SingleRecordsHaveTheirExactBytes) {
  WriteFile("e", "");
  WriteFile("run.PL", "print 1;\n");
  WriteFile("done.pl", "TAVIK PERL ENCODED FILE\nx");
  EXPECT_EQ(CaptureOne("e", true), "[File]\nName = t\nSize = 0\n\n\n");
  EXPECT_EQ(CaptureOne("run.PL", true), "[File]\n\n\n");
  EXPECT_EQ(CaptureOne("run.PL", false), "[File]\nName = t\nSize = 9\nprint 1;\n\n\n");
  EXPECT_EQ(CaptureOne("done.pl", true), "[File]\nName = t\nSize = 25\nTAVIK PERL ENCODED FILE\nx\n\n");
  const auto directoryRecord = [&](bool subdirs, bool remove, bool text) {
    return Capture([&](FILE* out) {
      EXPECT_TRUE(package_.AddPackageEntry("", "Old/x", out, true, subdirs, remove, text, "",
                                           nullptr, nullptr, false));
    });
  };
  EXPECT_EQ(directoryRecord(false, true, false), "[RmDir]\nName = Old/x\nWithsubdir = NO\n\n");
  EXPECT_EQ(directoryRecord(true, true, true), "[RmDir]\nName = Old/x\nWithsubdir = YES\n\n");
  EXPECT_EQ(directoryRecord(false, false, true), "[TextDir]\nName = Old/x\nName = Old/x\n\n\n");
}

TEST_F(CaptureTest, FailuresSetTheirText) {
  EXPECT_EQ(Capture([&](FILE* out) {
              EXPECT_FALSE(package_.AddPackageEntry("t", Path("missing"), out, false, false,
                                                    false, false, "", nullptr, nullptr, false));
            }),
            "");
  EXPECT_EQ(package_.ErrorText(), "Cannot read file: " + Path("missing"));
  WriteFile("f", "data");
  FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  std::setvbuf(full, nullptr, _IONBF, 0);
  EXPECT_FALSE(package_.AddPackageEntry("t", Path("f"), full, false, false, false, false, "",
                                        nullptr, nullptr, false));
  EXPECT_EQ(package_.ErrorText(), "Cannot write package file");
  std::fclose(full);
}

TEST(NamePattern, MatchesByKind) {
  const struct {
    const char* pattern;
    const char* name;
    bool matches;
  } cases[] = {{"*", "anything", true},   {"*.o", "m.o", true},      {"*.o", "m.o.c", false},
               {"tmp*", "tmpfile", true}, {"tmp*", "atmp", false},   {"core", "Core", false},
               {"core", "core", true},    {"", "", false},           {"*tmp*", "xtmp*", true},
               {"*tmp*", "xtmpx", false}, {"**", "a*", true},        {"a*b", "a*b", true}};
  for (const auto& c : cases) {
    EXPECT_EQ(MatchesNamePattern(c.pattern, c.name), c.matches) << c.pattern << " " << c.name;
  }
}

}  // namespace
}  // namespace tk
