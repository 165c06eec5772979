// tkpack verify: every problem of hand-made bad packages is found and placed, every
// package the builder writes passes, and nothing is written.
#include "tkpack/tkpack_test_fixture.h"

namespace tk {
namespace {

using TkpackVerify = TkpackTest;

constexpr const char* kBeforeDir =
    ": comes before any [Dir] record (would act on the installer's working directory)";
constexpr const char* kEscapes = "\" would escape the installation directory";
constexpr const char* kBadMagic =
    "line 1 at byte 0: bad magic or version line (a package stream starts with \"TAVIK "
    "PACKAGE FILE\" and a version line)";

TEST_F(TkpackVerify, PassesEveryPackageTheBuilderWrites) {
  BuildSample();
  WriteFile("src/Tree/a.txt", "a");
  WriteFile("src/Tree/sub/deeper/c.o", "c");
  WriteFile("src/big.bin", std::string(300000, 'z'));
  const std::pair<std::string, int> cases[] = {
      {ReadFile("src/desc.txt"), 9},
      {"", 0},
      {"[Tree]\ncopydirsub:\nexcludefile: *.o\n", 4},
      {"[Old]\nremovedir:\nremovedirsub:\nremovefile: *.log\ntextdir:\n", 5},
      {"[]\ncopyfile: big=#big.bin\nexec: big\n", 3},
  };
  for (const auto& [description, records] : cases) {
    WriteFile("src/case.txt", description);
    ASSERT_EQ(Tkpack({"build", "src/case.txt", "case.pkg"}).exitStatus, kExitSuccess);
    ExpectRun(Tkpack({"verify", "case.pkg"}), kExitSuccess,
              "case.pkg: ok, " + std::to_string(records) + " records\n", "");
  }
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(TkpackVerify, FindsEachProblemOfHandMadePackages) {
  struct Case {
    std::string records;
    std::string problem;
    int count;
  };
  const std::string m = kMagic;
  const std::string dir = "[Dir]\nName = Bin\n\n";  // stands at byte 21, 18 bytes long
  const Case cases[] = {
      {"TAVIK PACKAGE\n1\n" + dir, kBadMagic, 1},
      {"TAVIK PACKAGE FILE\n", kBadMagic, 0},
      {m + dir + "[File]\n\n\n", "record 2 at byte 39: [File]: no name (missing \"Name = \" line)",
       2},
      {m + dir + "[File]\nName = \nSize = 0\n\n\n",
       "record 2 at byte 39: [File]: no name (empty \"Name = \" line)", 2},
      {m + dir + "[File]\nName = a\n[Exec]\nName = a\n\n\n",
       "record 2 at byte 39: [File] Bin/a: missing \"Size = \" line", 3},
      {m + dir + "[File]\nName = a",
       "record 2 at byte 39: [File] Bin/a: stream ends before the "
       "\"Size = \" line",
       2},
      {m + "[RmDir]\nName = Old\n\n",
       "record 1 at byte 21: [RmDir] Old: missing \"Withsubdir = \" line", 1},
      {m + dir + "[File]\nName = a\nSize = 100\nshort",
       "record 2 at byte 39: [File] Bin/a: content cut short: Size = 100 but the stream holds 5 "
       "bytes",
       2},
      {m + "[Dir]\nName = /etc\n\n",
       std::string("record 1 at byte 21: [Dir] /etc: name \"/etc") + kEscapes, 1},
      {m + "[Dir]\nName = a\\..\\b\n\n",
       std::string("record 1 at byte 21: [Dir] a/../b: name \"a/../b") + kEscapes, 1},
      {m + dir + "[Exec]\nName = ../x\n\n\n",
       std::string("record 2 at byte 39: [Exec] Bin/../x: name \"../x") + kEscapes, 2},
      {m + "[TextFile]\nName = a\n\n\n",
       std::string("record 1 at byte 21: [TextFile] a") + kBeforeDir, 1},
      {m + "[RemoveFile]\nName = *\n\n\n",
       std::string("record 1 at byte 21: [RemoveFile] *") + kBeforeDir, 1},
  };
  for (const Case& c : cases) {
    WritePackage("bad.pkg", c.records);
    const auto before = Snapshot(".");
    ExpectRun(Tkpack({"verify", "bad.pkg"}), kExitFailure,
              "bad.pkg: " + c.problem + "\nbad.pkg: 1 problem in " + std::to_string(c.count) +
                  " records\n",
              "");
    EXPECT_EQ(Snapshot("."), before);
  }
}

TEST_F(TkpackVerify, WalksOnPastEveryProblem) {
  WritePackage("bad.pkg",
               "TAVIK\n1\n[File]\nName = /abs\nSize = 1\nx\n\n[Dir]\nName = Bin\n\n"
               "[File]\n\n\n[File]\nName = ok\nSize = 1\nx\n\n[File]\nName = ../up\nSize = 9\nx");
  ExpectRun(Tkpack({"verify", "bad.pkg"}), kExitFailure,
            std::string("bad.pkg: ") + kBadMagic + "\n" +
                "bad.pkg: record 1 at byte 8: [File] /abs: name \"/abs" + kEscapes + "\n" +
                "bad.pkg: record 1 at byte 8: [File] /abs" + kBeforeDir + "\n" +
                "bad.pkg: record 3 at byte 57: [File]: no name (missing \"Name = \" line)\n" +
                "bad.pkg: record 5 at byte 95: [File] Bin/../up: name \"../up" + kEscapes + "\n" +
                "bad.pkg: record 5 at byte 95: [File] Bin/../up: content cut short: Size = 9 but "
                "the stream holds 1 bytes\nbad.pkg: 6 problems in 5 records\n",
            "");
}

TEST_F(TkpackVerify, UndecodablePackagesAreFailures) {
  WriteFile("tiny.pkg", "ab");
  ExpectRun(Tkpack({"verify", "tiny.pkg"}), kExitFailure, "",
            "tkpack: Cannot decompress package file tiny.pkg (codec result 143: fewer than 4 "
            "bytes: no length header)\n");
  ExpectRun(Tkpack({"verify", "none.pkg"}), kExitFailure, "",
            "tkpack: Cannot decompress package file none.pkg (codec result 1: a file could not "
            "be opened)\n");
  EXPECT_EQ(Leftovers(), 0);
}

}  // namespace
}  // namespace tk
