// Deterministic inputs for the codec's tests (not part of the library): random bytes,
// and text and skewed bytes made from them. The skewed ones (a few frequent values,
// long runs) make the adaptive code grow deep and rebuild often; text has the long
// matches that insert many positions without a search.
#ifndef TAVIK_LZHUF_TEST_INPUTS_H_
#define TAVIK_LZHUF_TEST_INPUTS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

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

}  // namespace tk::test

#endif  // TAVIK_LZHUF_TEST_INPUTS_H_
