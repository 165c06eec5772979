// The sources and sinks the front ends code from and to.
#include <cstring>

#include "lzhuf/lzhuf.h"

namespace tk {

size_t LzhufMemorySource::Read(uint8_t* buffer, size_t capacity) {
  const size_t left = data_.size() - offset_;
  const size_t n = capacity < left ? capacity : left;
  if (n != 0) std::memcpy(buffer, data_.data() + offset_, n);
  offset_ += n;
  return n;
}

bool LzhufBufferSink::Write(const uint8_t* data, size_t size) {
  out_.insert(out_.end(), data, data + size);
  return true;
}

size_t LzhufFileSource::Read(uint8_t* buffer, size_t capacity) {
  return std::fread(buffer, 1, capacity, stream_);
}

bool LzhufFileSink::Write(const uint8_t* data, size_t size) {
  return std::fwrite(data, 1, size, stream_) == size;
}

bool LzhufFileSink::Flush() { return std::fflush(stream_) == 0; }

}  // namespace tk
