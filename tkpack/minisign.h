// Detached Ed25519 signatures in the file formats of the minisign program (0.11): its
// public key, secret key and signature files, read and written so that minisign and
// this unit accept each other's files, and the signing and checking of a file. All the
// cryptography is libsodium's: Ed25519, BLAKE2b, scrypt and base64.
//
// Each file is text: an "untrusted comment: " line, then one line of standard base64
// (with padding) of the binary part below; a signature file adds a "trusted comment: "
// line and the base64 of the global signature. Lines end in LF; CRs at the end of a
// line are dropped on reading; after the last line only line ends may follow. A comment
// is what follows its prefix on the line; it holds no NUL, CR or LF.
//
//   public key  "Ed" | key id (8) | Ed25519 public key (32)
//   secret key  "Ed" | kdf: "Sc" (scrypt) or two zero bytes (no password) | "B2" |
//               salt (32) | opslimit (u64 LE) | memlimit (u64 LE) |
//               key id (8) | Ed25519 secret key (64) | checksum (32)
//               With "Sc", the last 104 bytes are XORed with 104 bytes of
//               scrypt(password, salt, opslimit, memlimit). The checksum is
//               BLAKE2b-256("Ed" | key id | secret key); minisign 0.11 leaves it zero in a
//               key without password.
//   signature   "ED" (the signature is over BLAKE2b-512 of the file) or "Ed" (legacy:
//               over the file itself) | key id (8) | Ed25519 signature (64);
//               the global signature (64) is Ed25519 over signature | trusted comment.
//
// Secrets (the text of a secret key file, the key inside it, the scrypt output) stay in
// SecretBytes. Nothing here prints; a function that can fail returns false and says why
// in `error`.
//
// Thread-safe: no shared state besides libsodium's one-time initialisation.
#ifndef TAVIK_TKPACK_MINISIGN_H_
#define TAVIK_TKPACK_MINISIGN_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tkpack/secret_bytes.h"

