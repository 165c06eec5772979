// The integrity digest: the digest line of a decoded stream, the hash with its digits
// written as zeros (checked against coreutils' sha256sum, never against itself), the
// check that install and verify make, the build hook, and `tkpack build --digest` and
// `tkpack verify` as their users meet them.
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
const string kSomeDigits = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
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
    const test::ChildResult result =
        test::RunChild({"/usr/bin/sha256sum", {"sha256sum", Path("sha256.in")}, "", "", {}});
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    return result.out.substr(0, 64);
  }

  // kPrefix, the right digits for the stream, LF and `rest`.
  string WithDigest(const string& rest) const {
    const string stream = kPrefix + kZeros + "\n" + rest;
    return kPrefix + Sha256Sum(stream) + "\n" + rest;
  }

  // `bytes` in the file `name`, opened with `mode` and standing at byte `position`.
  UniqueFile Open(const string& bytes, const char* mode = "r", int64_t position = 0,
                  const string& name = "stream") const {
    WriteFile(name, bytes);
    UniqueFile file(OpenFile(Path(name).c_str(), mode));
    EXPECT_NE(file, nullptr);
    if (file != nullptr) {
      EXPECT_EQ(SeekFile(file.get(), position, SEEK_SET), 0);
    }
    return file;
  }

  // Runs the real tkpack with `words` in the scratch directory.
  test::ChildResult Run(Words words) const {
    words.insert(words.begin(), "tkpack");
    return test::RunChild({TK_BIN_DIR "/tkpack", words, "", path(), {}});
  }

  void Expect(const Words& words, int status, const string& out) const {
    const test::ChildResult result = Run(words);
    EXPECT_EQ(std::tie(result.exitStatus, result.out, result.err), std::tie(status, out, ""))
        << testing::PrintToString(words);
  }

  // RunVerify in this process, for the many runs of the damage tests: status and output.
  std::pair<int, string> VerifyHere(const string& packageName) const {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    ToolIo io{out, out, false};
    CommandLine line;
    line.operands = {Path(packageName)};
    const int status = RunVerify(line, io);
    std::fclose(out);
    string printed(text, size);
    std::free(text);
    return {status, printed};
  }
};

// ---- The digest line -----------------------------------------------------------

// Only the exact start with 64 lower-case digits and a LF is well-formed; a start one
// byte away from it is a damaged digest line; anything else carries none.
TEST_F(Digest, FindsTheDigestLine) {
  const string upper = "0123456789ABCDEF0123456789abcdef0123456789abcdef0123456789abcdef";
  const std::tuple<string, State, string> cases[] = {
      {kPrefix + kSomeDigits + "\n", State::kWellFormed, kSomeDigits},
      {kPrefix + kSomeDigits + "\n[HEADER]\nVersion = 5\n", State::kWellFormed, kSomeDigits},
      {kPrefix + kZeros + "\n" + string(5000, 'x'), State::kWellFormed, kZeros},
      {kPrefix + kSomeDigits, State::kMalformed, kDigitsProblem},
      {kPrefix + kSomeDigits + "\r\n", State::kMalformed, kDigitsProblem},
      {kPrefix + kSomeDigits + "0\n", State::kMalformed, kDigitsProblem},
      {kPrefix + kSomeDigits.substr(1) + "\n", State::kMalformed, kDigitsProblem},
      {kPrefix + upper + "\n", State::kMalformed, kDigitsProblem},
      {kPrefix + "g" + kSomeDigits.substr(1) + "\n", State::kMalformed, kDigitsProblem},
      {kPrefix, State::kMalformed, kDigitsProblem},
      {"TAVIK PACKAGE FILE\n1\n[HEADEQ]\nDigest = sha256:" + kSomeDigits + "\n", State::kMalformed,
       kPlaceProblem},
      {"TAVIK PACKAGE FILE\n2\n[HEADER]\nDigest = sha256:" + kSomeDigits + "\n", State::kMalformed,
       kPlaceProblem},
      {"TAVIK\tPACKAGE FILE\n1\n[HEADER]\nDigest = sha256:" + kSomeDigits + "\n", State::kMalformed,
       kPlaceProblem},
      {"TAVIK PACKAGE FILE\n1 [HEADER]\nDigest = sha256:" + kSomeDigits + "\n", State::kMalformed,
       kPlaceProblem},
      {"TAVIK PACKAGE FILE\n1\n[HEADER]\nDigest = sha256 " + kSomeDigits + "\n", State::kMalformed,
       kPlaceProblem},
      {kPrefix.substr(0, 45), State::kMalformed, kPlaceProblem},
      {"", State::kAbsent, ""},
      {kStreamStart, State::kAbsent, ""},
      {kPrefix.substr(0, 44), State::kAbsent, ""},
      {string(kStreamStart) + "[HEADER]\nVersion = 5\n", State::kAbsent, ""},
      {string(kStreamStart) + "[HEADER]\nDigest = md5:" + kSomeDigits + "\n", State::kAbsent, ""},
      {string(kStreamStart) + "[Header]\nDigest = sha256:" + kSomeDigits + "\n", State::kAbsent,
       ""},
      {"TAVIK PACKAGE FILE\r\n1\r\n[HEADER]\r\nDigest = sha256:" + kSomeDigits + "\r\n",
       State::kAbsent, ""},
      {kStreamStart + test::DirRecord("Digest") + test::FileRecord("sha256", "x"), State::kAbsent,
       ""}};
  for (const auto& [stream, state, text] : cases) {
    const DigestLine line = ParseDigestLine(stream);
    const string& digits = state == State::kWellFormed ? text : "";
    const string& problem = state == State::kMalformed ? text : "";
    EXPECT_EQ(std::tie(line.state, line.digits, line.problem), std::tie(state, digits, problem))
        << testing::PrintToString(stream);
  }
  EXPECT_EQ(DigestPrefix(), kPrefix);
  EXPECT_EQ(DigestLineEnd(), 111u);
}

