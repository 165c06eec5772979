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
      {"[]\ncopyfile: big=#big.bin\nexec: big\n", 3}};
  for (const auto& [description, records] : cases) {
    WriteFile("src/case.txt", description);
    ASSERT_EQ(Tkpack({"build", "src/case.txt", "case.pkg"}).exitStatus, kExitSuccess);
    ExpectRun(Tkpack({"verify", "case.pkg"}), kExitSuccess,
              "case.pkg: ok, " + std::to_string(records) + " records\n", "");
  }
  EXPECT_EQ(Leftovers(), 0);
}

// Each hand-made package holds one problem (those of the next test aside): its report,
// and the number of records.
TEST_F(TkpackVerify, FindsEachProblemOfHandMadePackages) {
  const std::string dir = "[Dir]\nName = Bin\n\n";  // stands at byte 21, 18 bytes long
  const std::string r1 = "record 1 at byte 21: ", r2 = "record 2 at byte 39: ";
  const std::tuple<std::string, std::string, int> cases[] = {
      // records after the magic
      {dir + "[File]\nName = \nSize = 0\n\n\n", r2 + "[File]: no name (empty \"Name = \" line)", 2},
      {dir + "[File]\nName = a\n[Exec]\nName = a\n\n\n",
       r2 + "[File] Bin/a: missing \"Size = \" line", 3},
      {dir + "[File]\nName = a", r2 + "[File] Bin/a: stream ends before the \"Size = \" line", 2},
      {"[RmDir]\nName = Old\n\n", r1 + "[RmDir] Old: missing \"Withsubdir = \" line", 1},
      {"[Dir]\nName = a\\..\\b\n\n", r1 + "[Dir] a/../b: name \"a/../b" + kEscapes, 1},
      {dir + "[Exec]\nName = ../x\n\n\n", r2 + "[Exec] Bin/../x: name \"../x" + kEscapes, 2},
      {"[RemoveFile]\nName = *\n\n\n", r1 + "[RemoveFile] *" + kBeforeDir, 1},
  };
  for (const auto& [records, problem, count] : cases) {
    WritePackage("bad.pkg", kMagic + records);
    const auto before = Snapshot(".");
    ExpectRun(
        Tkpack({"verify", "bad.pkg"}), kExitFailure,
        "bad.pkg: " + problem + "\nbad.pkg: 1 problem in " + std::to_string(count) + " records\n",
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

TEST_F(TkpackVerify, UndecodableOrHeadlessPackagesFail) {
  WritePackage("bad.pkg", "TAVIK PACKAGE FILE\n");  // no version line
  ExpectRun(Tkpack({"verify", "bad.pkg"}), kExitFailure,
            std::string("bad.pkg: ") + kBadMagic + "\nbad.pkg: 1 problem in 0 records\n", "");
  WriteFile("tiny.pkg", "ab");
  ExpectRun(Tkpack({"verify", "tiny.pkg"}), kExitFailure, "",
            "tkpack: Cannot decompress package file tiny.pkg (codec result 143: fewer than 4 "
            "bytes: no length header)\n");
  EXPECT_EQ(Leftovers(), 0);
}

}  // namespace
}  // namespace tk
