// The decoding half of the engine. Output is staged in a window that keeps the
// last 4096 bytes in front of the block being filled, so matches copy straight
// from earlier output instead of through a ring.
#include <cstring>

#include "lzhuf/engine.h"
#include "lzhuf/huffman.h"
#include "lzhuf/position_code.h"

namespace tk::lzhuf_detail {

namespace {

// The window before any output: what the encoder's ring holds 4096 to 1 positions
// before the start, i.e. the 10 never-reached positions (zeros) and then spaces.
void FillHistory(uint8_t* window) {
  std::memset(window, 0, kF);
  std::memset(window + kF, kRingFill, kN - kF);
}

int DecodeSymbol(LzhufCodec& codec, BitReader& in) {
  int16_t path[kPathCapacity];
  int top = kPathCapacity;  // the path is stored from the end, so it ends leaf first
  uint64_t bits = in.bits();
  // Pointer-sized indices: no widening on the chain of dependent reads.
  intptr_t c = codec.son[kR];
  while (c < kT) {
    const intptr_t node = c + static_cast<intptr_t>(bits >> 63);
    bits <<= 1;
    path[--top] = static_cast<int16_t>(node);
    c = codec.son[node];
  }
  const int depth = kPathCapacity - top;
  in.Skip(depth);
  const int symbol = static_cast<int>(c - kT);
  UpdateAlongPath(codec, symbol, path + top, depth);
  return symbol;
}

int DecodeDistance(BitReader& in) {
  const uint32_t head = in.Peek(8);
  const int length = kPositionTables.lengthOfByte[head] + kPositionLowBits;
  const uint32_t low = in.Peek(length) & ((1u << kPositionLowBits) - 1);
  in.Skip(length);
  return ((kPositionTables.groupOfByte[head] << kPositionLowBits) | static_cast<int>(low)) + 1;
}

// Copies `length` (up to 10) bytes from `distance` back, byte after byte in effect:
// a source that runs into the bytes being written repeats them. May write up to 16
// bytes.
inline void CopyMatch(uint8_t* out, int distance, int length) {
  const uint8_t* from = out - distance;
  if (distance >= 8) {
    std::memcpy(out, from, 8);
    std::memcpy(out + 8, from + 8, 8);
  } else {
    for (int i = 0; i < length; ++i) out[i] = from[i];
  }
}

// Hands the block to the sink and keeps its last 4096 bytes as the new history.
bool Drain(uint8_t* window, uint8_t*& out, LzhufSink& sink) {
  uint8_t* const start = window + kN;
  if (out != start && !sink.Write(start, static_cast<size_t>(out - start))) return false;
  std::memmove(window, out - kN, kN);
  out = start;
  return true;
}

}  // namespace

int DecodeBody(LzhufCodec& codec, LzhufSource& source, size_t got, LzhufSink& sink, uint64_t size,
               uint64_t limit) {
  StartHuffman(codec);
  BitReader in(source, codec.inBlock, kHeaderSize, got);
  uint8_t* const window = codec.outBlock;
  uint8_t* const full = window + kN + kLzhufIoBlockSize;
  FillHistory(window);
  uint8_t* out = window + kN;
  uint64_t count = 0;
  while (count < size) {
    in.Refill();  // enough bits for the longest code and a distance
    const int c = DecodeSymbol(codec, in);
    if (c < 256) {
      *out++ = static_cast<uint8_t>(c);
      ++count;
    } else {
      const int length = c - kMatchSymbolBase;
      CopyMatch(out, DecodeDistance(in), length);
      out += length;
      count += static_cast<uint64_t>(length);
    }
    if (limit != 0 && count >= limit) break;
    if (out >= full && !Drain(window, out, sink)) return kLzhufWriteFailed;
  }
  codec.textSize = count;
  if (!Drain(window, out, sink) || !sink.Flush()) return kLzhufWriteFailed;
  return kLzhufOk;
}

}  // namespace tk::lzhuf_detail