// ---- The hash ------------------------------------------------------------------

// The digest is sha256sum's of the stream with bytes 46..109 written as "0", for streams
// shorter than the digits, ending inside them, and spanning several read blocks; the
// stream's position stays where it was.
TEST_F(Digest, HashesTheStreamWithItsDigitsZeroed) {
  std::mt19937 generator(11);
  string random(50000, '\0');
  for (char& byte : random) byte = static_cast<char>(generator());
  const string streams[] = {"",
                            "abc",
                            kPrefix,
                            kPrefix + "fff",
                            kPrefix + kSomeDigits + "\n",
                            kPrefix + kSomeDigits + "\n" + test::DirRecord("Bin"),
                            random};
  for (const string& stream : streams) {
    UniqueFile file = Open(stream, "r", stream.size() / 2);
    string digits = "unchanged";
    ASSERT_TRUE(ComputeStreamDigest(file.get(), digits)) << stream.size();
    EXPECT_EQ(digits, Sha256Sum(Zeroed(stream))) << stream.size();
    EXPECT_EQ(TellFile(file.get()), static_cast<int64_t>(stream.size() / 2));
  }
  UniqueFile unreadable = Open("abc", "w");
  string digits = "unchanged";
  EXPECT_FALSE(ComputeStreamDigest(unreadable.get(), digits));
  EXPECT_EQ(digits, "unchanged");
}

// ---- The check -----------------------------------------------------------------

// A right digest matches, one damaged byte after the digest line is a mismatch with both
// digests named, and absent, malformed and unreadable streams say so; the position
// stays where it was.
TEST_F(Digest, ChecksAStreamAgainstItsDigest) {
  const string rest = "[HEADER]\nVersion = 5\n" + test::DirRecord("Bin") +
                      test::FileRecord("a.txt", string(20000, 'a'));
  const string right = WithDigest(rest);
  string damaged = right;
  damaged[right.size() - 100] = 'b';
  const string rightDigits = right.substr(46, 64);
  const string damagedDigits = Sha256Sum(Zeroed(damaged));
  const std::tuple<string, Result, string, string, string> cases[] = {
      {right, Result::kMatch, rightDigits, rightDigits, ""},
      {damaged, Result::kMismatch, rightDigits, damagedDigits, ""},
      {kPrefix + kSomeDigits + "\n" + rest, Result::kMismatch, kSomeDigits,
       Sha256Sum(Zeroed(kPrefix + kSomeDigits + "\n" + rest)), ""},
      {kStreamStart + rest, Result::kAbsent, "", "", ""},
      {"", Result::kAbsent, "", "", ""},
      {kPrefix + "\n" + rest, Result::kMalformed, "", "", kDigitsProblem}};
  for (const auto& [stream, result, expected, actual, problem] : cases) {
    UniqueFile file = Open(stream, "r", 3);
    const DigestCheck check = CheckStreamDigest(file.get());
    EXPECT_EQ(std::tie(check.result, check.expected, check.actual, check.problem),
              std::tie(result, expected, actual, problem))
        << testing::PrintToString(stream.substr(0, 120));
    EXPECT_EQ(TellFile(file.get()), 3);
  }
  UniqueFile unreadable = Open(right, "w");
  EXPECT_EQ(CheckStreamDigest(unreadable.get()).result, Result::kUnreadable);
}

