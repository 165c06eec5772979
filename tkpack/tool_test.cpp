// The tkpack program as its users meet it, run as a child in a scratch directory: the
// command line (help, version, usage errors), what each command prints and writes,
// and failures that exit with 1 and say what and where.
#include "tkpack/tool.h"

#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "lzhuf/lzhuf.h"
#include "testing/child_process.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using std::string;
using test::kStreamStart;
using Words = std::vector<string>;

// The scratch directory; its tmp/ is the program's TMPDIR, where private temporaries go.
class Tkpack : public test::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    std::filesystem::create_directory(Path("tmp"));
  }

  // Runs tkpack with `words` after the program name, in the scratch directory.
  test::ChildResult Run(Words words) const {
    words.insert(words.begin(), "tkpack");
    return test::RunChild({TK_BIN_DIR "/tkpack", words, "", path(), {{"TMPDIR", Path("tmp")}}});
  }

  // The whole observable result of running tkpack with `words`.
  void Expect(const Words& words, int status, const string& out, const string& err) const {
    const test::ChildResult result = Run(words);
    EXPECT_EQ(std::tie(result.exitStatus, result.out, result.err), std::tie(status, out, err))
        << testing::PrintToString(words);
  }

  void WritePackage(const string& name, const string& records) const {
    ASSERT_TRUE(test::WritePackage(Path(name), records));
  }

  // The sample sources (a header and three sections), built into sample.pkg, and a copy
  // of their description away from them.
  void BuildSample() const {
    WriteFile("src/desc.txt",
              "[HEADER]\nVersion = 5\nProduct = tavik\n[Bin]\ncopydir:\nexec: run.sh\n"
              "[Bin/lib]\ncopydir:\n[Doc]\ncopyfile: readme.txt\ntextfile: readme.txt\n");
    WriteFile("src/Bin/run.sh", "#!/bin/sh\necho hi\n");
    WriteFile("src/Bin/lib/x.so", "XSO");
    WriteFile("src/Doc/readme.txt", "line1\r\nline2");
    WriteFile("other/desc.txt", ReadFile("src/desc.txt"));
    ASSERT_EQ(Run({"build", "src/desc.txt", "sample.pkg"}).exitStatus, kExitSuccess);
  }
};

// ---- The command line ----------------------------------------------------------

// Help and version go to standard output. Usage errors exit with 2, say what is wrong
// and how to call, and do nothing.
TEST_F(Tkpack, HelpVersionAndUsageErrors) {
  const string tool =
      "usage: tkpack COMMAND ARGUMENTS... [--help]\n       tkpack --help | --version\n";
  const string build =
      "usage: tkpack build DESCRIPTION PACKAGE [--base DIR] [--digest] [--sort] [--threads N]\n";
  const string install =
      "usage: tkpack install PACKAGE DESTDIR [--quiet] [--trust] [--pubkey FILE]\n";
  const string decompress = "usage: tkpack decompress IN OUT [--limit N]\n";
  // Command words and the beginning of standard output.
  const std::pair<Words, string> help[] = {
      {{"--version"}, "tkpack 1."},
      {{"--help"}, tool + "\nBuilds, checks"},
      {{"check", "d.txt", "--help"}, "usage: tkpack check DESCRIPTION [--base DIR] [--sort]\n"},
      {{"install", "--help", "x"}, install},
      {{"header", "--help"}, "usage: tkpack header PACKAGE [--json]\n"},
      {{"list", "--long", "--help"}, "usage: tkpack list PACKAGE [--long] [--json]\n"},
      {{"verify", "--help"}, "usage: tkpack verify PACKAGE [--pubkey FILE] [--json]\n"},
      {{"sign", "--help"},
       "usage: tkpack sign PACKAGE [--key SECRET_KEY_FILE] [--password-file FILE]\n"},
      {{"compress", "--help"}, "usage: tkpack compress IN OUT [--threads N]\n"}};
  for (const auto& [words, start] : help) {
    const test::ChildResult result = Run(words);
    EXPECT_EQ(std::tie(result.exitStatus, result.err), std::tie(kExitSuccess, "")) << start;
    EXPECT_TRUE(result.out.starts_with(start)) << result.out;
  }
  const std::tuple<Words, string, string> usage[] = {
      {{}, "no command given", tool},
      {{"pack", "x"}, "unknown command 'pack'", tool},
      {{"-v"}, "unknown option '-v'", tool},
      {{"build", "d"}, "build: missing operand (expected DESCRIPTION PACKAGE)", build},
      {{"build", "d", "a", "b"}, "build: unexpected operand 'b'", build},
      {{"build", "d", "a", "--fast"}, "build: unknown option '--fast'", build},
      {{"build", "d", "a", "--base"}, "build: option '--base' needs a value (DIR)", build},
      {{"install", "a", "b", "--quiet=1"}, "install: option '--quiet' takes no value", install},
      {{"decompress", "a", "b", "--limit", "12k"},
       "decompress: option '--limit' wants a number of bytes, not '12k'",
       decompress},
      {{"decompress", "a", "b", "--limit=99999999999999999999"},
       "decompress: option '--limit' wants a number of bytes, not '99999999999999999999'",
       decompress}};
  for (const auto& [words, message, usageText] : usage) {
    Expect(words, kExitUsage, "", "tkpack: " + message + "\n" + usageText);
  }
  EXPECT_EQ(Listing(), Words{"tmp/"});
}

