// The two halves of the coding engine (internal to lzhuf/), called by the public
// entry points in lzhuf.cpp once the header is dealt with. Not thread-safe: they
// work on the caller's LzhufCodec.
#ifndef TAVIK_LZHUF_ENGINE_H_
#define TAVIK_LZHUF_ENGINE_H_

#include <cstddef>
#include <cstdint>

#include "lzhuf/bit_io.h"
#include "lzhuf/lzhuf.h"

namespace tk::lzhuf_detail {

// N and F of the format under their short names, and the mask that takes a ring
// position modulo N.
constexpr int kN = kLzhufRingSize;
constexpr int kRingMask = kN - 1;
constexpr int kF = kLzhufLookahead;
constexpr int kNil = kLzhufNil;
constexpr int kStart = kN - kF;  // ring position of the first input byte
constexpr int kMatchSymbolBase = 256 - kLzhufThreshold - 1;  // length L is symbol L + 253
constexpr uint8_t kRingFill = ' ';
constexpr int kHeaderSize = kLzhufHeaderBytes;  // the length, least significant byte first

// Writes the header for `size` and, unless it is 0, codes everything `source`
// yields: with `threads` > 1 through EncodeBodyThreaded, else (or when the threads
// cannot start) with the single-threaded encoder. Returns kLzhufOk, kLzhufEmpty, or
// kLzhufWriteFailed as soon as a write (or the final flush) has failed.
int EncodeAll(LzhufCodec& codec, LzhufSource& source, uint64_t size, LzhufSink& sink,
              int threads = 1, size_t blockSize = 0);

// EncodeBodyThreaded's result when its threads or its memory could not be had; it has
// read nothing then.
constexpr int kThreadsUnavailable = -1;

// Codes everything `source` yields after the header, which `out` already holds, with
// the match search spread over `threads` threads (the caller's included) in blocks of
// `blockSize` input bytes; the bytes are those of the single-threaded encoder.
// Returns kLzhufOk, kLzhufWriteFailed or kThreadsUnavailable.
int EncodeBodyThreaded(LzhufCodec& codec, LzhufSource& source, BitWriter& out, int threads,
                       size_t blockSize);

// Decodes symbols until `size` bytes are out, or `limit` (when not 0) is reached,
// from `source`, whose first `got` bytes, header included, sit in codec.inBlock.
// Returns kLzhufOk or kLzhufWriteFailed (after a failed write or flush).
int DecodeBody(LzhufCodec& codec, LzhufSource& source, size_t got, LzhufSink& sink, uint64_t size,
               uint64_t limit);

}  // namespace tk::lzhuf_detail

#endif  // TAVIK_LZHUF_ENGINE_H_
