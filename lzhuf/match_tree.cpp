#include "lzhuf/match_tree.h"

#include <cstring>

namespace tk::lzhuf_detail {

namespace {

constexpr unsigned kMask = kN - 1;
constexpr int kFirstRoot = kN + 1;
constexpr int kScoreShift = 12;

// Puts `r` in the place of node `p`, which leaves the tree.
void ReplaceNode(LzhufCodec& codec, int p, int r) {
  int16_t* const left = codec.left;
  int16_t* const right = codec.right;
  int16_t* const parent = codec.parent;
  const int up = parent[p];
  parent[r] = static_cast<int16_t>(up);
  left[r] = left[p];
  right[r] = right[p];
  parent[left[p]] = static_cast<int16_t>(r);
  parent[right[p]] = static_cast<int16_t>(r);
  if (right[up] == p) {
    right[up] = static_cast<int16_t>(r);
  } else {
    left[up] = static_cast<int16_t>(r);
  }
  parent[p] = kNil;
}

// The 8 bytes from `at`, first byte most significant, so that comparing two such
// values orders them as the bytes do.
inline uint64_t LoadBigEndian(const uint8_t* at) {
  uint64_t v;
  std::memcpy(&v, at, sizeof v);
  return __builtin_bswap64(v);
}

inline uint64_t Load64(const uint8_t* at) {
  uint64_t v;
  std::memcpy(&v, at, sizeof v);
  return v;
}

// True when the 10 bytes at ring positions `a` and `b` are equal.
inline bool SameKey(const uint8_t* ring, int a, int b) {
  return Load64(ring + a) == Load64(ring + b) && ring[a + 8] == ring[b + 8] &&
         ring[a + 9] == ring[b + 9];
}

// A candidate as (length << 12) | (4095 - distance): larger is better, so equal
// lengths prefer the nearer match. Distance is ((r - p) mod 4096) - 1.
inline unsigned Score(unsigned length, unsigned r, unsigned p) {
  return (length << kScoreShift) | (kN - ((r - p) & kMask));
}

void SetMatch(LzhufCodec& codec, unsigned best) {
  codec.matchLength = static_cast<int16_t>(best >> kScoreShift);
  codec.matchPosition = static_cast<int16_t>(best == 0 ? 0 : kMask - (best & kMask));
}

}  // namespace

void InitTrees(LzhufCodec& codec) {
  for (int i = kFirstRoot; i <= kN + 256; ++i) codec.right[i] = kNil;
  for (int i = 0; i < kN; ++i) codec.parent[i] = kNil;
}

int InsertNode(LzhufCodec& codec, int r, int hint) {
  const uint8_t* const ring = codec.ring;
  // Keys are unique within the trees, so a node holding r's whole key is where
  // the walk would end, with nothing as long met on the way: take it directly.
  if (hint != kNil && codec.parent[hint] != kNil && SameKey(ring, r, hint)) {
    ReplaceNode(codec, hint, r);
    SetMatch(codec, Score(kF, r, hint));
    return hint;
  }
  int16_t* const left = codec.left;
  int16_t* const right = codec.right;
  // Byte 0 chose the tree; bytes 1 to 8, then byte 9, order the nodes within it.
  const uint64_t key = LoadBigEndian(ring + r + 1);
  left[r] = right[r] = kNil;
  unsigned p = kFirstRoot + ring[r];
  int16_t* link = &right[p];
  unsigned best = 0;
  while (*link != kNil) {
    p = static_cast<unsigned>(*link);
    const uint64_t node = LoadBigEndian(ring + p + 1);
    if (key != node) {
      const unsigned length = (static_cast<unsigned>(__builtin_clzll(key ^ node)) >> 3) + 1;
      const unsigned score = length > kLzhufThreshold ? Score(length, r, p) : 0;
      best = score > best ? score : best;
      link = key > node ? &right[p] : &left[p];
      continue;
    }
    const unsigned key9 = ring[r + kF - 1];
    const unsigned node9 = ring[p + kF - 1];
    const unsigned score = Score(key9 == node9 ? kF : kF - 1, r, p);
    best = score > best ? score : best;
    if (key9 == node9) {
      ReplaceNode(codec, static_cast<int>(p), r);
      SetMatch(codec, best);
      return static_cast<int>(p);
    }
    link = key9 > node9 ? &right[p] : &left[p];
  }
  *link = static_cast<int16_t>(r);
  codec.parent[r] = static_cast<int16_t>(p);
  SetMatch(codec, best);
  return kNil;
}

void DeleteNode(LzhufCodec& codec, int p) {
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
  const int up = parent[p];
  parent[q] = static_cast<int16_t>(up);
  if (right[up] == p) {
    right[up] = static_cast<int16_t>(q);
  } else {
    left[up] = static_cast<int16_t>(q);
  }
  parent[p] = kNil;
}

}  // namespace tk::lzhuf_detail
