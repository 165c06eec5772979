#include "tkpack/minisign.h"

#include <fcntl.h>
#include <sodium.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "support/files.h"

namespace tk::minisign {

namespace {

static_assert(kPublicKeyBytes == crypto_sign_PUBLICKEYBYTES);
static_assert(kSecretKeyBytes == crypto_sign_SECRETKEYBYTES);
static_assert(kSignatureBytes == crypto_sign_BYTES);
static_assert(kSaltBytes == crypto_pwhash_scryptsalsa208sha256_SALTBYTES);

constexpr std::string_view kUntrustedPrefix = "untrusted comment: ";
constexpr std::string_view kTrustedPrefix = "trusted comment: ";
constexpr std::string_view kEd25519 = "Ed";        // keys, and legacy signatures
constexpr std::string_view kEd25519Hashed = "ED";  // signatures over BLAKE2b-512
constexpr std::string_view kScrypt = "Sc";
constexpr std::string_view kNoKdf{"\0\0", 2};
constexpr std::string_view kBlake2b = "B2";
constexpr std::size_t kAlgorithmBytes = 2;
constexpr std::size_t kFileHashBytes = crypto_generichash_BYTES_MAX;  // BLAKE2b-512
constexpr std::size_t kReadBlock = 65536;

constexpr std::size_t kPublicKeyBinaryBytes = kAlgorithmBytes + kKeyIdBytes + kPublicKeyBytes;
constexpr std::size_t kSignatureBinaryBytes = kAlgorithmBytes + kKeyIdBytes + kSignatureBytes;
constexpr std::size_t kLimitBytes = 8;  // opslimit and memlimit, each a u64 LE
constexpr std::size_t kSecretKeyBinaryBytes =
    3 * kAlgorithmBytes + kSaltBytes + 2 * kLimitBytes + kKeynumBytes;

// ---- Text ----------------------------------------------------------------------

// The first `count` lines of `text` without their line ends; only line ends may
// follow them.
bool SplitLines(std::string_view text, std::size_t count, std::vector<std::string_view>& lines,
                std::string& error) {
  lines.clear();
  while (lines.size() < count) {
    const std::string number = std::to_string(lines.size() + 1);
    if (text.empty()) {
      error = "line " + number + " is missing";
      return false;
    }
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    while (line.ends_with('\r')) line.remove_suffix(1);
    if (line.find_first_of(std::string_view("\0\r", 2)) != std::string_view::npos) {
      error = "line " + number + " holds a NUL or CR byte";
      return false;
    }
    lines.push_back(line);
  }
  if (text.find_first_not_of("\r\n") != std::string_view::npos) {
    error = "text after line " + std::to_string(count);
    return false;
  }
  return true;
}

bool TakeComment(std::string_view line, std::string_view prefix, std::size_t number,
                 std::string& comment, std::string& error) {
  if (!line.starts_with(prefix)) {
    error =
        "line " + std::to_string(number) + " does not begin with \"" + std::string(prefix) + "\"";
    return false;
  }
  comment = line.substr(prefix.size());
  return true;
}

// Decodes the whole of `line` (standard base64 with padding) into exactly `size` bytes.
bool DecodeLine(std::string_view line, uint8_t* out, std::size_t size, std::size_t number,
                std::string& error) {
  std::size_t decoded = 0;
  if (sodium_base642bin(out, size, line.data(), line.size(), nullptr, &decoded, nullptr,
                        sodium_base64_VARIANT_ORIGINAL) != 0 ||
      decoded != size) {
    error = "line " + std::to_string(number) + " is not the base64 of " + std::to_string(size) +
            " bytes";
    return false;
  }
  return true;
}

std::string EncodeLine(const uint8_t* bytes, std::size_t size) {
  std::string text(sodium_base64_ENCODED_LEN(size, sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(text.data(), text.size(), bytes, size, sodium_base64_VARIANT_ORIGINAL);
  text.pop_back();  // the terminating NUL
  return text;
}

bool IsOneLine(std::string_view comment) {
  return comment.find_first_of(std::string_view("\0\r\n", 3)) == std::string_view::npos;
}

// ---- Binary parts --------------------------------------------------------------

// Appends to or reads from a fixed buffer in order.
class Cursor {
 public:
  explicit Cursor(uint8_t* bytes) : at_(bytes) {}
  void Put(const void* bytes, std::size_t size) {
    std::memcpy(at_, bytes, size);
    at_ += size;
  }
  void Put(std::string_view text) { Put(text.data(), text.size()); }
  void PutU64(uint64_t value) {
    for (std::size_t i = 0; i < kLimitBytes; ++i) *at_++ = static_cast<uint8_t>(value >> (8 * i));
  }
  void Get(void* bytes, std::size_t size) {
    std::memcpy(bytes, at_, size);
    at_ += size;
  }
  std::string_view GetText(std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(at_), size);
    at_ += size;
    return text;
  }
  uint64_t GetU64() {
    uint64_t value = 0;
    for (std::size_t i = 0; i < kLimitBytes; ++i) value |= uint64_t{*at_++} << (8 * i);
    return value;
  }

 private:
  uint8_t* at_;
};

// What is wrong with the three algorithm names of a secret key, or null.
const char* SecretKeyAlgorithmProblem(std::string_view algorithm, std::string_view kdf,
                                      std::string_view checksum) {
  if (algorithm != kEd25519) return "unknown key algorithm (\"Ed\" expected)";
  if (kdf != kScrypt && kdf != kNoKdf) return "unknown key derivation (\"Sc\" or none expected)";
  if (checksum != kBlake2b) return "unknown checksum algorithm (\"B2\" expected)";
  return nullptr;
}

// BLAKE2b-256("Ed" | key id | secret key) of a keynum whose first bytes are id and key.
void KeyChecksum(const uint8_t* keynum, uint8_t* checksum) {
  crypto_generichash_state state;
  crypto_generichash_init(&state, nullptr, 0, kChecksumBytes);
  crypto_generichash_update(&state, reinterpret_cast<const uint8_t*>(kEd25519.data()),
                            kAlgorithmBytes);
  crypto_generichash_update(&state, keynum, kKeyIdBytes + kSecretKeyBytes);
  crypto_generichash_final(&state, checksum, kChecksumBytes);
  sodium_memzero(&state, sizeof state);
}

// XORs `keynum` with scrypt's output for the file's password, salt and limits.
bool ApplyPassword(const SecretKeyFile& file, std::string_view password, uint8_t* keynum,
                   std::string& error) {
  SecretBytes stream(kKeynumBytes);
  if (stream.size() != kKeynumBytes ||
      crypto_pwhash_scryptsalsa208sha256(stream.data(), kKeynumBytes, password.data(),
                                         password.size(), file.salt.data(), file.opsLimit,
                                         file.memLimit) != 0) {
    error = "scrypt failed (out of memory?)";
    return false;
  }
  for (std::size_t i = 0; i < kKeynumBytes; ++i) keynum[i] ^= stream.data()[i];
  return true;
}

// ---- Files ---------------------------------------------------------------------

// Calls `take(bytes, size)` with each block of the file at `path`, in order, until the
// end or until `take` returns false. Returns 0, or the errno value of the failure.
template <typename Take>
int ReadBlocks(const std::string& path, Take take) {
  UniqueDescriptor fd(OpenDescriptor(path.c_str(), O_RDONLY, 0));
  if (fd.get() < 0) return errno;
  std::vector<uint8_t> block(kReadBlock);
  for (;;) {
    const ssize_t got = read(fd.get(), block.data(), block.size());
    if (got < 0 && errno != EINTR) return errno;
    if (got == 0 || (got > 0 && !take(block.data(), static_cast<std::size_t>(got)))) return 0;
  }
}

std::string CannotRead(const std::string& path, int failure) {
  return "cannot read " + path + ": " + std::strerror(failure);
}

bool HashFile(const std::string& path, uint8_t* hash, std::string& error) {
  crypto_generichash_state state;
  crypto_generichash_init(&state, nullptr, 0, kFileHashBytes);
  const int failure = ReadBlocks(path, [&](const uint8_t* bytes, std::size_t size) {
    crypto_generichash_update(&state, bytes, size);
    return true;
  });
  crypto_generichash_final(&state, hash, kFileHashBytes);
  if (failure != 0) error = CannotRead(path, failure);
  return failure == 0;
}

// The file whole, for a legacy signature; false when it is larger than `limit`.
bool ReadWholeFileUpTo(const std::string& path, uint64_t limit, std::string& bytes,
                       std::string& error) {
  bytes.clear();
  bool tooLarge = false;
  const int failure = ReadBlocks(path, [&](const uint8_t* block, std::size_t size) {
    tooLarge = bytes.size() + size > limit;
    if (!tooLarge) bytes.append(reinterpret_cast<const char*>(block), size);
    return !tooLarge;
  });
  if (failure != 0) {
    error = CannotRead(path, failure);
  } else if (tooLarge) {
    error = path + " is larger than " + std::to_string(limit) +
            " bytes, the limit of a legacy signature";
  }
  return failure == 0 && !tooLarge;
}

// The message of the global signature: signature | trusted comment.
std::string GlobalMessage(const Signature& signature) {
  return std::string(signature.signature.begin(), signature.signature.end()) +
         signature.trustedComment;
}

}  // namespace

std::string KeyIdText(const KeyId& id) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = kKeyIdBytes; i-- > 0;) {
    text += kHex[id[i] >> 4];
    text += kHex[id[i] & 0xf];
  }
  const std::size_t first = std::min(text.find_first_not_of('0'), text.size() - 1);
  return text.substr(first);
}