// ---- Commands that succeed -----------------------------------------------------

// Each prints its whole result on standard output and nothing on standard error, and
// writes nothing but what it makes. Sources resolve against the description's
// directory unless --base names another; every package the builder writes passes
// verify; install prints the engine's lines unless --quiet.
TEST_F(Tkpack, CommandsThatSucceed) {
  BuildSample();
  WriteFile("src/Tree/a.txt", "a");
  WriteFile("src/Tree/sub/deeper/c.o", "c");
  WriteFile("src/big.bin", string(300000, 'z'));
  WriteFile("src/all.txt", ReadFile("src/desc.txt") +
                               "[Tree]\ncopydirsub:\nexcludefile: *.o\n[Old]\nremovedir:\n"
                               "removedirsub:\nremovefile: *.log\ntextdir:\n"
                               "[]\ncopyfile: big=#big.bin\nexec: big\n");
  WriteFile("src/empty.txt", "");
  for (const string name : {"all", "empty"}) {
    ASSERT_EQ(Run({"build", "src/" + name + ".txt", name + ".pkg"}).exitStatus, kExitSuccess);
  }
  WritePackage(
      "odd.pkg",
      string(kStreamStart) +
          "[File]\nName = early\nSize = 1\nx\n\n[ dir ] trailing text\nName = Top\\Sub\\\n\n"
          "[RemoveFile]\nName = *.log\n\n\n[RmDir]\nName = Old\nWithsubdir = yes\n\n"
          "[TextDir]\nName = Doc\nName = Doc\n\n\n[Dir]\nName = \n\n[Exec]\nName = run.sh\n\n\n"
          "[Custom]\nkey = value\n[File]\nName = cut\nSize = 10\nabc");
  const Words before = Listing();
  const string built =
      "built a.pkg (" + std::to_string(ReadFile("sample.pkg").size()) + " bytes)\n";
  const std::pair<Words, string> cases[] = {
      {{"check", "src/desc.txt"}, "src/desc.txt: ok\n"},
      {{"check", Path("src/desc.txt")}, Path("src/desc.txt: ok\n")},
      {{"check", "--base", "src", "other/desc.txt"}, "other/desc.txt: ok\n"},
      {{"build", "src/desc.txt", "a.pkg"}, built},
      {{"build", Path("src/desc.txt"), "a.pkg"}, built},
      {{"build", "--base=" + Path("src"), "other/desc.txt", "a.pkg"}, built},
      {{"header", "sample.pkg"}, "Version = 5\nProduct = tavik\n"},
      {{"list", "sample.pkg"},
       "Header     [HEADER]\nDir        Bin\nFile       Bin/run.sh\nExec       Bin/run.sh\n"
       "Dir        Bin/lib\nFile       Bin/lib/x.so\nDir        Doc\n"
       "File       Doc/readme.txt\nTextFile   Doc/readme.txt\n"},
      {{"list", "--long", "odd.pkg"},
       "File                  1  early\n"
       "Dir                   -  Top/Sub/\n"
       "RemoveFile            -  Top/Sub/*.log\n"
       "RmDir                 -  Old  (with subdirectories)\n"
       "TextDir               -  Doc\n"
       "Dir                   -  .\n"
       "Exec                  -  run.sh\n"
       "Other                 -  [CUSTOM]\n"
       "File                 10  cut  (only 3 bytes in the package)\n"
       "9 records: 2 directories, 2 files with 11 bytes; stream 281 bytes, package " +
           std::to_string(ReadFile("odd.pkg").size()) + " bytes\n"},
      {{"verify", "sample.pkg"}, "sample.pkg: no digest\nsample.pkg: ok, 9 records\n"},
      {{"verify", "all.pkg"}, "all.pkg: no digest\nall.pkg: ok, 21 records\n"},
      {{"verify", "empty.pkg"}, "empty.pkg: no digest\nempty.pkg: ok, 0 records\n"},
      {{"install", "sample.pkg", "dest/"},
       "\nInstalling package sample.pkg\nUncompressing package file\nVerifying package"
       "\nDirectory Bin\nDirectory Bin/lib\nDirectory Doc\n"},
      {{"install", "--quiet", "sample.pkg", "a/b"}, ""}};
  for (const auto& [words, out] : cases) {
    Expect(words, kExitSuccess, out, "");
    EXPECT_TRUE(words[0] != "build" || ReadFile("a.pkg") == ReadFile("sample.pkg")) << words[1];
  }
  const test::Tree tree = {{"Bin", "dir"},     {"Bin/run.sh", "755:#!/bin/sh\necho hi\n"},
                           {"Bin/lib", "dir"}, {"Bin/lib/x.so", "644:XSO"},
                           {"Doc", "dir"},     {"Doc/readme.txt", "644:line1\nline2\n"}};
  EXPECT_EQ(Snapshot("dest"), tree);
  EXPECT_EQ(Snapshot("a/b"), tree);
  for (const char* made : {"dest", "a", "a.pkg"}) std::filesystem::remove_all(Path(made));
  EXPECT_EQ(Listing(), before);
}