// What tkpack says of each result, and which of them are problems.
TEST_F(Digest, SaysWhatEachResultMeans) {
  const string a(64, 'a');
  const string b(64, 'b');
  const std::tuple<DigestCheck, string, bool> cases[] = {
      {{Result::kMatch, a, a, ""}, "digest ok (sha256:" + a + ")", false},
      {{Result::kAbsent, "", "", ""}, "no digest", false},
      {{Result::kMismatch, a, b, ""},
       "digest mismatch: the package says sha256:" + a + ", its records hash to sha256:" + b,
       true},
      {{Result::kMalformed, "", "", "why"}, "malformed digest line: why", true},
      {{Result::kUnreadable, "", "", ""}, "digest not checked: the stream cannot be read", true}};
  for (const auto& [check, text, problem] : cases) {
    EXPECT_EQ(DigestCheckText(check), text);
    EXPECT_EQ(IsDigestProblem(check), problem) << text;
  }
}

// ---- The build hook ------------------------------------------------------------

// The hook writes the right digits over the zeros and changes nothing else; a stream
// without a zero digest line, or none at all, is refused untouched.
TEST_F(Digest, WritesTheDigestInPlace) {
  const string rest = test::DirRecord("Bin") + test::FileRecord("big", string(40000, 'q'));
  WriteFile("s.tk_temp", kPrefix + kZeros + "\n" + rest);
  EXPECT_EQ(WriteStreamDigest(Path("s.tk_temp")), "");
  EXPECT_EQ(ReadFile("s.tk_temp"), WithDigest(rest));

  const string noLine = "No digest line at the start of temporary package file ";
  const std::pair<string, string> refused[] = {{kStreamStart + rest, noLine},
                                               {kPrefix + kSomeDigits + "\n" + rest, noLine},
                                               {kPrefix + kZeros, noLine}};
  for (const auto& [stream, error] : refused) {
    WriteFile("r.tk_temp", stream);
    EXPECT_EQ(WriteStreamDigest(Path("r.tk_temp")), error + Path("r.tk_temp"));
    EXPECT_EQ(ReadFile("r.tk_temp"), stream);
  }
  std::filesystem::create_directory(Path("dir"));
  for (const string name : {"missing", "dir"}) {
    EXPECT_EQ(WriteStreamDigest(Path(name)), "Cannot open temporary package file " + Path(name));
  }

  const BuildOptions options = DigestBuildOptions();
  EXPECT_EQ(options.leadingLines, Words({"[HEADER]", "Digest = sha256:" + kZeros}));
  EXPECT_TRUE(options.beforeCompression);
}

// ---- tkpack build --digest and verify ------------------------------------------

