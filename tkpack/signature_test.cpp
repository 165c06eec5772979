// tkpack sign and tkpack verify --pubkey against the real minisign program, both ways,
// with keys that minisign made; the refusals, each with its own message; and the
// password, read from a file or typed at a terminal (a pseudo-terminal here).
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "testing/child_process.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"
#include "tkpack/minisign.h"
#include "tkpack/password.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

using std::string;
using Words = std::vector<string>;

constexpr const char* kTkpack = TK_BIN_DIR "/tkpack";

class Signatures : public test::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    minisign_ = Shell("command -v minisign").out;
    if (!minisign_.empty()) minisign_.pop_back();
    ASSERT_FALSE(minisign_.empty()) << "minisign is missing: run scripts/deps (CI installs it)";
    ASSERT_TRUE(test::WritePackage(Path("x.pkg"), test::kStreamStart + test::DirRecord("Bin")));
    ASSERT_TRUE(test::WritePackage(Path("y.pkg"), test::kStreamStart + test::DirRecord("Doc")));
  }

  test::ChildResult Shell(const string& command) const {
    return test::RunChild({"/bin/sh", {"sh", "-c", command}, "", path(), {}});
  }
  test::ChildResult Run(Words words, const string& program = kTkpack,
                        const string& input = "") const {
    words.insert(words.begin(), program);
    return test::RunChild({program, words, input, path(), {{"TMPDIR", path()}}});
  }
  test::ChildResult Minisign(const Words& words, const string& input = "") const {
    return Run(words, minisign_, input);
  }
  void Expect(const Words& words, int status, const string& out, const string& err) const {
    const test::ChildResult result = Run(words);
    EXPECT_EQ(std::tie(result.exitStatus, result.out, result.err), std::tie(status, out, err))
        << testing::PrintToString(words);
  }
  // A key pair NAME.pub and NAME.key made by minisign, without password.
  string MakeKeys(const string& name) const {
    EXPECT_EQ(Minisign({"-G", "-W", "-p", name + ".pub", "-s", name + ".key"}).exitStatus, 0);
    const string publicKey = ReadFile(name + ".pub");  // the key id ends its comment
    return publicKey.substr(39, publicKey.find('\n') - 39);
  }
  // NAME.key protected by "pw" with cheap scrypt limits, made of the unprotected key.
  void ProtectKey(const string& name, const string& protectedName) const {
    minisign::SecretKeyFile file;
    minisign::SecretKey key;
    string error;
    ASSERT_TRUE(minisign::ParseSecretKeyFile(ReadFile(name + ".key"), file, error) &&
                minisign::OpenSecretKey(file, "", key, error) &&
                minisign::SealSecretKey(key, true, "pw", 32768, 16 << 20, file, error));
    WriteFile(protectedName, minisign::FormatSecretKeyFile(file).view());
  }
  bool MinisignAccepts(const string& package, const string& publicKey) const {
    return Minisign({"-V", "-q", "-p", publicKey, "-m", package}).exitStatus == 0;
  }

  string minisign_;
};

// Keys made by minisign sign with tkpack, and minisign accepts the result; files signed
// by minisign, prehashed and legacy, pass tkpack verify --pubkey.
TEST_F(Signatures, InteroperateWithMinisignBothWays) {
  const string id = MakeKeys("k");
  WriteFile("pw", "pw\n");
  const long started = std::time(nullptr);
  Expect({"sign", "x.pkg", "--key", "k.key"}, kExitSuccess, "signed x.pkg (x.pkg.minisig)\n", "");
  EXPECT_TRUE(MinisignAccepts("x.pkg", "k.pub"));
  const string signature = ReadFile("x.pkg.minisig");
  // Prehashed: base64 of "ED" begins with "RU" (legacy "Ed": "RW").
  EXPECT_TRUE(signature.starts_with("untrusted comment: signature from tkpack secret key\nRU"));
  const size_t at = signature.find("\ntrusted comment: timestamp:") + 18;
  const string comment = signature.substr(at, signature.find('\n', at) - at);
  const long stamp = std::stol(comment.substr(10));
  EXPECT_TRUE(stamp >= started && stamp <= std::time(nullptr)) << comment;
  EXPECT_EQ(comment, "timestamp:" + std::to_string(stamp) + "\tfile:x.pkg\thashed");
  Expect({"verify", "x.pkg", "--pubkey", "k.pub"}, kExitSuccess,
         "x.pkg: signature ok, key " + id + ", trusted comment: " + comment +
             "\nx.pkg: no digest\nx.pkg: ok, 1 records\n",
         "");
  // A protected key, once made by minisign (scrypt at its own cost) and once by tkpack:
  // minisign reads what tkpack protected, and the other way round.
  ASSERT_EQ(Minisign({"-G", "-p", "p.pub", "-s", "p.key"}, "pw\npw\n").exitStatus, 0);
  Expect({"sign", "y.pkg", "--key", "p.key", "--password-file", "pw"}, kExitSuccess,
         "signed y.pkg (y.pkg.minisig)\n", "");
  EXPECT_TRUE(MinisignAccepts("y.pkg", "p.pub"));
  ProtectKey("k", "c.key");
  ASSERT_EQ(Minisign({"-S", "-s", "c.key", "-m", "y.pkg"}, "pw\n").exitStatus, 0);
  EXPECT_TRUE(Run({"verify", "y.pkg", "--pubkey", "k.pub"}).out.starts_with("y.pkg: signature ok"));
  ASSERT_EQ(Minisign({"-S", "-l", "-s", "k.key", "-m", "x.pkg", "-t", "legacy"}).exitStatus, 0);
  Expect({"verify", "x.pkg", "--pubkey", "k.pub"}, kExitSuccess,
         "x.pkg: signature ok, key " + id +
             ", trusted comment: legacy\nx.pkg: no digest\nx.pkg: ok, 1 records\n",
         "");
  EXPECT_EQ(Listing(), (Words{"c.key", "k.key", "k.pub", "p.key", "p.pub", "pw", "x.pkg",
                              "x.pkg.minisig", "y.pkg", "y.pkg.minisig"}));
}

