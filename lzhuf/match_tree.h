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

constexpr int kFirstRoot = kN + 1;  // children[N + 1 + b][1]: the root of the tree of byte b

// A candidate match packed as ((length - 1) << 12) | (4095 - distance), distance
// being ((r - p) mod 4096) - 1: the larger score is the better match, so among
// equal lengths the nearer one wins. Lengths below 3 are not matches; comparing
// them among themselves does no harm, as they only ever lead to a literal.
constexpr int kScoreShift = 12;
inline unsigned MatchScore(unsigned lengthLess1, unsigned r, unsigned p) {
  return (lengthLess1 << kScoreShift) | ((p - r) & kRingMask);
}
inline int ScoreLength(unsigned score) { return static_cast<int>(score >> kScoreShift) + 1; }
inline int ScoreDistance(unsigned score) {
  return static_cast<int>(kRingMask - (score & kRingMask));
}

// Empties all trees: every root and every link becomes NIL. So do the links of
// the scratch entry NIL, which DeleteNode relies on: they never equal a position.
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

// The right link of `pair` (left in the low half) when `key` > `node`, else the
// left one. Which it is is as good as random, so on x86-64 this is a compare and
// a conditional move, never a branch (compilers do not always see that).
inline int PickLink(uint64_t key, uint64_t node, uint32_t pair) {
  int link = static_cast<int16_t>(pair);
#if defined(__x86_64__)
  const int right = static_cast<int16_t>(pair >> 16);
  asm("cmpq %[node], %[key]\n\tcmova %[right], %[link]"
      : [link] "+r"(link)
      : [key] "r"(key), [node] "r"(node), [right] "r"(right)
      : "cc");
#else
  if (key > node) link = static_cast<int16_t>(pair >> 16);
#endif
  return link;
}

// Makes `q` the child that `p` was of p's parent, choosing the side by index
// rather than by a branch the processor cannot predict.
inline void TakeParentSlot(LzhufCodec& codec, int p, int q) {
  const int up = codec.parent[p];
  codec.children[up][codec.children[up][1] == p] = static_cast<int16_t>(q);
  codec.parent[q] = static_cast<int16_t>(up);
}

// Puts `r` in the place of node `p`, which leaves the tree with no links at all.
inline void ReplaceNode(LzhufCodec& codec, int p, int r) {
  int16_t* const links = codec.children[p];
  codec.children[r][0] = links[0];
  codec.children[r][1] = links[1];
  codec.parent[links[0]] = static_cast<int16_t>(r);
  codec.parent[links[1]] = static_cast<int16_t>(r);
  TakeParentSlot(codec, p, r);
  links[0] = links[1] = codec.parent[p] = kNil;
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
  int16_t(*const children)[2] = codec.children;
  // Byte 0 chose the tree; bytes 1 to 8, then byte 9, order the nodes within it.
  children[r][0] = children[r][1] = kNil;
  unsigned p = kFirstRoot + key.first;
  int next = children[p][1];
  bool goRight = true;  // the side of p the walk leaves by
  unsigned found = 0;
  while (next != kNil) {
    p = static_cast<unsigned>(next);
    const uint64_t node = LoadBigEndian(ring + p + 1);
    uint32_t pair;  // both children, read while the key bytes are on their way
    std::memcpy(&pair, children[p], sizeof pair);
    if (key.head != node) [[likely]] {
      // Bytes 1 .. n equal, n = leading zero bytes of the difference: length n + 1.
      if (kScored) {
        const unsigned sameBytes = static_cast<unsigned>(__builtin_clzll(key.head ^ node)) >> 3;
        const unsigned score = MatchScore(sameBytes, r, p);
        found = score > found ? score : found;
      }
      goRight = key.head > node;
      next = PickLink(key.head, node, pair);
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
    goRight = key9 > node9;
    next = PickLink(key9, node9, pair);
  }
  children[p][goRight] = static_cast<int16_t>(r);
  codec.parent[r] = static_cast<int16_t>(p);
  if (kScored) best = found;
  return kNil;
}

// Removes position `p` from its tree (a node with two children gives way to the
// rightmost node of its left subtree). A position in no tree has no children and
// parent NIL (see InitTrees and ReplaceNode), so the one-child path below passes
// over it without harm; that spares a branch the processor mispredicts.
inline void DeleteNode(LzhufCodec& codec, int p) {
  int16_t(*const children)[2] = codec.children;
  int16_t* const parent = codec.parent;
  const int left = children[p][0];
  const int right = children[p][1];
  const bool both = (left != kNil) & (right != kNil);
  int q = left == kNil ? right : left;
  if (both && children[q][1] != kNil) [[unlikely]] {
    do {
      q = children[q][1];
    } while (children[q][1] != kNil);
    children[parent[q]][1] = children[q][0];
    parent[children[q][0]] = parent[q];
    children[q][0] = static_cast<int16_t>(left);
    parent[left] = static_cast<int16_t>(q);
    children[q][1] = static_cast<int16_t>(right);
    parent[right] = static_cast<int16_t>(q);
  } else {
    // With two children the left one, lacking a right child, takes p's right
    // subtree; otherwise the writes go to NIL's scratch entries (children[NIL][1]
    // stays NIL), which spares a branch the processor cannot predict.
    children[both ? q : kNil][1] = static_cast<int16_t>(both ? right : kNil);
    parent[both ? right : kNil] = static_cast<int16_t>(q);
  }
  TakeParentSlot(codec, p, q);
  parent[p] = kNil;
}

}  // namespace tk::lzhuf_detail

#endif  // TAVIK_LZHUF_MATCH_TREE_H_
