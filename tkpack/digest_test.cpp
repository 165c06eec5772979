// The integrity digest: the digest line of a decoded stream, the hash with its digits
// written as zeros (compared with coreutils' sha256sum, never with itself), the check,
// the build hook, and `tkpack build --digest` and `tkpack verify` as users meet them.
#include "tkpack/digest.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "support/files.h"
#include "testing/child_process.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"
#include "tkpack/commands.h"
#include "tkpack/opened_package.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

using std::string;
using test::kStreamStart;
using State = DigestLine::State;
using Result = DigestCheck::Result;
using Words = std::vector<string>;

// Written out here rather than taken from digest.h, so that a wrong constant there shows.
const string kPrefix = "TAVIK PACKAGE FILE\n1\n[HEADER]\nDigest = sha256:";
const string kZeros(64, '0');
const string kDigits = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
const string kPlaceProblem =
    "\"Digest = sha256:\" does not follow the lines \"TAVIK PACKAGE FILE\", \"1\" and "
    "\"[HEADER]\" exactly";
const string kDigitsProblem =
    "\"Digest = sha256:\" is not followed by 64 lower-case hex digits and the line's end";

// `stream` with bytes 46..109 written as "0": the bytes its digest covers.
string Zeroed(string stream) {
  for (std::size_t at = 46; at < 110 && at < stream.size(); ++at) stream[at] = '0';
  return stream;
}

class Digest : public test::TempDirTest {
 protected:
  // The SHA-256 of `bytes` by coreutils' sha256sum, in lower-case hex.
  string Sha256Sum(const string& bytes) const {
    WriteFile("sha256.in", bytes);
    return test::RunChild({"/usr/bin/sha256sum", {"sha256sum", Path("sha256.in")}, "", "", {}})
        .out.substr(0, 64);
  }

  // kPrefix, the right digits for the stream, LF and `rest`.
  string WithDigest(const string& rest) const {
    return kPrefix + Sha256Sum(kPrefix + kZeros + "\n" + rest) + "\n" + rest;
  }

  test::ChildResult Run(Words words) const {
    words.insert(words.begin(), "tkpack");
    return test::RunChild({TK_BIN_DIR "/tkpack", words, "", path(), {}});
  }

  void Expect(const Words& words, int status, const string& out) const {
    const test::ChildResult result = Run(words);
    EXPECT_EQ(std::tie(result.exitStatus, result.out, result.err), std::tie(status, out, ""))
        << testing::PrintToString(words);
  }

  // RunVerify in this process, for the many runs of the damage test: status and output.
  std::pair<int, string> VerifyHere(const string& packageName) const {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    ToolIo io{out, out, false};
    CommandLine line;
    line.operands = {packageName};
    const int status = RunVerify(line, io);
    std::fclose(out);
    const string printed(text, size);
    std::free(text);
    return {status, printed};
  }
};

// Only the exact start with 64 lower-case digits and a LF is well-formed; a start one
// byte away from it is a damaged digest line; anything else carries none.
TEST_F(Digest, FindsTheDigestLine) {
  const auto damaged = [](std::size_t at, char byte) {
    return kPrefix.substr(0, at) + byte + kPrefix.substr(at + 1) + kDigits + "\n";
  };
  const std::tuple<string, State, string> cases[] = {
      {kPrefix + kDigits + "\n[HEADER]\nVersion = 5\n", State::kWellFormed, kDigits},
      {kPrefix + kDigits, State::kMalformed, kDigitsProblem},
      {kPrefix + kDigits + "\r\n", State::kMalformed, kDigitsProblem},
      {kPrefix + kDigits.substr(1) + "\n", State::kMalformed, kDigitsProblem},
      {kPrefix + "A" + kDigits.substr(1) + "\n", State::kMalformed, kDigitsProblem},
      {damaged(27, 'Q'), State::kMalformed, kPlaceProblem},  // [HEADEQ]
      {damaged(20, ' '), State::kMalformed, kPlaceProblem},  // "1 [HEADER]"
      {damaged(5, '\t'), State::kMalformed, kPlaceProblem},
      {damaged(45, ' '), State::kMalformed, kPlaceProblem},
      {kPrefix.substr(0, 45), State::kMalformed, kPlaceProblem},
      {kPrefix.substr(0, 44), State::kAbsent, ""},
      {"", State::kAbsent, ""},
      {kStreamStart + test::DirRecord("Digest"), State::kAbsent, ""},
      {string(kStreamStart) + "[HEADER]\nVersion = 5\n", State::kAbsent, ""},
      {string(kStreamStart) + "[Header]\nDigest = sha256:" + kDigits + "\n", State::kAbsent, ""}};
  for (const auto& [stream, state, text] : cases) {
    const DigestLine line = ParseDigestLine(stream);
    const string digits = state == State::kWellFormed ? text : "";
    const string problem = state == State::kMalformed ? text : "";
    EXPECT_EQ(std::tie(line.state, line.digits, line.problem), std::tie(state, digits, problem))
        << testing::PrintToString(stream);
  }
}

