// Encodes the input with 1, 2, 3 and 8 threads: every output must be the bytes of the
// single-threaded encoder, with the same result. The first byte also sets the block
// size, so that an input is cut into 1 to 64 blocks (of a single byte for the shortest
// inputs): its last keys reach across block boundaries and past its end at every
// possible place. The codec objects are reused from input to input, so state left
// behind by one operation would show here.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "lzhuf/lzhuf.h"

namespace {

constexpr size_t kMostBlocks = 64;

std::string Describe(size_t size, int threads, size_t blockSize) {
  return " for " + std::to_string(size) + " bytes, " + std::to_string(threads) +
         " threads, blocks of " + std::to_string(blockSize);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using tk::fuzz::Expect;
  static auto single = std::make_unique<tk::LzhufCodec>();
  static auto threaded = std::make_unique<tk::LzhufCodec>();
  const std::span<const uint8_t> input(data, size);
  std::vector<uint8_t> expected;
  const int expectedResult = tk::LzhufEncodeBuffer(*single, input, expected);
  const size_t blocks = size == 0 ? 1 : 1 + data[0] % kMostBlocks;
  const size_t blockSize = size / blocks + 1;
  for (int threads : {1, 2, 3, 8}) {
    tk::LzhufEncodeOptions options;
    options.threads = threads;
    options.blockSize = blockSize;
    std::vector<uint8_t> packed;
    const int result = tk::LzhufEncodeBuffer(*threaded, input, packed, options);
    Expect(result == expectedResult, "the threaded result differs",
           Describe(size, threads, blockSize));
    Expect(packed == expected, "the threaded bytes differ", Describe(size, threads, blockSize));
  }
  return 0;
}