namespace tk::minisign {

inline constexpr std::size_t kKeyIdBytes = 8;
inline constexpr std::size_t kPublicKeyBytes = 32;
inline constexpr std::size_t kSecretKeyBytes = 64;
inline constexpr std::size_t kSignatureBytes = 64;
inline constexpr std::size_t kSaltBytes = 32;
inline constexpr std::size_t kChecksumBytes = 32;
// The part of a secret key file that a password encrypts: key id | secret key | checksum.
inline constexpr std::size_t kKeynumBytes = kKeyIdBytes + kSecretKeyBytes + kChecksumBytes;

// Key and signature files are small; ReadMinisignFile refuses larger ones.
inline constexpr std::size_t kMaxFileBytes = 16384;
// A legacy signature covers the file itself, which is read whole into memory: only
// files up to this size are checked (prehashed ones are streamed, of any size).
inline constexpr uint64_t kLegacyFileLimit = uint64_t{256} << 20;
// scrypt limits of a secret key above these are refused as damage rather than spent:
// four times minisign's own (opslimit 2^25, memlimit 1 GiB).
inline constexpr uint64_t kMaxOpsLimit = uint64_t{1} << 27;
inline constexpr uint64_t kMaxMemLimit = uint64_t{1} << 32;

using KeyId = std::array<uint8_t, kKeyIdBytes>;
using SignatureBytes = std::array<uint8_t, kSignatureBytes>;

// A key id the way minisign writes it in its comments: the 8 bytes read as a
// little-endian number, in upper-case hex without leading zeros ("D92C454D50C27F11",
// "BEDA9687A8E820").
std::string KeyIdText(const KeyId& id);

// Reads a key or signature file whole into `text`. Returns 0, or the errno value of the
// failure (EFBIG for a file larger than kMaxFileBytes).
int ReadMinisignFile(const std::string& path, SecretBytes& text);

// ---- Public keys ----------------------------------------------------------------

struct PublicKey {
  std::string comment;  // the untrusted comment
  KeyId keyId{};
  std::array<uint8_t, kPublicKeyBytes> key{};
};

// Parses the text of a public key file. False with `error` saying what is wrong, e.g.
// "line 2 is not the base64 of 42 bytes".
bool ParsePublicKey(std::string_view text, PublicKey& key, std::string& error);
std::string FormatPublicKey(const PublicKey& key);

// ---- Secret keys ----------------------------------------------------------------

// A secret key file as stored: `keynum` (kKeynumBytes) is encrypted when `encrypted`.
struct SecretKeyFile {
  std::string comment;
  bool encrypted = false;  // kdf "Sc"; else no password (two zero bytes)
  std::array<uint8_t, kSaltBytes> salt{};
  uint64_t opsLimit = 0;
  uint64_t memLimit = 0;
  SecretBytes keynum;
};

// Parses the text of a secret key file; refuses scrypt limits above kMaxOpsLimit or
// kMaxMemLimit. False with `error` saying what is wrong.
bool ParseSecretKeyFile(std::string_view text, SecretKeyFile& file, std::string& error);
// The text of the file (a secret when the key has no password); empty when memory for
// it cannot be had.
SecretBytes FormatSecretKeyFile(const SecretKeyFile& file);

// A secret key ready to sign with.
struct SecretKey {
  KeyId keyId{};
  SecretBytes key;  // kSecretKeyBytes: the Ed25519 secret key (seed | public key)
};

// Takes the key out of `file`, decrypting it with `password` when it is encrypted (the
// password is not used otherwise). Checks the checksum; a key without password may
// also carry the zero checksum minisign 0.11 writes. Errors: "wrong password (the
// key's checksum does not match)", "the key's checksum does not match (the file is
// damaged)", "scrypt failed (out of memory?)".
bool OpenSecretKey(const SecretKeyFile& file, std::string_view password, SecretKey& key,
                   std::string& error);

// Stores `key` in `file` with its checksum: encrypted with `password` under a fresh
// random salt and the given scrypt limits when `encrypt`, else without password (as
// minisign -W). False when scrypt fails.
bool SealSecretKey(const SecretKey& key, bool encrypt, std::string_view password, uint64_t opsLimit,
                   uint64_t memLimit, SecretKeyFile& file, std::string& error);

// ---- Signatures -----------------------------------------------------------------

struct Signature {
  std::string comment;    // the untrusted comment
  bool prehashed = true;  // "ED"; false: legacy "Ed"
  KeyId keyId{};
  SignatureBytes signature{};
  std::string trustedComment;
  SignatureBytes globalSignature{};
};

// Parses the text of a signature file. False with `error` saying what is wrong, e.g.
// "line 3 does not begin with \"trusted comment: \"".
bool ParseSignature(std::string_view text, Signature& signature, std::string& error);
std::string FormatSignature(const Signature& signature);

// Signs the file at `path` as minisign does by default (prehashed) with the two
// comments, which must be one line each. False with `error` when a comment is not one
// line or the file cannot be read ("cannot read PATH: REASON").
bool SignFile(const SecretKey& key, const std::string& path, std::string_view trustedComment,
              std::string_view comment, Signature& signature, std::string& error);

// Checks that `signature` is `key`'s signature of the file at `path`, in this order,
// stopping at the first failure:
//   "signed with key ID, not with key ID of the public key"
//   "cannot read PATH: REASON"
//   "PATH is larger than 268435456 bytes, the limit of a legacy signature"  (see
//       kLegacyFileLimit; `legacyLimit` replaces it in the message and the check)
//   "the signature does not match PATH"
//   "the trusted comment does not match its signature"
bool VerifyFile(const PublicKey& key, const Signature& signature, const std::string& path,
                std::string& error, uint64_t legacyLimit = kLegacyFileLimit);

}  // namespace tk::minisign

#endif  // TAVIK_TKPACK_MINISIGN_H_