// A bad, missing or unreadable signature or key stops verify, and install (also with
// --trust), before anything else.
TEST_F(Signatures, VerifyRefusesWhatDoesNotMatch) {
  const string id = MakeKeys("k");
  const string otherId = MakeKeys("o");
  for (const string package : {"x.pkg", "y.pkg"}) {
    ASSERT_EQ(Run({"sign", package, "--key", "k.key"}).exitStatus, kExitSuccess);
  }
  const string good = ReadFile("x.pkg.minisig");
  const string noMatch = "x.pkg.minisig: the signature does not match x.pkg";
  const string badLine2 = "bad signature file x.pkg.minisig: line 2 is not the base64 of 74 bytes";
  const std::tuple<string, string, string, string> cases[] = {
      // package bytes appended ("" none), signature file ("" none), public key, error
      {"", ReadFile("y.pkg.minisig"), "k.pub", noMatch},
      {"", good, "o.pub",
       "x.pkg.minisig: signed with key " + id + ", not with key " + otherId + " of the public key"},
      {"x", good, "k.pub", noMatch},
      {"", string(good).insert(good.find("\thashed") + 7, "!"), "k.pub",
       "x.pkg.minisig: the trusted comment does not match its signature"},
      {"", good.substr(0, 100), "k.pub", "bad signature file x.pkg.minisig: line 3 is missing"},
      {"", good.substr(0, 60) + "*" + good.substr(61), "k.pub", badLine2},
      {"", "", "k.pub", "missing signature file x.pkg.minisig"},
      {"", good, "none.pub", "cannot read public key file none.pub: No such file or directory"},
      {"", good, "x.pkg.minisig", "bad public key file x.pkg.minisig: text after line 2"}};
  const string package = ReadFile("x.pkg");
  for (const auto& [appended, signature, publicKey, error] : cases) {
    WriteFile("x.pkg", package + appended);
    std::filesystem::remove(Path("x.pkg.minisig"));
    if (!signature.empty()) WriteFile("x.pkg.minisig", signature);
    Expect({"verify", "x.pkg", "--pubkey", publicKey}, kExitFailure, "", "tkpack: " + error + "\n");
    for (const char* trust : {"--quiet", "--trust"}) {
      Expect({"install", "x.pkg", "dest", trust, "--pubkey", publicKey}, kExitFailure, "",
             "tkpack: " + error + "\n");
      EXPECT_FALSE(Exists("dest"));
    }
  }
  std::filesystem::remove(Path("x.pkg.minisig"));
  std::filesystem::create_directory(Path("x.pkg.minisig"));
  Expect({"verify", "x.pkg", "--pubkey", "k.pub"}, kExitFailure, "",
         "tkpack: cannot read signature file x.pkg.minisig: Is a directory\n");
  Expect({"verify", "x.pkg"}, kExitSuccess, "x.pkg: no digest\nx.pkg: ok, 1 records\n",
         "");  // no --pubkey
  std::filesystem::remove(Path("x.pkg.minisig"));
  ASSERT_TRUE(WriteFile("x.pkg.minisig", good) && WriteFile("x.pkg", package));
  const test::ChildResult installed = Run({"install", "x.pkg", "dest", "--pubkey", "k.pub"});
  EXPECT_EQ(installed.exitStatus, kExitSuccess) << installed.err;
  EXPECT_TRUE(installed.out.starts_with("x.pkg: signature ok, key " + id)) << installed.out;
}

