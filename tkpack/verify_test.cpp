// tkpack verify: every problem of hand-made bad packages is found and placed, every
// package the builder writes passes, and nothing is written.
#include "tkpack/tkpack_test_fixture.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

using TkpackVerify = TkpackTest;

TEST_F(TkpackVerify, PassesEveryPackageTheBuilderWrites) {
  WriteSample();
  WriteFile("src/Tree/a.txt", "a");
  WriteFile("src/Tree/sub/b.txt", "b");
  WriteFile("src/Tree/sub/deeper/c.o", "c");
  WriteFile("src/big.bin", std::string(300000, 'z'));
  struct Case {
    std::string description;
    int records;
  };
  const Case cases[] = {
      {ReadFile(Path("src/desc.txt")), 9},
      {"", 0},
      {"[HEADER]\nVersion = 1\n", 1},
      {"[Tree]\ncopydirsub:\nexcludefile: *.o\n", 5},
      {"[Old]\nremovedir:\nremovedirsub:\nremovefile: *.log\ntextdir:\n", 5},
      {"[]\ncopyfile: big=#big.bin\nexec: big\ntextfile: big\n", 4},
  };
  for (const Case& c : cases) {
    WriteFile("src/case.txt", c.description);
    ASSERT_EQ(Tkpack({"build", "src/case.txt", "case.pkg"}).exitStatus, kExitSuccess);
    ExpectRun(Tkpack({"verify", "case.pkg"}), kExitSuccess,
              "case.pkg: ok, " + std::to_string(c.records) + " records\n", "");
    EXPECT_EQ(Leftovers(), 0);
  }
}

TEST_F(TkpackVerify, FindsEveryProblemOfHandMadePackages) {
  struct Case {
    std::string records;  // the plain record stream
    std::string problems;  // the report lines before the summary
    int count;
  };
  const std::string m = kMagic;
  const std::string dir = "[Dir]\nName = Bin\n\n";  // 18 bytes, at byte 21
  const Case cases[] = {
      {"TAVIK PACKAGE\n1\n" + dir,
       "line 1 at byte 0: bad magic or version line (a package stream starts with "
       "\"TAVIK PACKAGE FILE\" and a version line)\n",
       1},
      {"TAVIK PACKAGE FILE\n",
       "line 1 at byte 0: bad magic or version line (a package stream starts with "
       "\"TAVIK PACKAGE FILE\" and a version line)\n",
       0},
      {m + dir + "[File]\n\n\n", "record 2 at byte 39: [File]: no name (missing \"Name = \" line)\n", 2},
      {m + dir + "[File]\nName = \nSize = 0\n\n\n",
       "record 2 at byte 39: [File]: no name (empty \"Name = \" line)\n", 2},
      {m + dir + "[File]\nName = a\n[Exec]\nName = a\n\n\n",
       "record 2 at byte 39: [File] Bin/a: missing \"Size = \" line\n", 3},
      {m + dir + "[File]\nName = a",
       "record 2 at byte 39: [File] Bin/a: stream ends before the \"Size = \" line\n", 2},
      {m + "[RmDir]\nName = Old\n\n",
       "record 1 at byte 21: [RmDir] Old: missing \"Withsubdir = \" line\n", 1},
      {m + dir + "[File]\nName = a\nSize = 100\nshort",
       "record 2 at byte 39: [File] Bin/a: content cut short: Size = 100 but the stream "
       "holds 5 bytes\n",
       2},
      {m + "[Dir]\nName = /etc\n\n",
       "record 1 at byte 21: [Dir] /etc: name \"/etc\" would escape the installation "
       "directory\n",
       1},
      {m + "[Dir]\nName = a\\..\\..\\b\n\n",
       "record 1 at byte 21: [Dir] a/../../b: name \"a/../../b\" would escape the "
       "installation directory\n",
       1},
      {m + dir + "[File]\nName = ../x\nSize = 1\nx\n\n",
       "record 2 at byte 39: [File] Bin/../x: name \"../x\" would escape the installation "
       "directory\n",
       2},
      {m + "[RmDir]\nName = ..\nWithsubdir = YES\n\n",
       "record 1 at byte 21: [RmDir] ..: name \"..\" would escape the installation directory\n",
       1},
      {m + "[File]\nName = a\nSize = 1\nx\n\n[Exec]\nName = a\n\n\n"
           "[TextFile]\nName = a\n\n\n[RemoveFile]\nName = *\n\n\n[TextDir]\nName = Doc\n\n\n",
       "record 1 at byte 21: [File] a: comes before any [Dir] record (would act on the "
       "installer's working directory)\n"
       "record 2 at byte 49: [Exec] a: comes before any [Dir] record (would act on the "
       "installer's working directory)\n"
       "record 3 at byte 67: [TextFile] a: comes before any [Dir] record (would act on the "
       "installer's working directory)\n"
       "record 4 at byte 89: [RemoveFile] *: comes before any [Dir] record (would act on "
       "the installer's working directory)\n",
       5},
  };
  for (const Case& c : cases) {
    WritePackage("bad.pkg", c.records);
    const auto before = Everything();
    std::string out;
    std::istringstream lines(c.problems);
    for (std::string line; std::getline(lines, line);) out += "bad.pkg: " + line + "\n";
    const std::size_t problems = static_cast<std::size_t>(std::count(c.problems.begin(), c.problems.end(), '\n'));
    out += "bad.pkg: " + std::to_string(problems) + (problems == 1 ? " problem" : " problems") +
           " in " + std::to_string(c.count) + " records\n";
    ExpectRun(Tkpack({"verify", "bad.pkg"}), kExitFailure, out, "");
    EXPECT_EQ(Everything(), before) << c.records;
  }
}

TEST_F(TkpackVerify, WalksOnPastEveryProblem) {
  WritePackage("bad.pkg", std::string("TAVIK\n1\n") + "[File]\nName = /abs\nSize = 1\nx\n\n" +
                              "[Dir]\nName = Bin\n\n[File]\n\n\n[File]\nName = ok\nSize = 1\nx\n\n" +
                              "[File]\nName = ../up\nSize = 9\nx");
  ExpectRun(Tkpack({"verify", "bad.pkg"}), kExitFailure,
            "bad.pkg: line 1 at byte 0: bad magic or version line (a package stream starts with "
            "\"TAVIK PACKAGE FILE\" and a version line)\n"
            "bad.pkg: record 1 at byte 8: [File] /abs: name \"/abs\" would escape the "
            "installation directory\n"
            "bad.pkg: record 1 at byte 8: [File] /abs: comes before any [Dir] record (would act "
            "on the installer's working directory)\n"
            "bad.pkg: record 3 at byte 57: [File]: no name (missing \"Name = \" line)\n"
            "bad.pkg: record 5 at byte 95: [File] Bin/../up: name \"../up\" would escape the "
            "installation directory\n"
            "bad.pkg: record 5 at byte 95: [File] Bin/../up: content cut short: Size = 9 but the "
            "stream holds 1 bytes\n"
            "bad.pkg: 6 problems in 5 records\n",
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
  WriteFile("empty.pkg", std::string(4, '\0'));
  ExpectRun(Tkpack({"verify", "empty.pkg"}), kExitFailure, "",
            "tkpack: Cannot decompress package file empty.pkg (codec result 117: nothing to "
            "code: empty input or a stated length of 0)\n");
  EXPECT_EQ(Leftovers(), 0);
}

}  // namespace
}  // namespace tk
