// The adaptive Huffman code of the LZHUF symbols (internal to lzhuf/). Encoder and
// decoder run the same updates in the same order, so both sides always hold the
// same tree. Nodes are kept in order of non-decreasing frequency, siblings side by
// side; a child entry of T or more is the leaf of symbol (entry - T).
// Not thread-safe: works on the caller's LzhufCodec.
#ifndef TAVIK_LZHUF_HUFFMAN_H_
#define TAVIK_LZHUF_HUFFMAN_H_

#include <cstdint>

#include "lzhuf/lzhuf.h"

namespace tk::lzhuf_detail {

constexpr int kT = kLzhufTreeNodes;
constexpr int kR = kLzhufRoot;

// Every leaf with weight 1, internal nodes built pairwise in order.
void StartHuffman(LzhufCodec& codec);

// Halves the weights (rounding up), rebuilds the tree from the leaves in their
// present order; ties place the new internal node behind existing ones.
void RebuildHuffman(LzhufCodec& codec);

// Counts one more occurrence of symbol `c`, moving nodes to keep the order.
void UpdateHuffman(LzhufCodec& codec, int c);

// No code word is longer than this: the tree keeps its weights ordered with
// siblings side by side (a Huffman tree), so a leaf at depth d needs a root weight
// of at least the Fibonacci number F(d + 2), and the root never exceeds 0x8000.
constexpr int kMaxCodeLength = 24;

// Room for the nodes of one path, with a wide margin over kMaxCodeLength.
constexpr int kPathCapacity = 64;

// The code word of symbol `c`: its bits from the root down, right-aligned in the
// result, with the number of bits in `length`. The positions of the nodes passed,
// leaf first and root excluded, go to `path`.
inline uint32_t SymbolCode(const LzhufCodec& codec, int c, int& length, int16_t* path) {
  uint32_t code = 0;
  int bits = 0;
  int k = codec.prnt[c + kT];
  do {
    path[bits] = static_cast<int16_t>(k);
    code |= static_cast<uint32_t>(k & 1) << bits;
    ++bits;
    k = codec.prnt[k];
  } while (k != kR);
  length = bits;
  return code;
}

// The encoder's step: returns the code word of symbol `c` (as SymbolCode, from
// the tree as it stands) in `length` bits and counts the occurrence. One climb
// from the leaf serves both while no node moves: no node above a moving one can
// be affected by the move, as its weight is at least the moving node's new one.
uint32_t CodeAndUpdate(LzhufCodec& codec, int c, int& length);

// UpdateHuffman for symbol `c` whose path from the leaf (`path[0]`) up to the
// root's child (`path[depth - 1]`) is known. While no node moves, the path is
// followed without reading parent links, so the increments do not wait on one
// another.
void UpdateAlongPath(LzhufCodec& codec, int c, const int16_t* path, int depth);

}  // namespace tk::lzhuf_detail

#endif  // TAVIK_LZHUF_HUFFMAN_H_
