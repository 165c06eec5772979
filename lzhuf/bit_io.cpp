#include "lzhuf/bit_io.h"

namespace tk::lzhuf_detail {

size_t ReadFull(LzhufSource& source, uint8_t* buffer, size_t capacity) {
  size_t total = 0;
  while (total < capacity) {
    const size_t got = source.Read(buffer + total, capacity - total);
    if (got == 0) break;
    total += got;
  }
  return total;
}

bool ByteReader::Refill() {
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

void BitWriter::Drain() {
  if (used_ != 0 && !failed_) {
    if (sink_.Write(block_, used_)) {
      written_ += used_;
    } else {
      failed_ = true;
    }
  }
  used_ = 0;
}

bool BitWriter::Finish() {
  if (count_ > 0) {
    block_[used_++] = static_cast<uint8_t>(bits_ << (8 - count_));
    count_ = 0;
  }
  Drain();
  if (!failed_ && !sink_.Flush()) failed_ = true;
  return !failed_;
}

}  // namespace tk::lzhuf_detail
