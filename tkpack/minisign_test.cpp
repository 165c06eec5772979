// The minisign files at the unit level, against files that minisign 0.11 wrote: a
// throwaway key pair made with "minisign -G -W" (made for these tests, used nowhere
// else) and "hello\n" signed with "minisign -S" and "minisign -S -l". They parse,
// write back byte for byte and verify; damaged files and failed checks each say what
// is wrong.
#include "tkpack/minisign.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <tuple>

#include "testing/temp_dir_fixture.h"

namespace tk::minisign {
namespace {

using std::string;

const string kPublicKey =
    "untrusted comment: minisign public key D92C454D50C27F11\n"
    "RWQRf8JQTUUs2eUtwaJ1AJwDdK4LJBC7420tgA13h6Z5yMnWUygClris\n";
const string kSecretKey =
    "untrusted comment: minisign encrypted secret key\n"
    "RWQAAEIyAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAEX/CUE1FLNlqYVMiC/t/"
    "JIPkLBORu/va5YWZvoC9HQ3vAGyNkIrjROUtwaJ1AJwDdK4LJBC7420tgA13h6Z5yMnWUygClrisAAAAAAAAAAAAAA"
    "AAAAAAAAAAAAAAAAAAAAAAAAAAAAA=\n";
const string kSignature =
    "untrusted comment: signature from minisign secret key\n"
    "RUQRf8JQTUUs2W7BuIGaDoGAN27RcC2Ajx91eSOPMM5vj+vqozIyss695f3DK/Bs7OVH3H+CWGUnvaWrOrx+"
    "p32lY3mZWQippAY=\ntrusted comment: timestamp:1795463266\tfile:f.txt\thashed\n"
    "q4G34nXLztA/KHTpmMoVcjjVC618I8hh/D2KOfFfIZcYcISASMvb77CupgwqpFKGjH7o04ryHh2khxsaqQtzAw==\n";
const string kLegacySignature =
    "untrusted comment: signature from minisign secret key\n"
    "RWQRf8JQTUUs2dbX7xLcd4QQKnDhNnG4qWTvypSKxcPrwjG0XRnqcsqtF897UwsamSRbvi0YWyGuKXzUIwrluGonNmdn"
    "xKd49As=\ntrusted comment: timestamp:1795463266\tfile:g.txt\n"
    "E+mJEDKp1tFx1sFFQOwLMpJpNYgIYFjOSsuaYUwn/Y5ewPBUwVLWsyPD19rTNydO5a6q6RUwtpttWjImaQCiBw==\n";
// The cheapest scrypt that libsodium accepts, so a test can afford it.
constexpr uint64_t kCheapOps = 32768;
constexpr uint64_t kCheapMem = 16 << 20;

string Replace(string text, const string& from, const string& to) {
  return text.replace(text.find(from), from.size(), to);
}

class Minisign : public test::TempDirTest {
 protected:
  static Signature ParsedSignature(const string& text) {
    Signature signature;
    string error;
    EXPECT_TRUE(ParseSignature(text, signature, error)) << error;
    return signature;
  }
  static SecretKey OpenedKey(const string& text, const string& password, string& error) {
    SecretKeyFile file;
    SecretKey key;
    if (ParseSecretKeyFile(text, file, error)) OpenSecretKey(file, password, key, error);
    return key;
  }
  static string Sealed(const SecretKey& key, bool encrypt, const string& password) {
    SecretKeyFile file;
    string error;
    EXPECT_TRUE(SealSecretKey(key, encrypt, password, kCheapOps, kCheapMem, file, error));
    return string(FormatSecretKeyFile(file).view());
  }
  // "ok" or VerifyFile's error, for a file holding `content`.
  string Verify(const Signature& signature, const string& content,
                uint64_t legacyLimit = kLegacyFileLimit) const {
    PublicKey key;
    string error;
    EXPECT_TRUE(ParsePublicKey(kPublicKey, key, error));
    WriteFile("f", content);
    return VerifyFile(key, signature, Path("f"), error, legacyLimit) ? "ok" : error;
  }
};

TEST_F(Minisign, ReadsAndWritesMinisignsOwnFiles) {
  PublicKey publicKey;
  SecretKeyFile secretFile;
  string error;
  ASSERT_TRUE(ParsePublicKey(kPublicKey, publicKey, error));
  EXPECT_EQ(std::tie(publicKey.comment, error),
            std::tie("minisign public key D92C454D50C27F11", ""));
  EXPECT_EQ(KeyIdText(publicKey.keyId), "D92C454D50C27F11");
  EXPECT_EQ(KeyIdText({0x20, 0xE8, 0xA8, 0x87, 0x96, 0xDA, 0xBE, 0}), "BEDA9687A8E820");
  EXPECT_EQ(FormatPublicKey(publicKey), kPublicKey);
  ASSERT_TRUE(ParseSecretKeyFile(kSecretKey, secretFile, error));
  EXPECT_EQ(std::tie(secretFile.encrypted, secretFile.opsLimit), std::make_tuple(false, 0u));
  EXPECT_EQ(FormatSecretKeyFile(secretFile).view(), kSecretKey);
  const SecretKey key = OpenedKey(kSecretKey, "", error);  // with minisign's zero checksum
  ASSERT_EQ(error, "");
  EXPECT_EQ(key.keyId, publicKey.keyId);
  EXPECT_EQ(string(key.key.view().substr(32)), string(publicKey.key.begin(), publicKey.key.end()));
  for (const string& text : {kSignature, kLegacySignature}) {
    const Signature signature = ParsedSignature(text);
    EXPECT_EQ(signature.prehashed, text == kSignature);
    EXPECT_EQ(signature.trustedComment, text == kSignature
                                            ? "timestamp:1795463266\tfile:f.txt\thashed"
                                            : "timestamp:1795463266\tfile:g.txt");
    EXPECT_EQ(FormatSignature(signature), text);
    EXPECT_EQ(Verify(signature, "hello\n"), "ok");
    // CR LF line ends and blank lines at the end read the same.
    string crlf;
    for (const char c : text) crlf += c == '\n' ? string("\r\n") : string(1, c);
    EXPECT_EQ(FormatSignature(ParsedSignature(crlf + "\n\r\n")), text);
  }
}

TEST_F(Minisign, RefusesDamagedFilesSayingWhatIsWrong) {
  const string line2 = "line 2 is not the base64 of ";
  const string noUntrusted = "line 1 does not begin with \"untrusted comment: \"";
  // 'p' public key, 's' signature, 'k' secret key.
  const std::tuple<char, string, string> cases[] = {
      {'p', "", "line 1 is missing"},
      {'p', "untrusted comment: x", "line 2 is missing"},
      {'p', Replace(kPublicKey, "untrusted", "Untrusted"), noUntrusted},
      {'p', Replace(kPublicKey, "lris\n", "lri\n"), line2 + "42 bytes"},
      {'p', Replace(kPublicKey, "RWQR", "RmQR"), "unknown key algorithm (\"Ed\" expected)"},
      {'p', kPublicKey + "x", "text after line 2"},
      {'s', Replace(kSignature, "\ntrusted", "\nTrusted"),
       "line 3 does not begin with \"trusted comment: \""},
      {'s', Replace(kSignature, "RUQR", "RVQR"),
       "unknown signature algorithm (\"ED\" or \"Ed\" expected)"},
      {'s', Replace(kSignature, "hashed", string("ha\0ed", 5)), "line 3 holds a NUL or CR byte"},
      {'s', Replace(kSignature, "AY=", "A\rY="), "line 2 holds a NUL or CR byte"},
      {'s', kSignature.substr(0, kSignature.rfind("q4G3")), "line 4 is missing"},
      {'s', Replace(kSignature, "zAw==", "zA=="), "line 4 is not the base64 of 64 bytes"},
      {'k', Replace(kSecretKey, "RWQAAEIy", "RWRTeEIy"),
       "unknown key derivation (\"Sc\" or none expected)"},
      {'k', Replace(kSecretKey, "RWQAAEIy", "RWQAAEIz"),
       "unknown checksum algorithm (\"B2\" expected)"}};
  for (const auto& [kind, text, expected] : cases) {
    PublicKey publicKey;
    SecretKeyFile secretKey;
    Signature signature;
    string error;
    EXPECT_FALSE(kind == 'p'   ? ParsePublicKey(text, publicKey, error)
                 : kind == 's' ? ParseSignature(text, signature, error)
                               : ParseSecretKeyFile(text, secretKey, error));
    EXPECT_EQ(error, expected) << kind << " " << text;
  }
}

// A key without password opens with the zero checksum of minisign 0.11 or its real
// checksum; a protected one only with its password; scrypt limits beyond the bounds
// are refused before any work.
TEST_F(Minisign, SecretKeysOpenOnlyWithTheirPasswordAndChecksum) {
  string error;
  const SecretKey key = OpenedKey(kSecretKey, "", error);
  const string plain = Sealed(key, false, "");
  const string locked = Sealed(key, true, "pw");
  EXPECT_NE(plain, kSecretKey);                                   // the checksum is written
  const string damaged = Replace(plain, "AAAAAEX/", "AAAAAEX+");  // the key id's first byte
  const std::tuple<string, string, string> cases[] = {
      {plain, "", ""},
      {plain, "ignored", ""},
      {locked, "pw", ""},
      {locked, "px", "wrong password (the key's checksum does not match)"},
      {locked, "", "wrong password (the key's checksum does not match)"},
      {damaged, "", "the key's checksum does not match (the file is damaged)"}};
  for (const auto& [text, password, expected] : cases) {
    error.clear();
    const SecretKey opened = OpenedKey(text, password, error);
    EXPECT_EQ(error, expected) << password;
    if (expected.empty()) {
      EXPECT_EQ(opened.key.view(), key.key.view());
    }
  }
  SecretKeyFile file;
  ASSERT_TRUE(ParseSecretKeyFile(locked, file, error));
  EXPECT_EQ(std::tie(file.encrypted, file.opsLimit, file.memLimit),
            std::make_tuple(true, kCheapOps, kCheapMem));
  EXPECT_EQ(FormatSecretKeyFile(file).view(), locked);
  for (const auto& [ops, mem] :
       {std::pair{kMaxOpsLimit + 1, kMaxMemLimit}, std::pair{kMaxOpsLimit, kMaxMemLimit + 1}}) {
    std::tie(file.opsLimit, file.memLimit) = std::tie(ops, mem);
    EXPECT_FALSE(ParseSecretKeyFile(FormatSecretKeyFile(file).view(), file, error));
    EXPECT_EQ(error, "scrypt limits too high (opslimit " + std::to_string(ops) + ", memlimit " +
                         std::to_string(mem) + ")");
  }
}

// The checks run in order and stop at the first failure; a legacy signature is checked
// up to its size limit.
TEST_F(Minisign, VerifyChecksInOrderAndSaysWhatFailed) {
  const Signature good = ParsedSignature(kSignature);
  Signature otherKey = good, otherComment = good, legacy = ParsedSignature(kLegacySignature);
  otherKey.keyId[0] ^= 1;
  otherComment.trustedComment += " ";
  Signature notHashed = good;
  notHashed.prehashed = false;
  const string other =
      "signed with key D92C454D50C27F10, not with key D92C454D50C27F11 of the "
      "public key";
  const string noMatch = "the signature does not match " + Path("f");
  EXPECT_EQ(Verify(good, "hello\n"), "ok");
  EXPECT_EQ(Verify(good, "hello!\n"), noMatch);
  EXPECT_EQ(Verify(notHashed, "hello\n"), noMatch);
  EXPECT_EQ(Verify(otherKey, "hello!\n"), other);
  EXPECT_EQ(Verify(otherComment, "hello\n"), "the trusted comment does not match its signature");
  EXPECT_EQ(Verify(otherComment, "hello!\n"), noMatch);
  EXPECT_EQ(Verify(legacy, "hello\n", 6), "ok");
  EXPECT_EQ(Verify(legacy, "hello\n", 5),
            Path("f") + " is larger than 5 bytes, the limit of a legacy signature");
  PublicKey key;
  string error;
  ASSERT_TRUE(ParsePublicKey(kPublicKey, key, error));
  EXPECT_FALSE(VerifyFile(key, good, Path("missing"), error));
  EXPECT_EQ(error, "cannot read " + Path("missing") + ": No such file or directory");
}

// What SignFile makes verifies, and only for the signed bytes; comments are one line.
TEST_F(Minisign, SignFileMakesWhatVerifyAccepts) {
  string error;
  const SecretKey key = OpenedKey(kSecretKey, "", error);
  WriteFile("f", string(200000, 'z'));  // more than one read block
  Signature signature;
  ASSERT_TRUE(SignFile(key, Path("f"), "t\tc", "u", signature, error)) << error;
  EXPECT_EQ(std::tie(signature.comment, signature.trustedComment, signature.prehashed),
            std::make_tuple("u", "t\tc", true));
  EXPECT_EQ(Verify(ParsedSignature(FormatSignature(signature)), string(200000, 'z')), "ok");
  EXPECT_EQ(Verify(signature, string(199999, 'z') + "y"),
            "the signature does not match " + Path("f"));
  for (const string& comment : {string("a\nb"), string("a\r"), string("a\0b", 3)}) {
    EXPECT_FALSE(SignFile(key, Path("f"), comment, "u", signature, error));
    EXPECT_FALSE(SignFile(key, Path("f"), "t", comment, signature, error));
    EXPECT_EQ(error, "a comment must be one line without NUL or CR");
  }
}

TEST_F(Minisign, ReadMinisignFileRefusesLargeFiles) {
  SecretBytes text;
  WriteFile("max", string(kMaxFileBytes, 'a'));
  WriteFile("over", string(kMaxFileBytes + 1, 'a'));
  EXPECT_EQ(ReadMinisignFile(Path("max"), text), 0);
  EXPECT_EQ(text.size(), kMaxFileBytes);
  EXPECT_EQ(ReadMinisignFile(Path("over"), text), EFBIG);
  EXPECT_EQ(ReadMinisignFile(Path("none"), text), ENOENT);
}

}  // namespace
}  // namespace tk::minisign