int ReadMinisignFile(const std::string& path, SecretBytes& text) {
  text = SecretBytes(kMaxFileBytes + 1);
  if (text.size() == 0) return ENOMEM;
  std::size_t size = 0;
  const int failure = ReadBlocks(path, [&](const uint8_t* bytes, std::size_t got) {
    const std::size_t kept = std::min(got, text.size() - size);
    std::memcpy(text.data() + size, bytes, kept);
    size += kept;
    return size < text.size();
  });
  if (failure != 0) return failure;
  if (size > kMaxFileBytes) return EFBIG;
  text.Shrink(size);
  return 0;
}

// ---- Public keys ----------------------------------------------------------------

bool ParsePublicKey(std::string_view text, PublicKey& key, std::string& error) {
  std::vector<std::string_view> lines;
  std::array<uint8_t, kPublicKeyBinaryBytes> binary;
  if (!SplitLines(text, 2, lines, error) ||
      !TakeComment(lines[0], kUntrustedPrefix, 1, key.comment, error) ||
      !DecodeLine(lines[1], binary.data(), binary.size(), 2, error)) {
    return false;
  }
  Cursor in(binary.data());
  if (in.GetText(kAlgorithmBytes) != kEd25519) {
    error = "unknown key algorithm (\"Ed\" expected)";
    return false;
  }
  in.Get(key.keyId.data(), kKeyIdBytes);
  in.Get(key.key.data(), kPublicKeyBytes);
  return true;
}