// The hash is sha256sum's of the stream with its digits zeroed, for streams shorter
// than the digits and spanning several read blocks; a check compares it with the digits
// written; both leave the stream where it stood.
TEST_F(Digest, HashesAndChecksStreams) {
  std::mt19937 generator(11);
  string random(50000, '\0');
  for (char& byte : random) byte = static_cast<char>(generator());
  const string right = WithDigest(test::DirRecord("Bin") + test::FileRecord("a", random));
  string damaged = right;
  damaged[right.size() - 9] ^= 1;
  for (const string& stream : {string("abc"), random, right, damaged}) {
    WriteFile("s", stream);
    UniqueFile file(OpenFile(Path("s").c_str(), "r"));
    ASSERT_EQ(SeekFile(file.get(), 3, SEEK_SET), 0);
    string digits;
    ASSERT_TRUE(ComputeStreamDigest(file.get(), digits));
    EXPECT_EQ(digits, Sha256Sum(Zeroed(stream))) << stream.size();
    const DigestCheck check = CheckStreamDigest(file.get());
    const bool present = stream == right || stream == damaged;
    const Result result = !present          ? Result::kAbsent
                          : stream == right ? Result::kMatch
                                            : Result::kMismatch;
    EXPECT_EQ(std::make_tuple(check.result, check.expected, check.actual),
              std::make_tuple(result, present ? right.substr(46, 64) : "", present ? digits : ""));
    EXPECT_EQ(TellFile(file.get()), 3);
  }
  UniqueFile unreadable(OpenFile(Path("s").c_str(), "w"));
  string digits = "kept";
  EXPECT_FALSE(ComputeStreamDigest(unreadable.get(), digits));
  EXPECT_EQ(digits, "kept");
  const DigestCheck check = CheckStreamDigest(unreadable.get());
  EXPECT_EQ(check.result, Result::kUnreadable);
  EXPECT_TRUE(IsDigestProblem(check));
  EXPECT_EQ(DigestCheckText(check), "digest not checked: the stream cannot be read");
}

// The build hook refuses, untouched, a stream that does not begin with a zero digest
// line, and says which file it could not open.
TEST_F(Digest, WritesOnlyOverZeroDigits) {
  const string noLine = "No digest line at the start of temporary package file " + Path("r");
  for (const string& stream : {string(kStreamStart), kPrefix + kDigits + "\n", kPrefix + kZeros}) {
    WriteFile("r", stream);
    EXPECT_EQ(WriteStreamDigest(Path("r")), noLine);
    EXPECT_EQ(ReadFile("r"), stream);
  }
  std::filesystem::create_directory(Path("dir"));
  for (const string name : {"missing", "dir"}) {
    EXPECT_EQ(WriteStreamDigest(Path(name)), "Cannot open temporary package file " + Path(name));
  }
}

// Without --digest the tool builds the engine's own bytes. With it the stream begins
// with the digest line, holds the same description after it and carries sha256sum's
// digest; verify, header and install take it as an ordinary package. --help says so.
TEST_F(Digest, BuildWritesTheDigestLine) {
  WriteFile("src/desc.txt", "[HEADER]\nVersion = 5\n[Bin]\ncopydir:\nexec: run.sh\n");
  WriteFile("src/Bin/run.sh", "#!/bin/sh\n");
  WriteFile("src/empty.txt", "");
  TkPackage engine;
  ASSERT_TRUE(engine.BuildPackage(Path("src/desc.txt").c_str(), Path("src").c_str(),
                                  Path("engine.pkg").c_str()));
  for (const Words& words : {Words{"build", "src/desc.txt", "plain.pkg"},
                             Words{"build", "--digest", "src/desc.txt", "d.pkg"},
                             Words{"build", "--digest", "src/empty.txt", "e.pkg"}}) {
    const string out = Run(words).out;
    EXPECT_EQ(out, "built " + words.back() + " (" + std::to_string(ReadFile(words.back()).size()) +
                       " bytes)\n");
  }
  EXPECT_EQ(ReadFile("plain.pkg"), ReadFile("engine.pkg"));
  const string stream = test::ReadPackageStream(Path("d.pkg"));
  const string digits = Sha256Sum(Zeroed(stream));
  EXPECT_EQ(stream,
            kPrefix + digits + "\n" + test::ReadPackageStream(Path("plain.pkg")).substr(21));
  const string emptyDigits = Sha256Sum(kPrefix + kZeros + "\n");
  EXPECT_EQ(test::ReadPackageStream(Path("e.pkg")), kPrefix + emptyDigits + "\n");
  Expect({"verify", "d.pkg"}, kExitSuccess,
         "d.pkg: digest ok (sha256:" + digits + ")\nd.pkg: ok, 5 records\n");
  Expect({"verify", "e.pkg"}, kExitSuccess,
         "e.pkg: digest ok (sha256:" + emptyDigits + ")\ne.pkg: ok, 1 records\n");
  Expect({"verify", "plain.pkg"}, kExitSuccess, "plain.pkg: no digest\nplain.pkg: ok, 4 records\n");
  Expect({"header", "d.pkg"}, kExitSuccess, "Digest = sha256:" + digits + "\nVersion = 5\n");
  Expect({"install", "--quiet", "d.pkg", "dest"}, kExitSuccess, "");
  EXPECT_EQ(Snapshot("dest"), test::Tree({{"Bin", "dir"}, {"Bin/run.sh", "755:#!/bin/sh\n"}}));
  EXPECT_EQ(CountFilesEndingWith(".tk_temp"), 0);
  const string help = Run({"build", "--help"}).out;
  EXPECT_TRUE(help.starts_with(
      "usage: tkpack build DESCRIPTION PACKAGE [--base DIR] [--digest] [--threads N]\n"
      "\nReads the description file and writes the package file. With "
      "--digest, the\npackage's header begins with a \"Digest = "
      "sha256:...\" line, the SHA-256 of its\nrecord stream, which "
      "verify checks.\n"));
  EXPECT_NE(help.find("\n  --digest        write an integrity digest into the header\n"),
            string::npos);
}

