// Decodes arbitrary bytes as a compressed package stream with the memory front end.
//
// The codec trusts the length header, and a corrupt bit stream decodes into garbage of
// the stated length, so a header of 2^31 or more (a length near 2^64 once sign-extended)
// would run for ever: a decode limit keeps every input short. Every symbol takes at
// least one bit, and a match of 10 bytes at least ten, so a stream cannot carry more
// than 8 bytes per byte; the limit lets that much out and cuts the zero-bit garbage
// after it. What must hold:
// - fewer than 4 bytes: kLzhufNoHeader and nothing written;
// - a stated length of 0: kLzhufEmpty and nothing written;
// - otherwise kLzhufOk with at least min(length, limit) bytes and at most 9 more, since
//   the symbol that reaches the end is a match of up to 10 bytes that is completed.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "lzhuf/lzhuf.h"

namespace {

// Bytes of output allowed per byte of input, and on top of that.
constexpr uint64_t kOutputPerInputByte = 8;
constexpr uint64_t kOutputSlack = 64;
constexpr uint64_t kLongestMatch = tk::kLzhufLookahead;

// The length stated by the header, sign-extended from 32 bits as the decoder does.
uint64_t StatedLength(const uint8_t* data) {
  const uint32_t raw =
      data[0] | (data[1] << 8) | (data[2] << 16) | (static_cast<uint32_t>(data[3]) << 24);
  return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(raw)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using tk::fuzz::Expect;
  static auto codec = std::make_unique<tk::LzhufCodec>();  // reused, as callers may
  const uint64_t limit = kOutputPerInputByte * size + kOutputSlack;
  std::vector<uint8_t> out;
  const int result = tk::LzhufDecodeBuffer(*codec, std::span(data, size), out, limit);
  const std::string got =
      " result " + std::to_string(result) + ", " + std::to_string(out.size()) + " bytes";
  if (size < 4) {
    Expect(result == tk::kLzhufNoHeader && out.empty(), "short input:", got);
    return 0;
  }
  const uint64_t stated = StatedLength(data);
  if (stated == 0) {
    Expect(result == tk::kLzhufEmpty && out.empty(), "zero length:", got);
    return 0;
  }
  const uint64_t expected = stated < limit ? stated : limit;
  Expect(result == tk::kLzhufOk, "decoding failed:", got);
  Expect(out.size() >= expected && out.size() < expected + kLongestMatch,
         "wrong output size:", got + " for " + std::to_string(expected));
  return 0;
}