std::string FormatPublicKey(const PublicKey& key) {
  std::array<uint8_t, kPublicKeyBinaryBytes> binary;
  Cursor out(binary.data());
  out.Put(kEd25519);
  out.Put(key.keyId.data(), kKeyIdBytes);
  out.Put(key.key.data(), kPublicKeyBytes);
  return std::string(kUntrustedPrefix) + key.comment + "\n" +
         EncodeLine(binary.data(), binary.size()) + "\n";
}

// ---- Secret keys ----------------------------------------------------------------

bool ParseSecretKeyFile(std::string_view text, SecretKeyFile& file, std::string& error) {
  std::vector<std::string_view> lines;
  SecretBytes binary(kSecretKeyBinaryBytes);
  if (!SplitLines(text, 2, lines, error) ||
      !TakeComment(lines[0], kUntrustedPrefix, 1, file.comment, error) ||
      !DecodeLine(lines[1], binary.data(), binary.size(), 2, error)) {
    return false;
  }
  Cursor in(binary.data());
  const std::string_view algorithm = in.GetText(kAlgorithmBytes);
  const std::string_view kdf = in.GetText(kAlgorithmBytes);
  const char* problem = SecretKeyAlgorithmProblem(algorithm, kdf, in.GetText(kAlgorithmBytes));
  if (problem != nullptr) {
    error = problem;
    return false;
  }
  file.encrypted = kdf == kScrypt;
  in.Get(file.salt.data(), kSaltBytes);
  file.opsLimit = in.GetU64();
  file.memLimit = in.GetU64();
  if (file.opsLimit > kMaxOpsLimit || file.memLimit > kMaxMemLimit) {
    error = "scrypt limits too high (opslimit " + std::to_string(file.opsLimit) + ", memlimit " +
            std::to_string(file.memLimit) + ")";
    return false;
  }
  file.keynum = SecretBytes(kKeynumBytes);
  in.Get(file.keynum.data(), file.keynum.size());
  return true;
}

