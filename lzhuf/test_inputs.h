// Deterministic inputs for the codec's tests (not part of the library): random bytes,
// and text and skewed bytes made from them; and the source and sink the tests put
// around the codec. The skewed ones (a few frequent values,
// long runs) make the adaptive code grow deep and rebuild often; text has the long
// matches that insert many positions without a search.
#ifndef TAVIK_LZHUF_TEST_INPUTS_H_
#define TAVIK_LZHUF_TEST_INPUTS_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "lzhuf/lzhuf.h"
#include "testing/temp_dir.h"

namespace tk::test {

using Bytes = std::vector<uint8_t>;

inline Bytes ReadBytes(const std::string& path) {
  const std::string bytes = ReadWholeFile(path);
  return Bytes(bytes.begin(), bytes.end());
}

inline Bytes RandomBytes(size_t n, uint32_t seed) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<uint8_t>((seed = seed * 1664525u + 1013904223u) >> 24);
  return b;
}

inline Bytes TextBytes(size_t n) {
  static const std::string kWords[] = {"package ",   "install ", "the ", "server ",  "file\n",
                                       "directory ", "TAVIK ",   "= ",   "[File]\n", "0755 "};
  Bytes b;
  for (uint8_t r : RandomBytes(n, 7)) {
    if (b.size() >= n) break;
    b.insert(b.end(), kWords[r % 10].begin(), kWords[r % 10].end());
  }
  b.resize(n);
  return b;
}

inline Bytes SkewedBytes(size_t n) {
  Bytes b = RandomBytes(n, 99);
  const Bytes rare = RandomBytes(n, 98);
  for (size_t i = 0; i < n; ++i) b[i] = b[i] % 16 == 0 ? rare[i] : b[i] % 3;
  return b;
}

// A source handing out at most `chunk` bytes per call, and a sink that keeps what
// it is given and refuses everything after `room` bytes, or at the flush: what a
// progress display or a full disk puts around the codec.
class ChunkedSource : public LzhufMemorySource {
 public:
  ChunkedSource(const Bytes& data, size_t chunk) : LzhufMemorySource(data), chunk_(chunk) {}
  size_t Read(uint8_t* buffer, size_t capacity) override {
    return LzhufMemorySource::Read(buffer, std::min(capacity, chunk_));
  }

 private:
  size_t chunk_;
};

class TestSink : public LzhufSink {
 public:
  explicit TestSink(size_t room = SIZE_MAX, bool flushFails = false)
      : room_(room), flushFails_(flushFails) {}
  bool Write(const uint8_t* data, size_t size) override {
    EXPECT_LE(size, kLzhufMaxWrite);
    if (size > room_) return false;
    room_ -= size;
    bytes.insert(bytes.end(), data, data + size);
    ++calls;
    return true;
  }
  bool Flush() override { return !flushFails_; }
  Bytes bytes;
  int calls = 0;

 private:
  size_t room_;
  bool flushFails_;
};

}  // namespace tk::test

#endif  // TAVIK_LZHUF_TEST_INPUTS_H_
