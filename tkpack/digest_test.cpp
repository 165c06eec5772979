// The integrity digest: the digest line of a decoded stream, the hash with its digits
// written as zeros (compared with coreutils' sha256sum, never with itself), the build
// hook, and `tkpack build --digest`, verify and install as users meet them.
#include "tkpack/digest.h"

#include <cstdio>
#include <cstdlib>
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
const string kLostProblem =
    "malformed digest line: the package begins as one with a digest, but its records do not\n";

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

  // The sample: plain.pkg built without --digest, d.pkg with it.
  void BuildSample() const {
    WriteFile("src/desc.txt", "[HEADER]\nVersion = 5\n[Bin]\ncopyfile: a.txt\nexec: a.txt\n");
    WriteFile("src/Bin/a.txt", string(200, 'h'));
    ASSERT_EQ(Run({"build", "src/desc.txt", "plain.pkg"}).exitStatus, kExitSuccess);
    ASSERT_EQ(Run({"build", "--digest", "src/desc.txt", "d.pkg"}).exitStatus, kExitSuccess);
  }

  // A command run in this process, for the many runs of the damage test: its status and
  // what it printed.
  std::pair<int, string> RunHere(int (*command)(const CommandLine&, ToolIo&),
                                 const Words& operands) const {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    ToolIo io{out, out, false};
    CommandLine line;
    line.operands = operands;
    const int status = command(line, io);
    std::fclose(out);
    const string printed(text, size);
    std::free(text);
    return {status, printed};
  }
};

// Only the exact start with 64 lower-case digits and a LF is well-formed; a start one
// byte away from it is a damaged digest line; anything else carries none.
TEST_F(Digest, FindsTheDigestLine) {
  const std::tuple<string, State, string, string> cases[] = {
      {kPrefix + kDigits + "\n[HEADER]\nVersion = 5\n", State::kWellFormed, kDigits, ""},
      {kPrefix + kDigits, State::kMalformed, "", kDigitsProblem},
      {kPrefix + kDigits + "\r\n", State::kMalformed, "", kDigitsProblem},
      {kPrefix + "A" + kDigits.substr(1) + "\n", State::kMalformed, "", kDigitsProblem},
      {"TAVIK\tPACKAGE FILE\n1\n[HEADER]\nDigest = sha256:", State::kMalformed, "", kPlaceProblem},
      {"TAVIK PACKAGE FILE\n1 [HEADER]\nDigest = sha256:", State::kMalformed, "", kPlaceProblem},
      {"TAVIK PACKAGE FILE\n1\n[HEADEQ]\nDigest = sha256:", State::kMalformed, "", kPlaceProblem},
      {kPrefix.substr(0, 45), State::kMalformed, "", kPlaceProblem},
      {kPrefix.substr(0, 44), State::kAbsent, "", ""},
      {"TAVIK PACKAGE FILE\n1\n[Header]\nDigest = sha256:", State::kAbsent, "", ""}};
  for (const auto& [stream, state, digits, problem] : cases) {
    const DigestLine line = ParseDigestLine(stream);
    EXPECT_EQ(std::tie(line.state, line.digits, line.problem), std::tie(state, digits, problem))
        << testing::PrintToString(stream);
  }
}

// The hash is sha256sum's of the stream with its digits zeroed, for streams shorter
// than the digits and spanning several read blocks; the check compares it with the
// digits written; both leave the stream where it stood. An unreadable stream is a problem.
TEST_F(Digest, HashesAndChecksStreams) {
  for (const string& stream : {string("abc"), WithDigest(string(40000, 'r'))}) {
    WriteFile("s", stream);
    UniqueFile file(OpenFile(Path("s").c_str(), "r"));
    ASSERT_EQ(SeekFile(file.get(), 3, SEEK_SET), 0);
    string digits;
    ASSERT_TRUE(ComputeStreamDigest(file.get(), digits));
    EXPECT_EQ(digits, Sha256Sum(Zeroed(stream)));
    EXPECT_EQ(DigestCheckText(CheckStreamDigest(file.get())),
              stream == "abc" ? "no digest" : "digest ok (sha256:" + digits + ")");
    EXPECT_EQ(TellFile(file.get()), 3);
  }
  UniqueFile unreadable(OpenFile(Path("s").c_str(), "w"));
  string digits = "kept";
  EXPECT_FALSE(ComputeStreamDigest(unreadable.get(), digits) || digits != "kept");
  const DigestCheck check = CheckStreamDigest(unreadable.get());
  EXPECT_EQ(std::make_pair(IsDigestProblem(check), DigestCheckText(check)),
            std::make_pair(true, string("digest not checked: the stream cannot be read")));
}

// The build hook refuses, untouched, a stream that does not begin with a zero digest
// line, and says which file it could not open.
TEST_F(Digest, WritesOnlyOverZeroDigits) {
  for (const string& stream : {string(kStreamStart), kPrefix + kDigits + "\n"}) {
    WriteFile("r", stream);
    EXPECT_EQ(WriteStreamDigest(Path("r")),
              "No digest line at the start of temporary package file " + Path("r"));
    EXPECT_EQ(ReadFile("r"), stream);
  }
  EXPECT_EQ(WriteStreamDigest(Path("no")), "Cannot open temporary package file " + Path("no"));
}

// Without --digest the tool builds the engine's own bytes. With it the stream begins
// with the digest line, holds the same description after it and carries sha256sum's
// digest; verify, header and install take it as an ordinary package.
TEST_F(Digest, BuildWritesTheDigestLine) {
  BuildSample();
  TkPackage engine;
  ASSERT_TRUE(engine.BuildPackage(Path("src/desc.txt").c_str(), Path("src").c_str(),
                                  Path("engine.pkg").c_str()));
  EXPECT_EQ(ReadFile("plain.pkg"), ReadFile("engine.pkg"));
  const string stream = test::ReadPackageStream(Path("d.pkg"));
  const string digits = Sha256Sum(Zeroed(stream));
  EXPECT_EQ(stream,
            kPrefix + digits + "\n" + test::ReadPackageStream(Path("plain.pkg")).substr(21));
  Expect({"verify", "d.pkg"}, kExitSuccess,
         "d.pkg: digest ok (sha256:" + digits + ")\nd.pkg: ok, 5 records\n");
  Expect({"header", "d.pkg"}, kExitSuccess, "Digest = sha256:" + digits + "\nVersion = 5\n");
  Expect({"install", "--quiet", "d.pkg", "dest"}, kExitSuccess, "");
  EXPECT_EQ(Snapshot("dest"),
            test::Tree({{"Bin", "dir"}, {"Bin/a.txt", "755:" + string(200, 'h')}}));
  EXPECT_EQ(CountFilesEndingWith(".tk_temp"), 0);
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
// compressed form changed and the same records come out. Some damage to the compressed
// start leaves a stream without a digest line, which is reported as lost.
TEST_F(Digest, EveryDamagedByteIsCaught) {
  BuildSample();
  const string stream = test::ReadPackageStream(Path("d.pkg"));
  int lost = 0;
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
        const auto [status, out] = RunHere(RunVerify, {Path("f.pkg")});
        lost += out.find(kLostProblem) != string::npos;
        EXPECT_EQ(std::make_tuple(status, RunHere(RunInstall, {Path("f.pkg"), Path("dest")}).first,
                                  Exists("dest")),
                  std::make_tuple(kExitFailure, kExitFailure, false))
            << (compressed ? "package byte " : "stream byte ") << at << " ^ " << int{mask};
      }
    }
  }
  EXPECT_GT(lost, 0);
}

}  // namespace
}  // namespace tk
