// The encoding half of the engine: LZSS parsing over the search trees, symbols
// through the adaptive Huffman code, distances through the position code.
#include <cstring>

#include "lzhuf/engine.h"
#include "lzhuf/match_tree.h"
#include "lzhuf/symbol_coder.h"

namespace tk::lzhuf_detail {

namespace {

// Spaces before the start position; zeros from there on, so that the bytes that
// short inputs never reach compare the same in every run.
void FillRing(LzhufCodec& codec) {
  std::memset(codec.ring, kRingFill, kStart);
  std::memset(codec.ring + kStart, 0, sizeof(codec.ring) - kStart);
}

// Codes everything `source` yields after the header, which `out` already holds.
int EncodeBody(LzhufCodec& codec, LzhufSource& source, BitWriter& out) {
  StartHuffman(codec);
  InitTrees(codec);
  FillRing(codec);
  ByteReader in(source, codec.inBlock);
  int r = kStart;
  int s = 0;
  int len = 0;
  for (int c; len < kF && (c = in.Next()) >= 0; ++len)
    codec.ring[r + len] = static_cast<uint8_t>(c);
  codec.textSize = static_cast<uint64_t>(len);
  unsigned best = 0;
  for (int i = 1; i <= kF; ++i) InsertNode(codec, r - i, KeyAt(codec.ring, r - i), kNil, best);
  Key key = KeyAt(codec.ring, r);
  int hint = InsertNode(codec, r, key, kNil, best);
  do {
    const int covered = EncodeStep(codec, out, &codec.ring[r], best, len);
    if (out.failed()) return kLzhufWriteFailed;
    // Positions inside the symbol only need to enter the trees; the one after it
    // needs its match too.
    int i = 0;
    for (int c; i < covered && (c = in.Next()) >= 0;) {
      DeleteNode(codec, s);
      codec.ring[s] = static_cast<uint8_t>(c);
      if (s < kF - 1) codec.ring[s + kN] = static_cast<uint8_t>(c);
      s = (s + 1) & kRingMask;
      r = (r + 1) & kRingMask;
      key = NextKey(key, static_cast<unsigned>(c));
      if (++i == covered) {
        hint = InsertNode<true>(codec, r, key, hint, best);
      } else {
        hint = InsertNode<false>(codec, r, key, hint, best);
      }
    }
    codec.textSize += static_cast<uint64_t>(i);
    // After the input: the look-ahead shrinks, its tail holding older bytes.
    for (; i < covered; ++i) {
      DeleteNode(codec, s);
      s = (s + 1) & kRingMask;
      r = (r + 1) & kRingMask;
      if (--len != 0) hint = InsertNode(codec, r, KeyAt(codec.ring, r), hint, best);
    }
  } while (len > 0);
  return kLzhufOk;
}

}  // namespace

int EncodeAll(LzhufCodec& codec, LzhufSource& source, uint64_t size, LzhufSink& sink, int threads,
              size_t blockSize) {
  BitWriter out(sink, codec.outBlock);
  for (int i = 0; i < kHeaderSize; ++i) {
    codec.header[i] = static_cast<uint8_t>(size >> (8 * i));
    out.Put(codec.header[i], 8);
  }
  int result = kLzhufEmpty;
  if (size != 0) {
    result = threads > 1 ? EncodeBodyThreaded(codec, source, out, threads, blockSize)
                         : kThreadsUnavailable;
    if (result == kThreadsUnavailable) result = EncodeBody(codec, source, out);
  }
  if (result == kLzhufWriteFailed || !out.Finish()) result = kLzhufWriteFailed;
  codec.codeSize = out.written();
  return result;
}

}  // namespace tk::lzhuf_detail