// A wrong or malformed digest is one more problem, after those of the records; a right
// one is said even when records have problems.
TEST_F(Digest, VerifyReportsWrongDigests) {
  const string records = test::DirRecord("Bin") + test::FileRecord("../a", "abc");
  const string problem =
      "bad.pkg: record 3 at byte 129: [File] Bin/../a: name \"../a\" would "
      "escape the installation directory\n";
  const string wrong = kPrefix + kDigits + "\n" + records;
  const string right = WithDigest(records);
  const std::pair<string, string> cases[] = {
      {wrong, problem + "bad.pkg: digest mismatch: the package says sha256:" + kDigits +
                  ", its records hash to sha256:" + Sha256Sum(Zeroed(wrong)) +
                  "\nbad.pkg: 2 problems in 3 records\n"},
      {kPrefix + "A" + kDigits.substr(1) + "\n" + records,
       problem + "bad.pkg: malformed digest line: " + kDigitsProblem +
           "\nbad.pkg: 2 problems in 3 records\n"},
      {"TAVIK PACKAGE FILE\n1\n[HEADEQ]" + right.substr(29),
       problem + "bad.pkg: malformed digest line: " + kPlaceProblem +
           "\nbad.pkg: 2 problems in 3 records\n"},
      {right, problem + "bad.pkg: digest ok (sha256:" + right.substr(46, 64) +
                  ")\nbad.pkg: 1 problem in 3 records\n"}};
  for (const auto& [stream, out] : cases) {
    ASSERT_TRUE(test::WritePackage(Path("bad.pkg"), stream));
    Expect({"verify", "bad.pkg"}, kExitFailure, out);
  }
}

// Every single byte of a package with a digest, damaged three ways, in its record stream
// (header, record lines, file contents) or in its compressed form (the length header
// included): verify fails and install writes nothing, unless only padding bits of the
// compressed form changed and the same records come out.
TEST_F(Digest, EveryDamagedByteIsCaught) {
  WriteFile("src/desc.txt", "[HEADER]\nVersion = 5\n[Bin]\ncopyfile: a.txt\nexec: a.txt\n");
  WriteFile("src/Bin/a.txt", string(200, 'h'));
  ASSERT_EQ(Run({"build", "--digest", "src/desc.txt", "d.pkg"}).exitStatus, kExitSuccess);
  const string stream = test::ReadPackageStream(Path("d.pkg"));
  ASSERT_EQ(VerifyHere(Path("d.pkg")).first, kExitSuccess);
  CommandLine install;
  install.operands = {Path("f.pkg"), Path("dest")};
  install.options["--quiet"] = "";
  const auto expectCaught = [&](const string& where) {
    EXPECT_EQ(VerifyHere(Path("f.pkg")).first, kExitFailure) << where;
    FILE* err = std::fopen("/dev/null", "w");
    ToolIo io{err, err, false};
    EXPECT_EQ(RunInstall(install, io), kExitFailure) << where;
    std::fclose(err);
    EXPECT_FALSE(Exists("dest")) << where;
  };
  for (const bool compressed : {false, true}) {
    const string whole = compressed ? ReadFile("d.pkg") : stream;
    for (std::size_t at = 0; at < whole.size(); ++at) {
      for (const char mask : {'\x01', '\x20', '\xff'}) {
        string damaged = whole;
        damaged[at] ^= mask;
        ASSERT_TRUE(compressed ? WriteFile("f.pkg", damaged)
                               : test::WritePackage(Path("f.pkg"), damaged));
        string refused;
        if (compressed && CheckStatedLength(Path("f.pkg"), refused) &&
            test::ReadPackageStream(Path("f.pkg")) == stream) {
          continue;  // only padding bits changed
        }
        expectCaught((compressed ? "package byte " : "stream byte ") + std::to_string(at) + " ^ " +
                     std::to_string(int{mask}));
      }
    }
  }
}

}  // namespace
}  // namespace tk
