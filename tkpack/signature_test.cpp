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
  // The package x.pkg; k.pub and k.key, a key pair that minisign made without
  // password (its key id in `id_`); c.key, the same key protected by "pw" with cheap
  // scrypt limits.
  void SetUp() override {
    TempDirTest::SetUp();
    ASSERT_TRUE(test::WritePackage(Path("x.pkg"), test::kStreamStart + test::DirRecord("Bin")));
    ASSERT_EQ(Minisign({"-G", "-W", "-p", "k.pub", "-s", "k.key"}).exitStatus, 0)
        << "minisign is missing: run scripts/deps (CI installs it)";
    const string publicKey = ReadFile("k.pub");  // the key id ends its comment
    id_ = publicKey.substr(39, publicKey.find('\n') - 39);
    minisign::SecretKeyFile file;
    minisign::SecretKey key;
    string error;
    ASSERT_TRUE(minisign::ParseSecretKeyFile(ReadFile("k.key"), file, error) &&
                minisign::OpenSecretKey(file, "", key, error) &&
                minisign::SealSecretKey(key, true, "pw", 32768, 16 << 20, file, error));
    WriteFile("c.key", minisign::FormatSecretKeyFile(file).view());
  }

  test::ChildResult Run(Words words, const string& input = "",
                        const string& program = kTkpack) const {
    words.insert(words.begin(), program);
    return test::RunChild({program, words, input, path(), {{"TMPDIR", path()}}});
  }
  // The minisign program on the PATH.
  test::ChildResult Minisign(Words words, const string& input = "") const {
    words.insert(words.begin(), "minisign");
    return Run(words, input, "/usr/bin/env");
  }
  void Expect(const Words& words, int status, const string& out, const string& err = "") const {
    const test::ChildResult result = Run(words);
    EXPECT_EQ(std::tie(result.exitStatus, result.out, result.err), std::tie(status, out, err))
        << testing::PrintToString(words);
  }

  string id_;
};

// Keys made by minisign sign with tkpack, and minisign accepts the result; files signed
// by minisign, prehashed and legacy, pass tkpack verify --pubkey. Both read the keys
// that the other protected with a password.
TEST_F(Signatures, InteroperateWithMinisignBothWays) {
  WriteFile("pw", "pw\n");
  const long started = std::time(nullptr);
  Expect({"sign", "x.pkg", "--key", "k.key"}, kExitSuccess, "signed x.pkg (x.pkg.minisig)\n");
  EXPECT_EQ(Minisign({"-V", "-q", "-p", "k.pub", "-m", "x.pkg"}).exitStatus, 0);
  const string signature = ReadFile("x.pkg.minisig");
  // Prehashed: base64 of "ED" begins with "RU" (legacy "Ed": "RW").
  EXPECT_TRUE(signature.starts_with("untrusted comment: signature from tkpack secret key\nRU"));
  const long stamp = std::stol(signature.substr(signature.find("\ntrusted comment: ") + 28));
  EXPECT_TRUE(stamp >= started && stamp <= std::time(nullptr)) << signature;
  const string comment = "timestamp:" + std::to_string(stamp) + "\tfile:x.pkg\thashed";
  Expect({"verify", "x.pkg", "--pubkey", "k.pub"}, kExitSuccess,
         "x.pkg: signature ok, key " + id_ + ", trusted comment: " + comment +
             "\nx.pkg: no digest\nx.pkg: ok, 1 records\n");
  ASSERT_EQ(Minisign({"-G", "-p", "p.pub", "-s", "p.key"}, "pw\npw\n").exitStatus, 0);
  ASSERT_EQ(Run({"sign", "x.pkg", "--key", "p.key", "--password-file", "pw"}).exitStatus, 0);
  EXPECT_EQ(Minisign({"-V", "-q", "-p", "p.pub", "-m", "x.pkg"}).exitStatus, 0);
  ASSERT_EQ(Minisign({"-S", "-s", "c.key", "-m", "x.pkg"}, "pw\n").exitStatus, 0);
  EXPECT_TRUE(Run({"verify", "x.pkg", "--pubkey", "k.pub"}).out.starts_with("x.pkg: signature ok"));
  ASSERT_EQ(Minisign({"-S", "-l", "-s", "k.key", "-m", "x.pkg", "-t", "legacy"}).exitStatus, 0);
  Expect({"verify", "x.pkg", "--pubkey", "k.pub"}, kExitSuccess,
         "x.pkg: signature ok, key " + id_ +
             ", trusted comment: legacy\nx.pkg: no digest\nx.pkg: ok, 1 records\n");
  EXPECT_EQ(CountFilesEndingWith(".tk_temp"), 0);
}

