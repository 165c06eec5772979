// The minisign files at the unit level, against files that minisign 0.11 wrote: a
// throwaway key pair made with "minisign -G -W" (made for these tests, used nowhere
// else) and "hello\n" signed with "minisign -S". They parse, write back byte for byte
// and verify; damaged files and failed checks each say what is wrong. Protected keys,
// legacy signatures and the minisign program itself: signature_test.cpp.
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
  // "ok" or VerifyFile's error, for the file `name`.
  string Verify(const Signature& signature, const string& name,
                uint64_t legacyLimit = kLegacyFileLimit) const {
    PublicKey key;
    string error;
    EXPECT_TRUE(ParsePublicKey(kPublicKey, key, error));
    return VerifyFile(key, signature, Path(name), error, legacyLimit) ? "ok" : error;
  }
};

// The files read and write back byte for byte, a signature also with CR LF line ends and
// blank lines at its end. (The secret key, with the zero checksum of minisign 0.11,
// signs in SignsAndVerifiesInOrder.)
TEST_F(Minisign, ReadsAndWritesMinisignsOwnFiles) {
  PublicKey publicKey;
  SecretKeyFile secretFile;
  string error;
  ASSERT_TRUE(ParsePublicKey(kPublicKey, publicKey, error) &&
              ParseSecretKeyFile(kSecretKey, secretFile, error));
  EXPECT_EQ(KeyIdText(publicKey.keyId), "D92C454D50C27F11");
  EXPECT_EQ(KeyIdText({0x20, 0xE8, 0xA8, 0x87, 0x96, 0xDA, 0xBE, 0}), "BEDA9687A8E820");
  EXPECT_EQ(FormatPublicKey(publicKey), kPublicKey);
  EXPECT_EQ(FormatSecretKeyFile(secretFile).view(), kSecretKey);
  string crlf;
  for (const char c : kSignature) crlf += c == '\n' ? string("\r\n") : string(1, c);
  EXPECT_EQ(FormatSignature(ParsedSignature(kSignature)), kSignature);
  EXPECT_EQ(FormatSignature(ParsedSignature(crlf + "\n\r\n")), kSignature);
}

// Each kind of damage has its message (tkpack adds which file it was in).
TEST_F(Minisign, RefusesDamagedFilesSayingWhatIsWrong) {
  // 'p' public key, 's' signature, 'k' secret key.
  const std::tuple<char, string, string> cases[] = {
      {'p', Replace(kPublicKey, "lris\n", "lri\n"), "line 2 is not the base64 of 42 bytes"},
      {'p', Replace(kPublicKey, "RWQR", "RmQR"), "unknown key algorithm (\"Ed\" expected)"},
      {'s', kSignature.substr(0, kSignature.rfind("q4G3")), "line 4 is missing"},
      {'s', Replace(kSignature, "\ntrusted", "\nTrusted"),
       "line 3 does not begin with \"trusted comment: \""},
      {'s', Replace(kSignature, "RUQR", "RVQR"),
       "unknown signature algorithm (\"ED\" or \"Ed\" expected)"},
      {'s', Replace(kSignature, "hashed", string("ha\0ed", 5)), "line 3 holds a NUL or CR byte"},
      {'s', Replace(kSignature, "AY=", "A\rY="), "line 2 holds a NUL or CR byte"},
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

// A key without password opens with its checksum, whatever password is given, and not
// once the file is damaged; scrypt limits beyond the bounds are refused before any work.
TEST_F(Minisign, SecretKeysOpenOnlyWithTheirChecksum) {
  string error;
  const SecretKey key = OpenedKey(kSecretKey, "", error);
  SecretKeyFile file;
  ASSERT_TRUE(SealSecretKey(key, false, "", 0, 0, file, error));
  const string sealed(FormatSecretKeyFile(file).view());
  EXPECT_EQ(OpenedKey(sealed, "ignored", error).key.view(), key.key.view());
  OpenedKey(Replace(sealed, "AAAAAEX/", "AAAAAEX+"), "", error);  // the key id's first byte
  EXPECT_EQ(error, "the key's checksum does not match (the file is damaged)");
  for (const auto& [ops, mem] :
       {std::pair{kMaxOpsLimit, kMaxMemLimit}, std::pair{kMaxOpsLimit + 1, kMaxMemLimit},
        std::pair{kMaxOpsLimit, kMaxMemLimit + 1}}) {
    std::tie(file.opsLimit, file.memLimit) = std::tie(ops, mem);
    const bool bounded = ops == kMaxOpsLimit && mem == kMaxMemLimit;
    EXPECT_EQ(ParseSecretKeyFile(FormatSecretKeyFile(file).view(), file, error) ? "" : error,
              bounded ? ""
                      : "scrypt limits too high (opslimit " + std::to_string(ops) + ", memlimit " +
                            std::to_string(mem) + ")");
  }
}

// What SignFile makes verifies, over several read blocks, and only for the signed bytes;
// comments are one line. The checks run in order and stop at the first failure: the
// key id, the file (a legacy signature only up to its size limit), the trusted comment.
TEST_F(Minisign, SignsAndVerifiesInOrder) {
  string error;
  const SecretKey key = OpenedKey(kSecretKey, "", error);
  WriteFile("f", string(200000, 'z'));
  WriteFile("g", string(199999, 'z') + "y");
  Signature made;
  ASSERT_TRUE(SignFile(key, Path("f"), "t\tc", "u", made, error)) << error;
  for (const string& comment : {string("a\nb"), string("a\r"), string("a\0b", 3)}) {
    EXPECT_FALSE(SignFile(key, Path("f"), comment, "u", made, error));
    EXPECT_FALSE(SignFile(key, Path("f"), "t", comment, made, error));
    EXPECT_EQ(error, "a comment must be one line without NUL or CR");
  }
  WriteFile("hello", "hello\n");
  const Signature good = ParsedSignature(kSignature);
  Signature otherKey = good, otherComment = good, legacy = good;
  otherKey.keyId[0] ^= 1;
  otherComment.trustedComment += " ";
  legacy.prehashed = false;
  const string noMatch = "the signature does not match ";
  EXPECT_EQ(Verify(ParsedSignature(FormatSignature(made)), "f"), "ok");
  EXPECT_EQ(Verify(made, "g"), noMatch + Path("g"));
  EXPECT_EQ(Verify(good, "hello"), "ok");
  EXPECT_EQ(Verify(otherKey, "g"),
            "signed with key D92C454D50C27F10, not with key D92C454D50C27F11 of the public key");
  EXPECT_EQ(Verify(otherComment, "g"), noMatch + Path("g"));
  EXPECT_EQ(Verify(good, "none"), "cannot read " + Path("none") + ": No such file or directory");
  EXPECT_EQ(Verify(legacy, "hello", 6), noMatch + Path("hello"));
  EXPECT_EQ(Verify(legacy, "hello", 5),
            Path("hello") + " is larger than 5 bytes, the limit of a legacy signature");
}

TEST_F(Minisign, ReadMinisignFileRefusesLargeFiles) {
  SecretBytes text;
  WriteFile("max", string(kMaxFileBytes, 'a'));
  WriteFile("over", string(kMaxFileBytes + 1, 'a'));
  EXPECT_EQ(ReadMinisignFile(Path("max"), text), 0);
  EXPECT_EQ(text.size(), kMaxFileBytes);
  EXPECT_EQ(ReadMinisignFile(Path("over"), text), EFBIG);
}

}  // namespace
}  // namespace tk::minisign