// Compressed files, with any number of threads, and files decompressed whole or up to a
// limit, are those of the codec's single-threaded file front end.
TEST_F(Tkpack, CompressAndDecompressMatchTheCodecFrontEnd) {
  auto codec = std::make_unique<LzhufCodec>();
  std::mt19937 generator(7);
  string random(70000, '\0');
  for (char& byte : random) byte = static_cast<char>(generator());
  for (const string& bytes : {string("x"), string(5000, 'a'), random}) {
    WriteFile("in", bytes);
    ASSERT_EQ(LzhufEncodeFile(*codec, Path("in").c_str(), Path("ref.lzh").c_str()), 0);
    Expect({"compress", "in", "in.lzh"}, kExitSuccess,
           "in (" + std::to_string(bytes.size()) + " bytes) -> in.lzh (" +
               std::to_string(ReadFile("ref.lzh").size()) + " bytes)\n",
           "");
    EXPECT_EQ(ReadFile("in.lzh"), ReadFile("ref.lzh"));
    for (const char* threads : {"1", "3"}) {
      EXPECT_EQ(Run({"compress", "in", "in.lzh", "--threads", threads}).exitStatus, kExitSuccess);
      EXPECT_EQ(ReadFile("in.lzh"), ReadFile("ref.lzh")) << threads;
    }
    EXPECT_EQ(Run({"decompress", "in.lzh", "out"}).exitStatus, kExitSuccess);
    EXPECT_EQ(ReadFile("out"), bytes);
    EXPECT_EQ(Run({"decompress", "in.lzh", "part", "--limit=2500"}).exitStatus, kExitSuccess);
    ASSERT_EQ(LzhufDecodeFile(*codec, Path("in.lzh").c_str(), Path("ref").c_str(), 2500), 0);
    EXPECT_EQ(ReadFile("part"), ReadFile("ref"));
  }
}

// The number of threads changes nothing in a built package.
TEST_F(Tkpack, BuildGivesTheSameBytesWithAnyNumberOfThreads) {
  BuildSample();
  for (const char* threads : {"1", "2", "5"}) {
    ASSERT_EQ(Run({"build", "src/desc.txt", "threads.pkg", "--threads", threads}).exitStatus,
              kExitSuccess);
    EXPECT_EQ(ReadFile("threads.pkg"), ReadFile("sample.pkg")) << threads;
  }
}

// ---- verify --------------------------------------------------------------------

// Every problem is reported with its place, in stream order, and a malformed record
// does not end the walk.
TEST_F(Tkpack, VerifyReportsEveryProblemAndWalksOn) {
  const string escapes = "\" would escape the installation directory\n";
  const string beforeDir =
      ": comes before any [Dir] record (would act on the installer's working directory)\n";
  const string badMagic =
      "bad.pkg: line 1 at byte 0: bad magic or version line (a package stream starts with "
      "\"TAVIK PACKAGE FILE\" and a version line)\n";
  const string noDigest = "bad.pkg: no digest\n";
  const std::pair<string, string> cases[] = {
      {"TAVIK PACKAGE FILE\n", badMagic + noDigest + "bad.pkg: 1 problem in 0 records\n"},
      {"TAVIK\n1\n[File]\nName = /abs\nSize = 1\nx\n\n[RemoveFile]\nName = *\n\n\n"
       "[Dir]\nName = a\\..\\b\n\n[Dir]\nName = Bin\n\n[File]\n\n\n[File]\nName = \nSize = 0\n\n\n"
       "[Exec]\nName = ../x\n\n\n[File]\nName = a\n[Exec]\nName = a\n\n\n"
       "[File]\nName = ../up\nSize = 9\nx",
       badMagic + "bad.pkg: record 1 at byte 8: [File] /abs: name \"/abs" + escapes +
           "bad.pkg: record 1 at byte 8: [File] /abs" + beforeDir +
           "bad.pkg: record 2 at byte 39: [RemoveFile] *" + beforeDir +
           "bad.pkg: record 3 at byte 63: [Dir] a/../b: name \"a/../b" + escapes +
           "bad.pkg: record 5 at byte 102: [File]: no name (missing \"Name = \" line)\n"
           "bad.pkg: record 6 at byte 111: [File]: no name (empty \"Name = \" line)\n"
           "bad.pkg: record 7 at byte 137: [Exec] Bin/../x: name \"../x" +
           escapes +
           "bad.pkg: record 8 at byte 158: [File] Bin/a: missing \"Size = \" line\n"
           "bad.pkg: record 10 at byte 192: [File] Bin/../up: name \"../up" +
           escapes +
           "bad.pkg: record 10 at byte 192: [File] Bin/../up: content cut short: Size = 9 but "
           "the stream holds 1 bytes\n" +
           noDigest + "bad.pkg: 11 problems in 10 records\n"}};
  for (const auto& [stream, out] : cases) {
    WritePackage("bad.pkg", stream);
    Expect({"verify", "bad.pkg"}, kExitFailure, out, "");
  }
}