SecretBytes FormatSecretKeyFile(const SecretKeyFile& file) {
  SecretBytes binary(kSecretKeyBinaryBytes);
  if (binary.size() == 0 || file.keynum.size() != kKeynumBytes) return {};
  Cursor out(binary.data());
  out.Put(kEd25519);
  out.Put(file.encrypted ? kScrypt : kNoKdf);
  out.Put(kBlake2b);
  out.Put(file.salt.data(), kSaltBytes);
  out.PutU64(file.opsLimit);
  out.PutU64(file.memLimit);
  out.Put(file.keynum.data(), kKeynumBytes);
  const std::size_t encodedBytes =
      sodium_base64_ENCODED_LEN(kSecretKeyBinaryBytes, sodium_base64_VARIANT_ORIGINAL);
  SecretBytes text(kUntrustedPrefix.size() + file.comment.size() + 1 + encodedBytes);
  if (text.size() == 0) return {};
  Cursor line(text.data());
  line.Put(kUntrustedPrefix);
  line.Put(file.comment);
  line.Put("\n");
  char* encoded = reinterpret_cast<char*>(text.data()) + text.size() - encodedBytes;
  sodium_bin2base64(encoded, encodedBytes, binary.data(), binary.size(),
                    sodium_base64_VARIANT_ORIGINAL);
  text.data()[text.size() - 1] = '\n';  // in place of the terminating NUL
  return text;
}

bool OpenSecretKey(const SecretKeyFile& file, std::string_view password, SecretKey& key,
                   std::string& error) {
  SecretBytes keynum(kKeynumBytes);
  if (keynum.size() != kKeynumBytes || file.keynum.size() != kKeynumBytes) {
    error = "out of memory";
    return false;
  }
  std::memcpy(keynum.data(), file.keynum.data(), kKeynumBytes);
  if (file.encrypted && !ApplyPassword(file, password, keynum.data(), error)) return false;
  std::array<uint8_t, kChecksumBytes> checksum;
  KeyChecksum(keynum.data(), checksum.data());
  const uint8_t* stored = keynum.data() + kKeyIdBytes + kSecretKeyBytes;
  const bool zeroAllowed = !file.encrypted && sodium_is_zero(stored, kChecksumBytes);
  if (sodium_memcmp(checksum.data(), stored, kChecksumBytes) != 0 && !zeroAllowed) {
    error = file.encrypted ? "wrong password (the key's checksum does not match)"
                           : "the key's checksum does not match (the file is damaged)";
    return false;
  }
  key.key = SecretBytes(kSecretKeyBytes);
  std::memcpy(key.keyId.data(), keynum.data(), kKeyIdBytes);
  std::memcpy(key.key.data(), keynum.data() + kKeyIdBytes, key.key.size());
  return true;
}

bool SealSecretKey(const SecretKey& key, bool encrypt, std::string_view password, uint64_t opsLimit,
                   uint64_t memLimit, SecretKeyFile& file, std::string& error) {
  file.encrypted = encrypt;
  file.salt.fill(0);
  if (encrypt) randombytes_buf(file.salt.data(), kSaltBytes);
  file.opsLimit = encrypt ? opsLimit : 0;
  file.memLimit = encrypt ? memLimit : 0;
  file.keynum = SecretBytes(kKeynumBytes);
  if (file.keynum.size() != kKeynumBytes || key.key.size() != kSecretKeyBytes) {
    error = "out of memory";
    return false;
  }
  Cursor out(file.keynum.data());
  out.Put(key.keyId.data(), kKeyIdBytes);
  out.Put(key.key.data(), kSecretKeyBytes);
  KeyChecksum(file.keynum.data(), file.keynum.data() + kKeyIdBytes + kSecretKeyBytes);
  return !encrypt || ApplyPassword(file, password, file.keynum.data(), error);
}

