// The public entry points of the engine: the header, the empty cases and the
// result codes around the encoding and decoding halves.
#include "lzhuf/lzhuf.h"

#include <cstring>

#include "lzhuf/bit_io.h"
#include "lzhuf/engine.h"

namespace tk {

using namespace lzhuf_detail;

namespace {

constexpr int kHeaderSize = 4;

void ResetCounters(LzhufCodec& codec) {
  codec.outBits = codec.inBits = 0;
  codec.outCount = codec.inCount = 0;
  codec.textSize = codec.codeSize = 0;
}

}  // namespace

uint64_t LzhufStatedLength(const uint8_t* h) {
  const uint32_t raw = h[0] | (h[1] << 8) | (h[2] << 16) | (static_cast<uint32_t>(h[3]) << 24);
  return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(raw)));
}

int LzhufEncode(LzhufCodec& codec, LzhufSource& source, uint64_t size, LzhufSink& sink) {
  ResetCounters(codec);
  BitWriter out(sink, codec.outBlock);
  for (int i = 0; i < kHeaderSize; ++i) {
    codec.header[i] = static_cast<uint8_t>(size >> (8 * i));
    out.Put(codec.header[i], 8);
  }
  int result = kLzhufEmpty;
  if (size != 0) result = EncodeBody(codec, source, out);
  if (result == kLzhufWriteFailed || !out.Finish()) result = kLzhufWriteFailed;
  codec.codeSize = out.written();
  return result;
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
