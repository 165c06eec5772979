// The encoder's dictionary search (internal to lzhuf/): every ring position in the
// window is a node of one of 256 binary search trees, one per first byte, ordered
// by the following 9 bytes. Inserting a position finds the longest earlier match on
// the way down. The functions are inline because the encoder calls them for every
// byte. Not thread-safe: works on the caller's LzhufCodec.
#ifndef TAVIK_LZHUF_MATCH_TREE_H_
#define TAVIK_LZHUF_MATCH_TREE_H_

#include <cstdint>
#include <cstring>

#include "lzhuf/engine.h"

namespace tk::lzhuf_detail {

constexpr unsigned kRingMask = kN - 1;
constexpr int kFirstRoot = kN + 1;  // right[N + 1 + b] is the root of the tree of byte b

// A candidate match packed as ((length - 1) << 12) | (4095 - distance), distance
// being ((r - p) mod 4096) - 1: the larger score is the better match, so among
// equal lengths the nearer one wins. Lengths below 3 are not matches; comparing
// them among themselves does no harm, as they only ever lead to a literal.
constexpr int kScoreShift = 12;
inline unsigned MatchScore(unsigned lengthLess1, unsigned r, unsigned p) {
  return (lengthLess1 << kScoreShift) | ((p - r) & kRingMask);
}
inline int ScoreLength(unsigned score) { return static_cast<int>(score >> kScoreShift) + 1; }
inline int ScoreDistance(unsigned score) { return static_cast<int>(kRingMask - (score & kRingMask)); }

// Empties all trees: every root and every parent link becomes NIL.
void InitTrees(LzhufCodec& codec);

// The 8 bytes from `at`, first byte most significant, so that comparing two such
// values orders them as the bytes do.
inline uint64_t LoadBigEndian(const uint8_t* at) {
  uint64_t v;
  std::memcpy(&v, at, sizeof v);
  return __builtin_bswap64(v);
}

// The 10 bytes of a position held in registers: the encoder shifts each new
// byte in rather than reading back bytes it has only just stored in the ring
// (a wide load of freshly stored bytes stalls the processor).
struct Key {
  unsigned first;  // byte 0: chooses the tree
  uint64_t head;   // bytes 1 to 8, byte 1 most significant
  unsigned last;   // byte 9
};

inline Key KeyAt(const uint8_t* ring, unsigned r) {
  return Key{ring[r], LoadBigEndian(ring + r + 1), ring[r + kF - 1]};
}

// The key of the next position, `byte` being its byte 9.
inline Key NextKey(const Key& key, unsigned byte) {
  return Key{static_cast<unsigned>(key.head >> 56), (key.head << 8) | key.last, byte};
}

// True when ring position `p` holds the whole of `key`.
inline bool HoldsKey(const uint8_t* ring, unsigned p, const Key& key) {
  return LoadBigEndian(ring + p + 1) == key.head && ring[p] == key.first &&
         ring[p + kF - 1] == key.last;
}

// Makes `q` the child that `p` was of p's parent. Entry N of left and parent is a
// scratch slot: the write that is not wanted goes there, which saves a branch the
// processor cannot predict. (A root's child is always its right one.)
inline void TakeParentSlot(LzhufCodec& codec, int p, int q) {
  const int up = codec.parent[p];
  const bool isRight = codec.right[up] == p;
  codec.right[up] = static_cast<int16_t>(isRight ? q : codec.right[up]);
  codec.left[isRight ? kNil : up] = static_cast<int16_t>(q);
  codec.parent[q] = static_cast<int16_t>(up);
}

// Puts `r` in the place of node `p`, which leaves the tree.
inline void ReplaceNode(LzhufCodec& codec, int p, int r) {
  codec.left[r] = codec.left[p];
  codec.right[r] = codec.right[p];
  codec.parent[codec.left[p]] = static_cast<int16_t>(r);
  codec.parent[codec.right[p]] = static_cast<int16_t>(r);
  TakeParentSlot(codec, p, r);
  codec.parent[p] = kNil;
}

// Inserts ring position `r` and sets `best` to the score of the longest match among
// the nodes passed (the same as the longest in the whole tree; the nearer among
// equals). A node matching all 10 bytes is replaced by `r`; otherwise `r` becomes
// a leaf. `hint` is any ring position that may hold r's whole key, tried first.
// Returns the hint for r + 1: after a full match of r against q, q + 1 is likely
// to hold the next key; after a leaf insertion there is no good guess.
// Without `kScored` the match is not wanted (a position inside a match): `best` is
// left alone and the walk does less.
template <bool kScored = true>
inline int InsertNode(LzhufCodec& codec, int r, const Key& key, int hint, unsigned& best) {
  const uint8_t* const ring = codec.ring;
  // Keys are unique within a tree, so a node holding r's whole key is where the
  // walk would end, with nothing as long met on the way: take it directly.
  if (hint != kNil && codec.parent[hint] != kNil && HoldsKey(ring, hint, key)) {
    ReplaceNode(codec, hint, r);
    if (kScored) best = MatchScore(kF - 1, r, hint);
    return (hint + 1) & kRingMask;
  }
  int16_t* const left = codec.left;
  int16_t* const right = codec.right;
  // Byte 0 chose the tree; bytes 1 to 8, then byte 9, order the nodes within it.
  left[r] = right[r] = kNil;
  unsigned p = kFirstRoot + key.first;
  int16_t* link = &right[p];
  int next = *link;
  unsigned found = 0;
  while (next != kNil) {
    p = static_cast<unsigned>(next);
    const uint64_t node = LoadBigEndian(ring + p + 1);
    if (key.head != node) [[likely]] {
      // Bytes 1 .. n equal, n = leading zero bytes of the difference: length n + 1.
      if (kScored) {
        const unsigned sameBytes = static_cast<unsigned>(__builtin_clzll(key.head ^ node)) >> 3;
        const unsigned score = MatchScore(sameBytes, r, p);
        found = score > found ? score : found;
      }
      link = key.head > node ? &right[p] : &left[p];
      next = *link;
      continue;
    }
    const unsigned key9 = key.last;
    const unsigned node9 = ring[p + kF - 1];
    const unsigned score = MatchScore(key9 == node9 ? kF - 1 : kF - 2, r, p);
    found = score > found ? score : found;
    if (key9 == node9) {
      ReplaceNode(codec, static_cast<int>(p), r);
      if (kScored) best = found;
      return static_cast<int>((p + 1) & kRingMask);
    }
    link = key9 > node9 ? &right[p] : &left[p];
    next = *link;
  }
  *link = static_cast<int16_t>(r);
  codec.parent[r] = static_cast<int16_t>(p);
  if (kScored) best = found;
  return kNil;
}

// Removes position `p` from its tree (a node with two children gives way to the
// rightmost node of its left subtree); a position in no tree is ignored.
inline void DeleteNode(LzhufCodec& codec, int p) {
  int16_t* const left = codec.left;
  int16_t* const right = codec.right;
  int16_t* const parent = codec.parent;
  if (parent[p] == kNil) return;
  int q;
  if (right[p] == kNil) {
    q = left[p];
  } else if (left[p] == kNil) {
    q = right[p];
  } else {
    q = left[p];
    if (right[q] != kNil) {
      do {
        q = right[q];
      } while (right[q] != kNil);
      right[parent[q]] = left[q];
      parent[left[q]] = parent[q];
      left[q] = left[p];
      parent[left[p]] = static_cast<int16_t>(q);
    }
    right[q] = right[p];
    parent[right[p]] = static_cast<int16_t>(q);
  }
  TakeParentSlot(codec, p, q);
  parent[p] = kNil;
}

}  // namespace tk::lzhuf_detail

#endif  // TAVIK_LZHUF_MATCH_TREE_H_
