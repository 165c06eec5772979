#include "tkpack/digest.h"

#include <sodium.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "lzhuf/lzhuf.h"
#include "package/record_reader.h"
#include "support/files.h"

namespace tk {

namespace {

// The stream is hashed in blocks of this size, never read whole.
constexpr std::size_t kHashBlock = 16384;
// How many bytes of DigestPrefix() may differ for a stream to count as carrying a
// damaged digest line rather than none.
constexpr int kTolerableDamage = 1;

constexpr const char* kPlaceProblem =
    "\"Digest = sha256:\" does not follow the lines \"TAVIK PACKAGE FILE\", \"1\" and "
    "\"[HEADER]\" exactly";
constexpr const char* kLostProblem =
    "the package begins as one with a digest, but its records do not";
constexpr const char* kDigitsProblem =
    "\"Digest = sha256:\" is not followed by 64 lower-case hex digits and the line's end";

bool SodiumReady() {
  static const bool ready = sodium_init() >= 0;
  return ready;
}

// Puts a stream back where it stood when the object was made.
class PositionKeeper {
 public:
  explicit PositionKeeper(FILE* stream) : stream_(stream), position_(TellFile(stream)) {}
  ~PositionKeeper() {
    if (position_ >= 0) SeekFile(stream_, position_, SEEK_SET);
  }
  PositionKeeper(const PositionKeeper&) = delete;
  PositionKeeper& operator=(const PositionKeeper&) = delete;
  bool ok() const { return position_ >= 0; }

 private:
  FILE* stream_;
  int64_t position_;
};

int DamagedPrefixBytes(std::string_view start) {
  const std::string& prefix = DigestPrefix();
  int damaged = 0;
  for (std::size_t at = 0; at < prefix.size(); ++at) {
    if (at >= start.size() || start[at] != prefix[at]) ++damaged;
  }
  return damaged;
}

bool IsLowerHex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }

DigestLine Malformed(const char* problem) {
  DigestLine line;
  line.state = DigestLine::State::kMalformed;
  line.problem = problem;
  return line;
}

// Reads the first DigestLineEnd() bytes of `stream` (fewer when it is shorter).
bool ReadStreamStart(FILE* stream, std::string& start) {
  if (SeekFile(stream, 0, SEEK_SET) != 0) return false;
  start.assign(DigestLineEnd(), '\0');
  const std::size_t got = std::fread(start.data(), 1, start.size(), stream);
  start.resize(got);
  return std::ferror(stream) == 0;
}

// Overwrites with "0" the part of `block`, read at stream offset `offset`, that falls on
// the digits of a digest line.
void ZeroDigits(std::vector<unsigned char>& block, std::size_t size, uint64_t offset) {
  const uint64_t first = std::max<uint64_t>(offset, DigestPrefix().size());
  const uint64_t end = std::min<uint64_t>(offset + size, DigestPrefix().size() + kDigestDigits);
  for (uint64_t at = first; at < end; ++at) block[at - offset] = '0';
}

// The first bytes of the bit stream of every package with a digest: the bytes that two
// encodings of DigestPrefix() followed by different digits share, less the last one,
// which may already hold bits of what follows.
const std::vector<uint8_t>& DigestedStreamStart() {
  static const std::vector<uint8_t> start = [] {
    auto codec = std::make_unique<LzhufCodec>();
    std::vector<uint8_t> packed[2];
    for (const char digit : {'0', 'f'}) {
      const std::string stream = DigestPrefix() + std::string(kDigestDigits, digit) + "\n";
      LzhufEncodeBuffer(*codec, {reinterpret_cast<const uint8_t*>(stream.data()), stream.size()},
                        packed[digit == 'f']);
    }
    const auto [differ, ignored] =
        std::mismatch(packed[0].begin() + kLzhufHeaderBytes, packed[0].end(),
                      packed[1].begin() + kLzhufHeaderBytes);
    std::vector<uint8_t> shared(packed[0].begin() + kLzhufHeaderBytes, differ);
    if (!shared.empty()) shared.pop_back();
    return shared;
  }();
  return start;
}

std::string TempFileError(const char* what, const std::string& path) {
  return std::string(what) + " temporary package file " + path;
}

}  // namespace

const std::string& DigestPrefix() {
  static const std::string prefix = std::string(kPackageMagic) + "\n" + kPackageVersion + "\n[" +
                                    kHeaderSection + "]\n" + kDigestKey;
  return prefix;
}

std::size_t DigestLineEnd() { return DigestPrefix().size() + kDigestDigits + 1; }

DigestLine ParseDigestLine(std::string_view streamStart) {
  const std::string& prefix = DigestPrefix();
  if (!streamStart.starts_with(prefix)) {
    if (DamagedPrefixBytes(streamStart) <= kTolerableDamage) return Malformed(kPlaceProblem);
    return DigestLine();
  }
  const std::string_view digits = streamStart.substr(prefix.size(), kDigestDigits);
  const bool digitsRight =
      digits.size() == kDigestDigits && std::all_of(digits.begin(), digits.end(), IsLowerHex);
  if (!digitsRight || streamStart.size() < DigestLineEnd() ||
      streamStart[DigestLineEnd() - 1] != '\n') {
    return Malformed(kDigitsProblem);
  }
  DigestLine line;
  line.state = DigestLine::State::kWellFormed;
  line.digits = digits;
  return line;
}