// Without --digest the tool builds the engine's own bytes. With it the stream begins with
// the digest line, holds the same description after it, and carries sha256sum's digest;
// verify, header and install take it as an ordinary package.
TEST_F(Digest, BuildWritesTheDigestLine) {
  WriteFile("src/desc.txt",
            "[HEADER]\nVersion = 5\nProduct = tavik\n[Bin]\ncopydir:\nexec: run.sh\n");
  WriteFile("src/Bin/run.sh", "#!/bin/sh\necho hi\n");
  WriteFile("src/empty.txt", "");
  TkPackage engine;
  ASSERT_TRUE(engine.BuildPackage(Path("src/desc.txt").c_str(), Path("src").c_str(),
                                  Path("engine.pkg").c_str()));
  const auto built = [this](const string& name) {
    return "built " + name + " (" + std::to_string(ReadFile(name).size()) + " bytes)\n";
  };
  const test::ChildResult plain = Run({"build", "src/desc.txt", "plain.pkg"});
  EXPECT_EQ(std::make_pair(plain.exitStatus, plain.out),
            std::make_pair(kExitSuccess, built("plain.pkg")));
  EXPECT_EQ(ReadFile("plain.pkg"), ReadFile("engine.pkg"));
  const test::ChildResult digest = Run({"build", "--digest", "src/desc.txt", "d.pkg"});
  EXPECT_EQ(std::make_pair(digest.exitStatus, digest.out),
            std::make_pair(kExitSuccess, built("d.pkg")));

  const string stream = test::ReadPackageStream(Path("d.pkg"));
  const string digits = Sha256Sum(Zeroed(stream));
  const string description = test::ReadPackageStream(Path("plain.pkg")).substr(21);
  EXPECT_EQ(stream, kPrefix + digits + "\n" + description);
  Expect({"verify", "d.pkg"}, kExitSuccess,
         "d.pkg: digest ok (sha256:" + digits + ")\nd.pkg: ok, 5 records\n");
  Expect({"verify", "plain.pkg"}, kExitSuccess, "plain.pkg: no digest\nplain.pkg: ok, 4 records\n");
  Expect({"header", "d.pkg"}, kExitSuccess,
         "Digest = sha256:" + digits + "\nVersion = 5\nProduct = tavik\n");
  EXPECT_EQ(Run({"install", "--quiet", "d.pkg", "dest"}).exitStatus, kExitSuccess);
  EXPECT_EQ(Run({"install", "--quiet", "plain.pkg", "dest2"}).exitStatus, kExitSuccess);
  EXPECT_EQ(Snapshot("dest"), Snapshot("dest2"));
  EXPECT_EQ(Snapshot("dest").size(), 2u);

  EXPECT_EQ(Run({"build", "--digest", "src/empty.txt", "e.pkg"}).exitStatus, kExitSuccess);
  const string empty = kPrefix + kZeros + "\n";
  EXPECT_EQ(test::ReadPackageStream(Path("e.pkg")), kPrefix + Sha256Sum(empty) + "\n");
  Expect({"verify", "e.pkg"}, kExitSuccess,
         "e.pkg: digest ok (sha256:" + Sha256Sum(empty) + ")\ne.pkg: ok, 1 records\n");
  EXPECT_EQ(CountFilesEndingWith(".tk_temp"), 0);
}

// build --help documents the option beside --base.
TEST_F(Digest, BuildHelpDocumentsTheOption) {
  Expect({"build", "--help"}, kExitSuccess,
         "usage: tkpack build DESCRIPTION PACKAGE [--base DIR] [--digest]\n\n"
         "Reads the description file and writes the package file. With --digest, the\n"
         "package's header begins with a \"Digest = sha256:...\" line, the SHA-256 of its\n"
         "record stream, which verify checks.\n\n"
         "Options:\n"
         "  --base DIR      resolve sources against DIR (default: the description's "
         "directory)\n"
         "  --digest        write an integrity digest into the header\n"
         "  --help          show this text\n");
}

// A wrong or malformed digest is one more problem, after the records' own; a right one
// is said even when records have problems.
TEST_F(Digest, VerifyReportsWrongDigests) {
  const string records = test::DirRecord("Bin") + test::FileRecord("a", "abc");
  const string right = WithDigest(records);
  const string wrongDigits = Sha256Sum(Zeroed(kPrefix + kSomeDigits + "\n" + records));
  const string escape = test::DirRecord("Bin") + test::FileRecord("../a", "abc");
  const string escapes =
      "bad.pkg: record 3 at byte 129: [File] Bin/../a: name \"../a\" would escape the "
      "installation directory\n";
  const string placed = "TAVIK PACKAGE FILE\n1\n[HEADEQ]\nDigest = sha256:" + kZeros + "\n";
  const std::pair<string, string> cases[] = {
      {kPrefix + kSomeDigits + "\n" + records,
       "bad.pkg: digest mismatch: the package says sha256:" + kSomeDigits +
           ", its records hash to sha256:" + wrongDigits + "\nbad.pkg: 1 problem in 3 records\n"},
      {kPrefix + kSomeDigits.substr(1) + "\n" + records,
       "bad.pkg: malformed digest line: " + kDigitsProblem + "\nbad.pkg: 1 problem in 3 records\n"},
      {placed + records,
       "bad.pkg: malformed digest line: " + kPlaceProblem + "\nbad.pkg: 1 problem in 3 records\n"},
      {kPrefix + kSomeDigits + "\n" + escape,
       escapes + "bad.pkg: digest mismatch: the package says sha256:" + kSomeDigits +
           ", its records hash to sha256:" +
           Sha256Sum(Zeroed(kPrefix + kSomeDigits + "\n" + escape)) +
           "\nbad.pkg: 2 problems in 3 records\n"},
      {WithDigest(escape), escapes +
                               "bad.pkg: digest ok (sha256:" + WithDigest(escape).substr(46, 64) +
                               ")\nbad.pkg: 1 problem in 3 records\n"}};
  for (const auto& [stream, out] : cases) {
    ASSERT_TRUE(test::WritePackage(Path("bad.pkg"), stream));
    Expect({"verify", "bad.pkg"}, kExitFailure, out);
  }
  ASSERT_TRUE(test::WritePackage(Path("good.pkg"), right));
  Expect({"verify", "good.pkg"}, kExitSuccess,
         "good.pkg: digest ok (sha256:" + right.substr(46, 64) + ")\ngood.pkg: ok, 3 records\n");
}