// ---- Failures ------------------------------------------------------------------

// Every command that fails exits with 1 and says what and where on standard error only.
// It leaves nothing behind but what an installation made before it failed and the
// output file that a codec command opened.
TEST_F(Tkpack, FailuresExitWithOneAndSayWhatAndWhere) {
  BuildSample();
  WritePackage("exec.pkg", kStreamStart + test::DirRecord("Bin") + "[Exec]\nName = no\n\n\n");
  WritePackage("magic.pkg", "TAVIK PACKAGE FILES\n1\n");
  WriteFile("short", "ab");
  WriteFile("empty", "");
  WritePackage("bad.pkg", kStreamStart + test::DirRecord("Bin") + "[File]\nName = a\n\n[Dir]\n");
  const Words before = Listing();
  const string tooShort = "codec result 143: fewer than 4 bytes: no length header";
  const std::pair<string, string> descriptions[] = {
      // "": none
      {"", "Cannot open description file src/bad.txt"},
      {"[Bin]\ncopyfile: missing.txt\n", "Bad file: src/Bin/missing.txt"},
      {"[a/../b]\n", "Bad directory: src/a/../b"}};
  for (const auto& [description, err] : descriptions) {
    if (!description.empty()) WriteFile("src/bad.txt", description);
    Expect({"build", "src/bad.txt", "bad.pkg"}, kExitFailure, "", "tkpack: " + err + "\n");
    Expect({"check", "src/bad.txt"}, kExitFailure, "", "tkpack: " + err + "\n");
  }
  std::filesystem::remove(Path("src/bad.txt"));
  const std::pair<Words, string> cases[] = {
      {{"check", "other/desc.txt"}, "Bad directory: other/Bin"},  // sources beside it
      {{"build", "src/desc.txt", "no/dir/a.pkg"},
       "Cannot open temporary package file no/dir/a.pkg.tk_temp"},
      {{"install", "--quiet", "missing.pkg", "dest"},
       "Cannot decompress package file missing.pkg (codec result 1: a file could not be opened)"},
      {{"install", "--trust", "--quiet", "missing.pkg", "dest"}, "Cannot decompress package file"},
      {{"header", "magic.pkg"}, "Bad package file magic.pkg"},
      {{"list", "magic.pkg"}, "Bad package file magic.pkg"},
      {{"verify", "short"}, "Cannot decompress package file short (" + tooShort + ")"},
      {{"compress", "empty", "out"},
       "cannot compress empty into out: codec result 117: nothing to code: empty input or a "
       "stated length of 0"},
      {{"decompress", "short", "out"}, "cannot decompress short into out: " + tooShort},
      {{"compress", "missing", "out"},
       "cannot compress missing into out: codec result 1: a file could not be opened: missing"},
      {{"decompress", "short", "no/out"},
       "cannot decompress short into no/out: codec result 1: a file could not be opened: no/out"}};
  for (const auto& [words, err] : cases) Expect(words, kExitFailure, "", "tkpack: " + err + "\n");
  // The engine's lines come before the error; a malformed record ends a listing after
  // what came before it.
  Expect({"install", "exec.pkg", "dest"}, kExitFailure,
         "\nInstalling package exec.pkg\nUncompressing package file\nVerifying package"
         "\nDirectory Bin\n",
         "tkpack: Cannot change file access rigths dest/Bin/no\n");
  Expect({"list", "bad.pkg"}, kExitFailure, "Dir        Bin\n",
         "tkpack: Bad package file bad.pkg: record 2 at byte 39: [File] Bin/a: missing "
         "\"Size = \" line\n");
  std::filesystem::remove_all(Path("dest"));
  std::filesystem::remove(Path("out"));
  EXPECT_EQ(Listing(), before);
}

}  // namespace
}  // namespace tk