// ---- Signatures -----------------------------------------------------------------

bool ParseSignature(std::string_view text, Signature& signature, std::string& error) {
  std::vector<std::string_view> lines;
  std::array<uint8_t, kSignatureBinaryBytes> binary;
  if (!SplitLines(text, 4, lines, error) ||
      !TakeComment(lines[0], kUntrustedPrefix, 1, signature.comment, error) ||
      !DecodeLine(lines[1], binary.data(), binary.size(), 2, error) ||
      !TakeComment(lines[2], kTrustedPrefix, 3, signature.trustedComment, error) ||
      !DecodeLine(lines[3], signature.globalSignature.data(), kSignatureBytes, 4, error)) {
    return false;
  }
  Cursor in(binary.data());
  const std::string_view algorithm = in.GetText(kAlgorithmBytes);
  if (algorithm != kEd25519Hashed && algorithm != kEd25519) {
    error = "unknown signature algorithm (\"ED\" or \"Ed\" expected)";
    return false;
  }
  signature.prehashed = algorithm == kEd25519Hashed;
  in.Get(signature.keyId.data(), kKeyIdBytes);
  in.Get(signature.signature.data(), kSignatureBytes);
  return true;
}

std::string FormatSignature(const Signature& signature) {
  std::array<uint8_t, kSignatureBinaryBytes> binary;
  Cursor out(binary.data());
  out.Put(signature.prehashed ? kEd25519Hashed : kEd25519);
  out.Put(signature.keyId.data(), kKeyIdBytes);
  out.Put(signature.signature.data(), kSignatureBytes);
  return std::string(kUntrustedPrefix) + signature.comment + "\n" +
         EncodeLine(binary.data(), binary.size()) + "\n" + std::string(kTrustedPrefix) +
         signature.trustedComment + "\n" +
         EncodeLine(signature.globalSignature.data(), kSignatureBytes) + "\n";
}

bool SignFile(const SecretKey& key, const std::string& path, std::string_view trustedComment,
              std::string_view comment, Signature& signature, std::string& error) {
  if (!IsOneLine(trustedComment) || !IsOneLine(comment)) {
    error = "a comment must be one line without NUL or CR";
    return false;
  }
  if (key.key.size() != kSecretKeyBytes || !SodiumReady()) {
    error = "no secret key";
    return false;
  }
  std::array<uint8_t, kFileHashBytes> hash;
  if (!HashFile(path, hash.data(), error)) return false;
  signature.comment = comment;
  signature.prehashed = true;
  signature.keyId = key.keyId;
  signature.trustedComment = trustedComment;
  crypto_sign_detached(signature.signature.data(), nullptr, hash.data(), hash.size(),
                       key.key.data());
  const std::string global = GlobalMessage(signature);
  crypto_sign_detached(signature.globalSignature.data(), nullptr,
                       reinterpret_cast<const uint8_t*>(global.data()), global.size(),
                       key.key.data());
  return true;
}

bool VerifyFile(const PublicKey& key, const Signature& signature, const std::string& path,
                std::string& error, uint64_t legacyLimit) {
  if (signature.keyId != key.keyId) {
    error = "signed with key " + KeyIdText(signature.keyId) + ", not with key " +
            KeyIdText(key.keyId) + " of the public key";
    return false;
  }
  if (!SodiumReady()) {
    error = "libsodium cannot be initialised";
    return false;
  }
  std::string message(kFileHashBytes, '\0');
  if (signature.prehashed ? !HashFile(path, reinterpret_cast<uint8_t*>(message.data()), error)
                          : !ReadWholeFileUpTo(path, legacyLimit, message, error)) {
    return false;
  }
  if (crypto_sign_verify_detached(signature.signature.data(),
                                  reinterpret_cast<const uint8_t*>(message.data()), message.size(),
                                  key.key.data()) != 0) {
    error = "the signature does not match " + path;
    return false;
  }
  const std::string global = GlobalMessage(signature);
  if (crypto_sign_verify_detached(signature.globalSignature.data(),
                                  reinterpret_cast<const uint8_t*>(global.data()), global.size(),
                                  key.key.data()) != 0) {
    error = "the trusted comment does not match its signature";
    return false;
  }
  return true;
}

}  // namespace tk::minisign