// Every single damaged byte of the record stream of a package built with --digest (its
// header, record lines and file contents, three ways each) makes verify fail.
TEST_F(Digest, VerifyCatchesEveryDamagedByteOfTheStream) {
  WriteFile("src/desc.txt", "[HEADER]\nVersion = 5\n[Bin]\ncopyfile: a.txt\nexec: a.txt\n");
  WriteFile("src/Bin/a.txt", "hello\n");
  ASSERT_EQ(Run({"build", "--digest", "src/desc.txt", "d.pkg"}).exitStatus, kExitSuccess);
  const string stream = test::ReadPackageStream(Path("d.pkg"));
  ASSERT_EQ(VerifyHere("d.pkg"),
            std::make_pair(kExitSuccess, Path("d.pkg: digest ok (sha256:") + stream.substr(46, 64) +
                                             ")\n" + Path("d.pkg: ok, 5 records\n")));
  for (std::size_t at = 0; at < stream.size(); ++at) {
    for (const char mask : {'\x01', '\x20', '\x80'}) {
      string damaged = stream;
      damaged[at] = static_cast<char>(damaged[at] ^ mask);
      ASSERT_TRUE(test::WritePackage(Path("f.pkg"), damaged));
      const auto [status, out] = VerifyHere("f.pkg");
      EXPECT_EQ(status, kExitFailure) << "byte " << at << " mask " << int{mask} << "\n" << out;
    }
  }
}

// Damage to the compressed package garbles the stream from some point on. Verify never
// calls a changed stream's digest ok, and fails unless the garbling reached the digest's
// own lines (its first 46 bytes), which leaves no digest to check.
TEST_F(Digest, VerifyNeverPassesADamagedPackageAsDigestOk) {
  WriteFile("src/desc.txt", "[HEADER]\nVersion = 5\n[Bin]\ncopyfile: a.txt\n");
  WriteFile("src/Bin/a.txt", string(300, 'h'));
  ASSERT_EQ(Run({"build", "--digest", "src/desc.txt", "d.pkg"}).exitStatus, kExitSuccess);
  const string package = ReadFile("d.pkg");
  const string stream = test::ReadPackageStream(Path("d.pkg"));
  int failures = 0;
  for (std::size_t at = 0; at < package.size(); ++at) {
    if (at >= 1 && at <= 3) continue;  // the length's upper bytes: gigabytes of garbage
    for (const char mask : {'\x01', '\xff'}) {
      string damaged = package;
      damaged[at] = static_cast<char>(damaged[at] ^ mask);
      WriteFile("f.pkg", damaged);
      const auto [status, out] = VerifyHere("f.pkg");
      const string decoded = test::ReadPackageStream(Path("f.pkg"));
      const std::string context = "byte " + std::to_string(at) + "\n" + out;
      if (decoded == stream) continue;  // only padding bits changed
      EXPECT_EQ(out.find("digest ok"), string::npos) << context;
      if (status == kExitFailure) {
        ++failures;
      } else {
        EXPECT_NE(out.find(": no digest\n"), string::npos) << context;
        EXPECT_NE(decoded.substr(0, 46), stream.substr(0, 46)) << context;
      }
    }
  }
  EXPECT_GT(failures, static_cast<int>(package.size()));
}

}  // namespace
}  // namespace tk