// sign fails with a message and leaves any older signature as it was, and nothing else.
TEST_F(Signatures, SignFailuresLeaveNoSignatureBehind) {
  MakeKeys("k");
  ProtectKey("k", "c.key");
  WriteFile("x.pkg.minisig", "old");
  WriteFile("wrong", "px\npw\n");
  std::filesystem::create_directory(Path("y.pkg.minisig.tk_temp"));
  const std::pair<Words, string> cases[] = {
      {{"sign", "x.pkg", "--key", "c.key", "--password-file", "wrong"},
       "secret key file c.key: wrong password (the key's checksum does not match)"},
      {{"sign", "x.pkg", "--key", "c.key", "--password-file", "none"},
       "cannot read password file none: No such file or directory"},
      {{"sign", "x.pkg", "--key", "k.pub"},
       "bad secret key file k.pub: line 2 is not the base64 of 158 bytes"},
      {{"sign", "x.pkg", "--key", "none"},
       "cannot read secret key file none: No such file or directory"},
      {{"sign", "z.pkg", "--key", "k.key"}, "cannot read z.pkg: No such file or directory"},
      {{"sign", "y.pkg", "--key", "k.key"},
       "cannot write signature file y.pkg.minisig: Is a directory"}};
  const Words before = Listing();
  for (const auto& [words, error] : cases)
    Expect(words, kExitFailure, "", "tkpack: " + error + "\n");
  const test::ChildResult noTerminal =
      Run({"-w", kTkpack, "sign", "x.pkg", "--key", "c.key"}, "/usr/bin/setsid");
  EXPECT_EQ(std::tie(noTerminal.exitStatus, noTerminal.err),
            std::make_tuple(kExitFailure,
                            "tkpack: no terminal to read the password from (give "
                            "--password-file FILE)\n"));
  Expect({"sign", "x.pkg"}, kExitUsage, "",
         "tkpack: sign: option '--key' is required (see 'tkpack sign --help')\n");
  EXPECT_EQ(Listing(), before);
  EXPECT_EQ(ReadFile("x.pkg.minisig"), "old");
}

// The first line of the password file, without its line end, up to 1024 bytes.
TEST_F(Signatures, PasswordFileGivesItsFirstLine) {
  const string longest(kMaxPasswordBytes, 'x');
  const string tooLong = "the password in " + Path("pw") + " is longer than 1024 bytes";
  const std::pair<string, string> cases[] = {{"pw\r\nnext\n", "pw"},
                                             {"pw", "pw"},
                                             {"\n", ""},
                                             {"p\rw\n", "p\rw"},
                                             {longest + "\r\n", longest},
                                             {longest + "x\n", tooLong},
                                             {longest + "xx", tooLong}};
  for (const auto& [text, expected] : cases) {
    WriteFile("pw", text);
    SecretBytes read;
    string error;
    EXPECT_EQ(ReadPasswordFile(Path("pw"), read, error) ? string(read.view()) : error, expected);
  }
}

// On a terminal the password is asked for with echo off, and the echo comes back after
// the answer and after an interrupt.
TEST_F(Signatures, TerminalEchoIsOffAndComesBack) {
  MakeKeys("k");
  ProtectKey("k", "c.key");
  for (const string typed : {"pw\n", "\x03"}) {
    std::filesystem::remove(Path("x.pkg.minisig"));
    const std::vector<string> words = {"tkpack", "sign", "x.pkg", "--key", "c.key"};
    std::vector<char*> argv;
    for (const string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
      if (chdir(path().c_str()) == 0) execv(kTkpack, argv.data());
      _exit(127);
    }
    string shown;
    // Appends what the terminal shows within 20 s; false at its end or on time-out.
    const auto readSome = [&] {
      pollfd ready = {terminal, POLLIN, 0};
      char buffer[256];
      const ssize_t got = poll(&ready, 1, 20000) == 1 ? read(terminal, buffer, sizeof buffer) : -1;
      if (got > 0) shown.append(buffer, static_cast<size_t>(got));
      return got > 0;
    };
    while (!shown.ends_with("Password for c.key: ") && readSome()) {
    }
    termios asking, after;
    ASSERT_EQ(tcgetattr(terminal, &asking), 0);
    ASSERT_EQ(write(terminal, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
    while (readSome()) {
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(tcgetattr(terminal, &after), 0);
    close(terminal);
    EXPECT_EQ(asking.c_lflag & ECHO, 0u);
    EXPECT_NE(after.c_lflag & ECHO, 0u);
    if (typed == "pw\n") {
      EXPECT_EQ(shown, "Password for c.key: \r\nsigned x.pkg (x.pkg.minisig)\r\n");
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    } else {
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << shown;
      EXPECT_FALSE(Exists("x.pkg.minisig"));
    }
  }
}

}  // namespace
}  // namespace tk
