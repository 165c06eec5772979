// Encodes the input and decodes it again: the result must be the input, the header must
// state its length, and a decode limit must give a prefix of it. The codec objects are
// reused from input to input, so state left behind by one operation would show here.
//
// Inputs of some 33000 symbols or more reach the Huffman tree's rebuild (the root's
// weight hits 0x8000); fuzz/run allows inputs that long and the seeds include one.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "lzhuf/lzhuf.h"

namespace {

constexpr size_t kLongestMatch = tk::kLzhufLookahead;

std::string Describe(size_t size, int result) {
  return " for " + std::to_string(size) + " bytes, result " + std::to_string(result);
}

// Decoding with a limit stops after the symbol that reaches it: a prefix of the input
// of at least `limit` bytes and at most a match longer, never past the input's end.
void CheckLimitedDecode(tk::LzhufCodec& codec, std::span<const uint8_t> input,
                        const std::vector<uint8_t>& packed) {
  const uint64_t limit = input.size() / 2 + 1;
  std::vector<uint8_t> prefix;
  const int result = tk::LzhufDecodeBuffer(codec, packed, prefix, limit);
  tk::fuzz::Expect(result == tk::kLzhufOk, "limited decode failed", Describe(input.size(), result));
  tk::fuzz::Expect(prefix.size() >= limit && prefix.size() < limit + kLongestMatch &&
                       prefix.size() <= input.size(),
                   "limited decode has the wrong size", Describe(prefix.size(), result));
  tk::fuzz::Expect(std::equal(prefix.begin(), prefix.end(), input.begin()),
                   "limited decode is not a prefix of the input");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using tk::fuzz::Expect;
  static auto encoder = std::make_unique<tk::LzhufCodec>();
  static auto decoder = std::make_unique<tk::LzhufCodec>();
  const std::span<const uint8_t> input(data, size);
  std::vector<uint8_t> packed;
  const int encoded = tk::LzhufEncodeBuffer(*encoder, input, packed);
  if (size == 0) {
    Expect(encoded == tk::kLzhufEmpty && packed == std::vector<uint8_t>(4, 0),
           "empty input is not the bare header", Describe(packed.size(), encoded));
    return 0;
  }
  Expect(encoded == tk::kLzhufOk, "encoding failed", Describe(size, encoded));
  Expect(packed.size() >= 5 && packed[0] == (size & 0xFF) && packed[1] == ((size >> 8) & 0xFF) &&
             packed[2] == ((size >> 16) & 0xFF) && packed[3] == ((size >> 24) & 0xFF),
         "header does not state the length", Describe(size, encoded));
  std::vector<uint8_t> unpacked;
  const int decoded = tk::LzhufDecodeBuffer(*decoder, packed, unpacked, 0);
  Expect(decoded == tk::kLzhufOk, "decoding failed", Describe(size, decoded));
  Expect(unpacked.size() == size && std::equal(unpacked.begin(), unpacked.end(), data),
         "decode(encode(x)) differs from x", Describe(unpacked.size(), decoded));
  CheckLimitedDecode(*decoder, input, packed);
  return 0;
}
