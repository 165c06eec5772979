// Block-buffered byte and bit streams of the codec (internal to lzhuf/). They
// stage data in the LzhufCodec's I/O blocks and exchange whole blocks with the
// caller's source and sink, so the coding loops make no per-byte calls.
// Not thread-safe.
#ifndef TAVIK_LZHUF_BIT_IO_H_
#define TAVIK_LZHUF_BIT_IO_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "lzhuf/lzhuf.h"

namespace tk::lzhuf_detail {

// Reads from `source` until `capacity` bytes are in or the source ends; returns
// the count.
size_t ReadFull(LzhufSource& source, uint8_t* buffer, size_t capacity);

// Bytes of a source, one at a time, refilled a block at a time.
class ByteReader {
 public:
  ByteReader(LzhufSource& source, uint8_t* block) : source_(source), block_(block) {}

  // The next byte, or -1 once the source has ended.
  int Next() {
    if (pos_ == end_ && !Refill()) return -1;
    return *pos_++;
  }

 private:
  // Everything is inline, so that the reader's state can stay in registers.
  bool Refill() {
    if (ended_) return false;
    const size_t got = source_.Read(block_, kLzhufIoBlockSize);
    if (got == 0) {
      ended_ = true;
      return false;
    }
    pos_ = block_;
    end_ = block_ + got;
    return true;
  }

  LzhufSource& source_;
  uint8_t* block_;
  const uint8_t* pos_ = nullptr;
  const uint8_t* end_ = nullptr;
  bool ended_ = false;
};

// A stream of bits, most significant first, staged in `block` and handed to the
// sink whenever the block is full. `block` needs 16 bytes of room past
// kLzhufIoBlockSize. A failed write is remembered; later writes are dropped and
// failed() stays true.
class BitWriter {
 public:
  BitWriter(LzhufSink& sink, uint8_t* block) : sink_(sink), block_(block) {}

  // Appends the low `length` bits of `value` (1 to 32 bits; the bits above are 0).
  // The pending bits are stored as 8 bytes every time and the position moves over
  // the whole bytes among them: no branch on how many bytes are complete.
  void Put(uint32_t value, int length) {
    bits_ = (bits_ << length) | value;
    count_ += length;  // at most 7 + 32
    const uint64_t aligned = __builtin_bswap64(bits_ << (64 - count_));
    std::memcpy(block_ + used_, &aligned, sizeof aligned);
    used_ += static_cast<size_t>(count_ >> 3);
    count_ &= 7;
    if (used_ >= kLzhufIoBlockSize) Drain();
  }

  // Pads the pending bits with zeros to whole bytes, hands everything to the sink
  // and flushes it. Returns false if any write failed.
  bool Finish() {
    if (count_ > 0) {
      block_[used_++] = static_cast<uint8_t>(bits_ << (8 - count_));
      count_ = 0;
    }
    Drain();
    if (!failed_ && !sink_.Flush()) failed_ = true;
    return !failed_;
  }

  bool failed() const { return failed_; }
  // Bytes handed to the sink so far.
  uint64_t written() const { return written_; }

 private:
  void Drain() {
    if (used_ != 0 && !failed_) {
      if (sink_.Write(block_, used_)) {
        written_ += used_;
      } else {
        failed_ = true;
      }
    }
    used_ = 0;
  }

  LzhufSink& sink_;
  uint8_t* block_;
  size_t used_ = 0;
  uint64_t bits_ = 0;
  int count_ = 0;
  bool failed_ = false;
  uint64_t written_ = 0;
};

// A stream of bits, most significant first, read a block at a time; past the end
// of the source it yields zero bits forever.
class BitReader {
 public:
  // `block` holds `size` bytes already read from the source, starting at `start`.
  BitReader(LzhufSource& source, uint8_t* block, size_t start, size_t size)
      : source_(source), block_(block), pos_(block + start), end_(block + size) {}

  // Makes at least 56 bits available.
  void Refill() {
    if (count_ > 56) return;
    if (end_ - pos_ >= 8) {
      uint64_t word = 0;
      for (int i = 0; i < 8; ++i) word = (word << 8) | pos_[i];
      bits_ |= word >> count_;
      pos_ += (63 - count_) >> 3;
      count_ |= 56;
    } else {
      RefillSlowly();
    }
  }

  // The buffered bits, the next one on top.
  uint64_t bits() const { return bits_; }
  // The next `n` bits (1 to 32) without consuming them; needs `n` bits buffered (Refill
  // makes 56 available).
  uint32_t Peek(int n) const { return static_cast<uint32_t>(bits_ >> (64 - n)); }
  void Skip(int n) {
    bits_ <<= n;
    count_ -= n;
  }

 private:
  // Byte by byte near the end of a block or of the source. Inline like the rest,
  // so that the reader's state can stay in registers in the decoding loop.
  void RefillSlowly() {
    while (count_ <= 56) {
      if (pos_ == end_ && !ended_) {
        const size_t got = source_.Read(block_, kLzhufIoBlockSize);
        ended_ = got == 0;
        pos_ = block_;
        end_ = block_ + got;
      }
      const uint64_t byte = pos_ == end_ ? 0 : *pos_++;
      bits_ |= byte << (56 - count_);
      count_ += 8;
    }
  }

  LzhufSource& source_;
  uint8_t* block_;
  const uint8_t* pos_;
  const uint8_t* end_;
  uint64_t bits_ = 0;
  int count_ = 0;
  bool ended_ = false;
};

}  // namespace tk::lzhuf_detail

#endif  // TAVIK_LZHUF_BIT_IO_H_