bool ComputeStreamDigest(FILE* stream, std::string& digits) {
  PositionKeeper keeper(stream);
  if (!keeper.ok() || !SodiumReady() || SeekFile(stream, 0, SEEK_SET) != 0) return false;
  crypto_hash_sha256_state state;
  crypto_hash_sha256_init(&state);
  std::vector<unsigned char> block(kHashBlock);
  uint64_t offset = 0;
  std::size_t got = 0;
  while ((got = std::fread(block.data(), 1, block.size(), stream)) > 0) {
    ZeroDigits(block, got, offset);
    crypto_hash_sha256_update(&state, block.data(), got);
    offset += got;
  }
  if (std::ferror(stream) != 0) return false;
  unsigned char hash[crypto_hash_sha256_BYTES];
  crypto_hash_sha256_final(&state, hash);
  char hex[crypto_hash_sha256_BYTES * 2 + 1];
  sodium_bin2hex(hex, sizeof hex, hash, sizeof hash);
  digits = hex;
  return true;
}

DigestCheck CheckStreamDigest(FILE* decodedStream) {
  DigestCheck check;
  check.result = DigestCheck::Result::kUnreadable;
  PositionKeeper keeper(decodedStream);
  std::string start;
  if (!keeper.ok() || !ReadStreamStart(decodedStream, start)) return check;
  DigestLine line = ParseDigestLine(start);
  switch (line.state) {
    case DigestLine::State::kAbsent:
      check.result = DigestCheck::Result::kAbsent;
      return check;
    case DigestLine::State::kMalformed:
      check.result = DigestCheck::Result::kMalformed;
      check.problem = std::move(line.problem);
      return check;
    case DigestLine::State::kWellFormed:
      break;
  }
  if (!ComputeStreamDigest(decodedStream, check.actual)) return check;
  check.expected = std::move(line.digits);
  check.result =
      check.expected == check.actual ? DigestCheck::Result::kMatch : DigestCheck::Result::kMismatch;
  return check;
}

bool CompressedStartShowsDigest(const std::string& packagePath) {
  const std::vector<uint8_t>& expected = DigestedStreamStart();
  std::vector<uint8_t> start(kLzhufHeaderBytes + expected.size());
  UniqueFile package(OpenFile(packagePath.c_str(), "rb"));
  if (package == nullptr ||
      std::fread(start.data(), 1, start.size(), package.get()) != start.size()) {
    return false;
  }
  int different = 0;
  for (std::size_t at = 0; at < expected.size(); ++at) {
    if (start[kLzhufHeaderBytes + at] != expected[at]) ++different;
  }
  return different <= kTolerableDamage;
}

DigestCheck CheckPackageDigest(const std::string& packagePath, FILE* decodedStream) {
  DigestCheck check = CheckStreamDigest(decodedStream);
  if (check.result == DigestCheck::Result::kAbsent && CompressedStartShowsDigest(packagePath)) {
    check.result = DigestCheck::Result::kMalformed;
    check.problem = kLostProblem;
  }
  return check;
}

bool IsDigestProblem(const DigestCheck& check) {
  return check.result != DigestCheck::Result::kMatch &&
         check.result != DigestCheck::Result::kAbsent;
}

std::string DigestCheckText(const DigestCheck& check) {
  switch (check.result) {
    case DigestCheck::Result::kMatch:
      return "digest ok (sha256:" + check.actual + ")";
    case DigestCheck::Result::kMismatch:
      return "digest mismatch: the package says sha256:" + check.expected +
             ", its records hash to sha256:" + check.actual;
    case DigestCheck::Result::kAbsent:
      return "no digest";
    case DigestCheck::Result::kMalformed:
      return "malformed digest line: " + check.problem;
    case DigestCheck::Result::kUnreadable:
      break;
  }
  return "digest not checked: the stream cannot be read";
}

std::string WriteStreamDigest(const std::string& streamPath) {
  UniqueFile stream(OpenFile(streamPath.c_str(), "r+"));
  if (stream == nullptr) return TempFileError("Cannot open", streamPath);
  std::string start;
  if (!ReadStreamStart(stream.get(), start)) return TempFileError("Cannot read", streamPath);
  const DigestLine line = ParseDigestLine(start);
  if (line.state != DigestLine::State::kWellFormed ||
      line.digits != std::string(kDigestDigits, '0')) {
    return TempFileError("No digest line at the start of", streamPath);
  }
  std::string digits;
  if (!ComputeStreamDigest(stream.get(), digits)) return TempFileError("Cannot read", streamPath);
  const bool written =
      SeekFile(stream.get(), static_cast<int64_t>(DigestPrefix().size()), SEEK_SET) == 0 &&
      std::fwrite(digits.data(), 1, digits.size(), stream.get()) == digits.size();
  const bool closed = std::fclose(stream.release()) == 0;
  if (!written || !closed) return TempFileError("Cannot write the digest into", streamPath);
  return "";
}

BuildOptions DigestBuildOptions() {
  BuildOptions options;
  options.leadingLines = {std::string("[") + kHeaderSection + "]",
                          kDigestKey + std::string(kDigestDigits, '0')};
  options.beforeCompression = WriteStreamDigest;
  return options;
}

}  // namespace tk
