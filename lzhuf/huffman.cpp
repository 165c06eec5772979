#include "lzhuf/huffman.h"

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tk::lzhuf_detail {

namespace {

constexpr uint16_t kSentinelFreq = 0xFFFF;

// Parent links from the child entries: a leaf has one parent entry, an internal
// child pair two.
void LinkParents(LzhufCodec& codec) {
  for (int i = 0; i < kT; ++i) {
    const int k = codec.son[i];
    codec.prnt[k] = static_cast<int16_t>(i);
    if (k < kT) codec.prnt[k + 1] = static_cast<int16_t>(i);
  }
}

}  // namespace

void StartHuffman(LzhufCodec& codec) {
  for (int i = 0; i < kLzhufSymbols; ++i) {
    codec.freq[i] = 1;
    codec.son[i] = static_cast<int16_t>(i + kT);
    codec.prnt[i + kT] = static_cast<int16_t>(i);
  }
  for (int i = 0, j = kLzhufSymbols; j <= kR; i += 2, ++j) {
    codec.freq[j] = static_cast<uint16_t>(codec.freq[i] + codec.freq[i + 1]);
    codec.son[j] = static_cast<int16_t>(i);
    codec.prnt[i] = codec.prnt[i + 1] = static_cast<int16_t>(j);
  }
  for (int i = kT; i < kT + 8; ++i) codec.freq[i] = kSentinelFreq;
  codec.prnt[kR] = 0;
}

void RebuildHuffman(LzhufCodec& codec) {
  int j = 0;
  for (int i = 0; i < kT; ++i) {
    if (codec.son[i] >= kT) {
      codec.freq[j] = static_cast<uint16_t>((codec.freq[i] + 1) / 2);
      codec.son[j] = codec.son[i];
      ++j;
    }
  }
  for (int i = 0, n = kLzhufSymbols; n < kT; i += 2, ++n) {
    const uint16_t f = static_cast<uint16_t>(codec.freq[i] + codec.freq[i + 1]);
    int k = n - 1;
    while (f < codec.freq[k]) --k;
    ++k;
    const size_t moved = static_cast<size_t>(n - k) * sizeof(uint16_t);
    std::memmove(&codec.freq[k + 1], &codec.freq[k], moved);
    codec.freq[k] = f;
    std::memmove(&codec.son[k + 1], &codec.son[k], moved);
    codec.son[k] = static_cast<int16_t>(i);
  }
  LinkParents(codec);
}

namespace {

// The first position from `from` on whose weight is at least `k` (the sentinel at
// T stops the search). Runs of equal weights have unpredictable lengths, so eight
// weights are compared at once where SSE2 is there.
inline int FirstAtLeast(const uint16_t* freq, int from, unsigned k) {
#if defined(__SSE2__)
  // Unsigned order through signed compares: flip the top bit of both sides.
  const __m128i flip = _mm_set1_epi16(static_cast<int16_t>(0x8000));
  const __m128i bound = _mm_xor_si128(_mm_set1_epi16(static_cast<int16_t>(k)), flip);
  for (int i = from;; i += 8) {
    __m128i weights;
    std::memcpy(&weights, freq + i, sizeof weights);
    const __m128i below = _mm_cmplt_epi16(_mm_xor_si128(weights, flip), bound);
    const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(below));
    if (mask != 0xFFFF) return i + (__builtin_ctz(~mask) >> 1);
  }
#else
  while (k > freq[from]) ++from;
  return from;
#endif
}

// Node `c` has just grown to `k`, past the next position: exchanges it with the
// last node still below `k` and returns that position.
int MoveUp(LzhufCodec& codec, int c, unsigned k) {
  const int l = FirstAtLeast(codec.freq, c + 2, k) - 1;
  codec.freq[c] = codec.freq[l];
  codec.freq[l] = static_cast<uint16_t>(k);
  // A leaf has one parent link, a node two (its children sit side by side); the
  // second write of a leaf goes to the scratch slot instead of a branch.
  constexpr int kScratch = kT + kLzhufSymbols;
  const int i = codec.son[c];
  codec.prnt[i] = static_cast<int16_t>(l);
  codec.prnt[i < kT ? i + 1 : kScratch] = static_cast<int16_t>(l);
  const int j = codec.son[l];
  codec.son[l] = static_cast<int16_t>(i);
  codec.prnt[j] = static_cast<int16_t>(c);
  codec.prnt[j < kT ? j + 1 : kScratch] = static_cast<int16_t>(c);
  codec.son[c] = static_cast<int16_t>(j);
  return l;
}

// Increments from node `c` up to the root, following the parent links.
void IncrementFrom(LzhufCodec& codec, intptr_t c) {
  do {
    const unsigned k = ++codec.freq[c];
    if (k > codec.freq[c + 1]) c = MoveUp(codec, static_cast<int>(c), k);
    c = codec.prnt[c];
  } while (c != 0);
}

}  // namespace

void UpdateHuffman(LzhufCodec& codec, int c) {
  if (codec.freq[kR] == kLzhufMaxFreq) RebuildHuffman(codec);
  IncrementFrom(codec, codec.prnt[c + kT]);
}

uint32_t CodeAndUpdate(LzhufCodec& codec, int c, int& length) {
  if (codec.freq[kR] == kLzhufMaxFreq) {  // the code comes from the tree before the rebuild
    int16_t path[kPathCapacity];
    const uint32_t code = SymbolCode(codec, c, length, path);
    UpdateHuffman(codec, c);
    return code;
  }
  uint32_t code = 0;
  int bits = 0;
  intptr_t n = codec.prnt[c + kT];
  for (;;) {
    code |= static_cast<uint32_t>(n & 1) << bits;
    ++bits;
    const unsigned k = ++codec.freq[n];
    intptr_t up = codec.prnt[n];
    if (k > codec.freq[n + 1]) {
      const int moved = MoveUp(codec, static_cast<int>(n), k);
      // The rest of the code follows the old path, read before anything above moves.
      for (; up != kR; up = codec.prnt[up]) {
        code |= static_cast<uint32_t>(up & 1) << bits;
        ++bits;
      }
      IncrementFrom(codec, codec.prnt[moved]);
      length = bits;
      return code;
    }
    if (up == kR) break;
    n = up;
  }
  ++codec.freq[kR];  // the root never moves: the sentinel above it is 0xFFFF
  length = bits;
  return code;
}

void UpdateAlongPath(LzhufCodec& codec, int c, const int16_t* path, int depth) {
  if (codec.freq[kR] == kLzhufMaxFreq) {
    RebuildHuffman(codec);  // every position changes: the path no longer holds
    IncrementFrom(codec, codec.prnt[c + kT]);
    return;
  }
  for (int i = 0; i < depth; ++i) {
    const intptr_t n = path[i];
    const unsigned k = ++codec.freq[n];
    if (k > codec.freq[n + 1]) {
      const int moved = MoveUp(codec, static_cast<int>(n), k);
      IncrementFrom(codec, codec.prnt[moved]);
      return;
    }
  }
  ++codec.freq[kR];  // the root never moves: the sentinel above it is 0xFFFF
}

}  // namespace tk::lzhuf_detail
