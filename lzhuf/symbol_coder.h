// The encoder's output step (internal to lzhuf/): one symbol, a literal or a match
// with its distance, through the adaptive Huffman code and the position code. Shared
// by the single-threaded encoder and the coder of the threaded one, so that both send
// the same bits for the same matches. Not thread-safe: works on the caller's LzhufCodec.
#ifndef TAVIK_LZHUF_SYMBOL_CODER_H_
#define TAVIK_LZHUF_SYMBOL_CODER_H_

#include <cstdint>

#include "lzhuf/bit_io.h"
#include "lzhuf/engine.h"
#include "lzhuf/huffman.h"
#include "lzhuf/match_tree.h"
#include "lzhuf/position_code.h"

namespace tk::lzhuf_detail {

inline void EncodeSymbol(LzhufCodec& codec, BitWriter& out, int c) {
  int length = 0;
  const uint32_t code = CodeAndUpdate(codec, c, length);
  out.Put(code, length);
  codec.lastCode = static_cast<uint16_t>(code);
  codec.lastCodeLength = static_cast<uint16_t>(length);
}

inline void EncodePosition(BitWriter& out, int distance) {
  const int group = distance >> kPositionLowBits;
  const int length = kPositionTables.prefixLength[group];
  const uint32_t prefix = kPositionTables.prefix[group] >> (8 - length);
  const uint32_t low = static_cast<uint32_t>(distance) & ((1u << kPositionLowBits) - 1);
  out.Put((prefix << kPositionLowBits) | low, length + kPositionLowBits);
}

// Sends the symbol at a position whose byte is *literal: the match `best` found by
// inserting the position when it is longer than 2 bytes (cut to the `available`
// bytes), else the literal. Returns the number of bytes it covers.
inline int EncodeStep(LzhufCodec& codec, BitWriter& out, const uint8_t* literal, unsigned best,
                      int available) {
  codec.matchLength = static_cast<int16_t>(ScoreLength(best));
  codec.matchPosition = static_cast<int16_t>(ScoreDistance(best));
  int length = codec.matchLength;
  if (length > available) length = available;
  if (length <= kLzhufThreshold) {
    EncodeSymbol(codec, out, *literal);
    return 1;
  }
  EncodeSymbol(codec, out, length + kMatchSymbolBase);
  EncodePosition(out, codec.matchPosition);
  return length;
}

}  // namespace tk::lzhuf_detail

#endif  // TAVIK_LZHUF_SYMBOL_CODER_H_
