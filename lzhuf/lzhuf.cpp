// The coding engine shared by the memory and file front ends.
#include "lzhuf/lzhuf.h"

#include <cstring>

#include "lzhuf/bit_io.h"
#include "lzhuf/huffman.h"
#include "lzhuf/match_tree.h"
#include "lzhuf/position_code.h"

namespace tk {

using namespace lzhuf_detail;

namespace {

constexpr int kMask = kN - 1;
constexpr int kStart = kN - kF;  // ring position of the first input byte
constexpr int kHeaderSize = 4;
constexpr int kMatchSymbolBase = 256 - kLzhufThreshold - 1;  // length L is symbol L + 253
constexpr uint8_t kRingFill = ' ';

void ResetCounters(LzhufCodec& codec) {
  codec.outBits = codec.inBits = 0;
  codec.outCount = codec.inCount = 0;
  codec.textSize = codec.codeSize = 0;
}

// Spaces before the start position; zeros from there on, so that the bytes that
// short inputs never reach compare the same in every run.
void FillRing(LzhufCodec& codec) {
  std::memset(codec.ring, kRingFill, kStart);
  std::memset(codec.ring + kStart, 0, sizeof(codec.ring) - kStart);
}

// ---- Encoding ------------------------------------------------------------------

void EncodeSymbol(LzhufCodec& codec, BitWriter& out, int c) {
  int length = 0;
  const uint32_t code = SymbolCode(codec, c, length);
  out.Put(code, length);
  codec.lastCode = static_cast<uint16_t>(code);
  codec.lastCodeLength = static_cast<uint16_t>(length);
  UpdateHuffman(codec, c);
}

void EncodePosition(BitWriter& out, int distance) {
  const int group = distance >> kPositionLowBits;
  const int length = kPositionTables.prefixLength[group];
  const uint32_t prefix = kPositionTables.prefix[group] >> (8 - length);
  const uint32_t low = static_cast<uint32_t>(distance) & ((1u << kPositionLowBits) - 1);
  out.Put((prefix << kPositionLowBits) | low, length + kPositionLowBits);
}

// Sends the symbol at `r`: the match found by the last insertion when it is
// longer than 2 bytes (cut to the `available` bytes), else a literal. Returns the
// number of bytes it covers.
int EncodeStep(LzhufCodec& codec, BitWriter& out, int r, int available) {
  int length = codec.matchLength;
  if (length > available) length = available;
  if (length <= kLzhufThreshold) {
    EncodeSymbol(codec, out, codec.ring[r]);
    return 1;
  }
  EncodeSymbol(codec, out, length + kMatchSymbolBase);
  EncodePosition(out, codec.matchPosition);
  return length;
}

int EncodeBody(LzhufCodec& codec, LzhufSource& source, BitWriter& out) {
  StartHuffman(codec);
  InitTrees(codec);
  FillRing(codec);
  ByteReader in(source, codec.inBlock);
  int r = kStart;
  int s = 0;
  int len = 0;
  for (int c; len < kF && (c = in.Next()) >= 0; ++len) codec.ring[r + len] = static_cast<uint8_t>(c);
  codec.textSize = static_cast<uint64_t>(len);
  for (int i = 1; i <= kF; ++i) InsertNode(codec, r - i);
  InsertNode(codec, r);
  do {
    const int covered = EncodeStep(codec, out, r, len);
    if (out.failed()) return kLzhufWriteFailed;
    int i = 0;
    for (int c; i < covered && (c = in.Next()) >= 0; ++i) {
      DeleteNode(codec, s);
      codec.ring[s] = static_cast<uint8_t>(c);
      if (s < kF - 1) codec.ring[s + kN] = static_cast<uint8_t>(c);
      s = (s + 1) & kMask;
      r = (r + 1) & kMask;
      InsertNode(codec, r);
    }
    codec.textSize += static_cast<uint64_t>(i);
    for (; i < covered; ++i) {
      DeleteNode(codec, s);
      s = (s + 1) & kMask;
      r = (r + 1) & kMask;
      if (--len != 0) InsertNode(codec, r);
    }
  } while (len > 0);
  return kLzhufOk;
}

// ---- Decoding ------------------------------------------------------------------

// Output bytes staged in a block; a failed write is remembered.
class ByteWriter {
 public:
  ByteWriter(LzhufSink& sink, uint8_t* block) : sink_(sink), block_(block) {}
  void Put(uint8_t byte) {
    block_[used_++] = byte;
    if (used_ == kLzhufIoBlockSize) Drain();
  }
  bool Finish() {
    Drain();
    if (!failed_ && !sink_.Flush()) failed_ = true;
    return !failed_;
  }
  bool failed() const { return failed_; }

 private:
  void Drain() {
    if (used_ != 0 && !failed_ && !sink_.Write(block_, used_)) failed_ = true;
    used_ = 0;
  }
  LzhufSink& sink_;
  uint8_t* block_;
  size_t used_ = 0;
  bool failed_ = false;
};

int DecodeSymbol(LzhufCodec& codec, BitReader& in) {
  in.Refill();
  int c = codec.son[kR];
  while (c < kT) c = codec.son[c + in.Bit()];
  c -= kT;
  UpdateHuffman(codec, c);
  return c;
}

int DecodePosition(BitReader& in) {
  in.Refill();
  const uint32_t head = in.Peek(8);
  const int length = kPositionTables.lengthOfByte[head] + kPositionLowBits;
  const uint32_t low = in.Peek(length) & ((1u << kPositionLowBits) - 1);
  in.Skip(length);
  return (kPositionTables.groupOfByte[head] << kPositionLowBits) | static_cast<int>(low);
}

void DecodeBody(LzhufCodec& codec, BitReader& in, ByteWriter& out, uint64_t size,
                uint64_t limit) {
  StartHuffman(codec);
  FillRing(codec);
  int r = kStart;
  uint64_t count = 0;
  while (count < size && !out.failed()) {
    const int c = DecodeSymbol(codec, in);
    if (c < 256) {
      out.Put(static_cast<uint8_t>(c));
      codec.ring[r] = static_cast<uint8_t>(c);
      r = (r + 1) & kMask;
      ++count;
    } else {
      const int from = (r - DecodePosition(in) - 1) & kMask;
      const int length = c - kMatchSymbolBase;
      for (int k = 0; k < length; ++k) {
        const uint8_t byte = codec.ring[(from + k) & kMask];
        out.Put(byte);
        codec.ring[r] = byte;
        r = (r + 1) & kMask;
      }
      count += static_cast<uint64_t>(length);
    }
    if (limit != 0 && count >= limit) break;
  }
  codec.textSize = count;
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
  BitReader in(source, codec.inBlock, kHeaderSize, got);
  ByteWriter out(sink, codec.outBlock);
  DecodeBody(codec, in, out, size, limit);
  return out.Finish() ? kLzhufOk : kLzhufWriteFailed;
}

}  // namespace tk
