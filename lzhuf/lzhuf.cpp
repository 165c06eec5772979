// The public entry points of the engine: the header, the empty cases and the
// result codes around the encoding and decoding halves.
#include "lzhuf/lzhuf.h"

#include <sched.h>

#include <algorithm>
#include <cstring>

#include "lzhuf/bit_io.h"
#include "lzhuf/engine.h"

namespace tk {

using namespace lzhuf_detail;

namespace {

void ResetCounters(LzhufCodec& codec) {
  codec.outBits = codec.inBits = 0;
  codec.outCount = codec.inCount = 0;
  codec.textSize = codec.codeSize = 0;
}

}  // namespace

uint64_t LzhufLargestDecodedSize(uint64_t compressedSize) {
  const uint64_t bits = compressedSize > kHeaderSize ? (compressedSize - kHeaderSize) * 8 : 0;
  return bits + kF;
}

uint64_t LzhufStatedLength(const uint8_t* h) {
  const uint32_t raw = h[0] | (h[1] << 8) | (h[2] << 16) | (static_cast<uint32_t>(h[3]) << 24);
  return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(raw)));
}

int LzhufEncode(LzhufCodec& codec, LzhufSource& source, uint64_t size, LzhufSink& sink) {
  ResetCounters(codec);
  return EncodeAll(codec, source, size, sink);
}

int LzhufEncode(LzhufCodec& codec, LzhufSource& source, uint64_t size, LzhufSink& sink,
                const LzhufEncodeOptions& options) {
  ResetCounters(codec);
  const int threads = std::min(options.threads, kLzhufMaxThreads);
  size_t blockSize = options.blockSize == 0 ? kLzhufDefaultBlockSize : options.blockSize;
  blockSize = std::min(blockSize, kLzhufMaxBlockSize);
  return EncodeAll(codec, source, size, sink, threads, blockSize);
}

int LzhufAvailableThreads() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) != 0) return 1;
  return std::clamp(CPU_COUNT(&set), 1, kLzhufThreadsCap);
}

int LzhufDecode(LzhufCodec& codec, LzhufSource& source, LzhufSink& sink, uint64_t limit) {
  ResetCounters(codec);
  const size_t got = ReadFull(source, codec.inBlock, kLzhufIoBlockSize);
  if (got < kHeaderSize) return kLzhufNoHeader;
  std::memcpy(codec.header, codec.inBlock, kHeaderSize);
  const uint64_t size = LzhufStatedLength(codec.header);
  if (size == 0) return kLzhufEmpty;
  return DecodeBody(codec, source, got, sink, size, limit);
}

}  // namespace tk