// A bad, missing or unreadable signature or key stops verify, and install (also with
// --trust), before anything else; a good one lets install go on.
TEST_F(Signatures, VerifyRefusesWhatDoesNotMatch) {
  ASSERT_EQ(Run({"sign", "x.pkg", "--key", "k.key"}).exitStatus, kExitSuccess);
  const string good = ReadFile("x.pkg.minisig");
  const std::tuple<string, string, string> cases[] = {
      // signature file ("" none, "/" a directory), public key, error
      {string(good).insert(good.find("\thashed") + 7, "!"), "k.pub",
       "x.pkg.minisig: the trusted comment does not match its signature"},
      {good.substr(0, 60) + "*" + good.substr(61), "k.pub",
       "bad signature file x.pkg.minisig: line 2 is not the base64 of 74 bytes"},
      {"", "k.pub", "missing signature file x.pkg.minisig"},
      {"/", "k.pub", "cannot read signature file x.pkg.minisig: Is a directory"},
      {good, "none.pub", "cannot read public key file none.pub: No such file or directory"},
      {good, "x.pkg.minisig", "bad public key file x.pkg.minisig: text after line 2"}};
  for (const auto& [signature, publicKey, error] : cases) {
    std::filesystem::remove_all(Path("x.pkg.minisig"));
    if (signature == "/") std::filesystem::create_directory(Path("x.pkg.minisig"));
    if (signature != "/" && !signature.empty()) WriteFile("x.pkg.minisig", signature);
    Expect({"verify", "x.pkg", "--pubkey", publicKey}, kExitFailure, "", "tkpack: " + error + "\n");
    for (const char* trust : {"--quiet", "--trust"}) {
      Expect({"install", "x.pkg", "dest", trust, "--pubkey", publicKey}, kExitFailure, "",
             "tkpack: " + error + "\n");
      EXPECT_FALSE(Exists("dest"));
    }
  }
  ASSERT_EQ(ReadFile("x.pkg.minisig"), good);  // from the last case
  const test::ChildResult installed = Run({"install", "x.pkg", "dest", "--pubkey", "k.pub"});
  EXPECT_EQ(installed.exitStatus, kExitSuccess) << installed.err;
  EXPECT_TRUE(installed.out.starts_with("x.pkg: signature ok, key " + id_)) << installed.out;
}

// sign fails with a message and leaves any older signature as it was, and nothing else.
TEST_F(Signatures, SignFailuresLeaveNoSignatureBehind) {
  WriteFile("x.pkg.minisig", "old");
  WriteFile("wrong", "px\npw\n");
  std::filesystem::create_directory(Path("x.pkg.minisig.tk_temp"));
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
      {{"sign", "x.pkg", "--key", "k.key"},
       "cannot write signature file x.pkg.minisig: Is a directory"}};
  const Words before = Listing();
  for (const auto& [words, error] : cases)
    Expect(words, kExitFailure, "", "tkpack: " + error + "\n");
  const test::ChildResult noTerminal =
      Run({"-w", kTkpack, "sign", "x.pkg", "--key", "c.key"}, "", "/usr/bin/setsid");
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
                                             {"p\rw\n", "p\rw"},
                                             {longest + "\r\n", longest},
                                             {longest + "x\n", tooLong}};
  for (const auto& [text, expected] : cases) {
    WriteFile("pw", text);
    SecretBytes read;
    string error;
    EXPECT_EQ(ReadPasswordFile(Path("pw"), read, error) ? string(read.view()) : error, expected);
  }
}

// On a terminal the password is asked for with echo off, and the echo comes back after
// an interrupt and after the answer.
TEST_F(Signatures, TerminalEchoIsOffAndComesBack) {
  for (const string typed : {"\x03", "pw\n"}) {
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
      if (chdir(path().c_str()) == 0)
        execl(kTkpack, "tkpack", "sign", "x.pkg", "--key", "c.key", nullptr);
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
    // A status of 0 is a normal end, SIGINT the default action of that signal.
    const bool answered = typed == "pw\n";
    EXPECT_EQ(std::make_tuple(asking.c_lflag & ECHO, after.c_lflag & ECHO, status, shown,
                              Exists("x.pkg.minisig")),
              std::make_tuple(0u, tcflag_t{ECHO}, answered ? 0 : SIGINT,
                              answered ? "Password for c.key: \r\nsigned x.pkg (x.pkg.minisig)\r\n"
                                       : "Password for c.key: ",
                              answered));
  }
}

}  // namespace
}  // namespace tk
