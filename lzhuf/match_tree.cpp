#include "lzhuf/match_tree.h"

namespace tk::lzhuf_detail {

namespace {

constexpr int kMask = kN - 1;
constexpr int kFirstRoot = kN + 1;

// Puts `r` in the place of node `p`, which leaves the tree.
void ReplaceNode(LzhufCodec& codec, int p, int r) {
  codec.parent[r] = codec.parent[p];
  codec.left[r] = codec.left[p];
  codec.right[r] = codec.right[p];
  codec.parent[codec.left[p]] = static_cast<int16_t>(r);
  codec.parent[codec.right[p]] = static_cast<int16_t>(r);
  const int up = codec.parent[p];
  if (codec.right[up] == p) {
    codec.right[up] = static_cast<int16_t>(r);
  } else {
    codec.left[up] = static_cast<int16_t>(r);
  }
  codec.parent[p] = kNil;
}

}  // namespace

void InitTrees(LzhufCodec& codec) {
  for (int i = kFirstRoot; i <= kN + 256; ++i) codec.right[i] = kNil;
  for (int i = 0; i < kN; ++i) codec.parent[i] = kNil;
}

void InsertNode(LzhufCodec& codec, int r) {
  const uint8_t* key = &codec.ring[r];
  int p = kFirstRoot + key[0];
  int cmp = 1;
  codec.left[r] = codec.right[r] = kNil;
  int bestLength = 0;
  int bestPosition = 0;
  for (;;) {
    int16_t* link = cmp >= 0 ? &codec.right[p] : &codec.left[p];
    if (*link == kNil) {
      *link = static_cast<int16_t>(r);
      codec.parent[r] = static_cast<int16_t>(p);
      break;
    }
    p = *link;
    int i = 1;
    for (; i < kF; ++i) {
      cmp = key[i] - codec.ring[p + i];
      if (cmp != 0) break;
    }
    if (i > kLzhufThreshold) {
      const int distance = ((r - p) & kMask) - 1;
      if (i > bestLength) {
        bestLength = i;
        bestPosition = distance;
      } else if (i == bestLength && distance < bestPosition) {
        bestPosition = distance;
      }
      if (bestLength >= kF) {
        ReplaceNode(codec, p, r);
        break;
      }
    }
  }
  codec.matchLength = static_cast<int16_t>(bestLength);
  codec.matchPosition = static_cast<int16_t>(bestPosition);
}

void DeleteNode(LzhufCodec& codec, int p) {
  if (codec.parent[p] == kNil) return;
  int q;
  if (codec.right[p] == kNil) {
    q = codec.left[p];
  } else if (codec.left[p] == kNil) {
    q = codec.right[p];
  } else {
    q = codec.left[p];
    if (codec.right[q] != kNil) {
      do {
        q = codec.right[q];
      } while (codec.right[q] != kNil);
      codec.right[codec.parent[q]] = codec.left[q];
      codec.parent[codec.left[q]] = codec.parent[q];
      codec.left[q] = codec.left[p];
      codec.parent[codec.left[p]] = static_cast<int16_t>(q);
    }
    codec.right[q] = codec.right[p];
    codec.parent[codec.right[p]] = static_cast<int16_t>(q);
  }
  codec.parent[q] = codec.parent[p];
  const int up = codec.parent[p];
  if (codec.right[up] == p) {
    codec.right[up] = static_cast<int16_t>(q);
  } else {
    codec.left[up] = static_cast<int16_t>(q);
  }
  codec.parent[p] = kNil;
}

}  // namespace tk::lzhuf_detail
