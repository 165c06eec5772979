#include "lzhuf/lzhuf.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace tk {
namespace {

using Bytes = std::vector<uint8_t>;

const std::string kTestData = TK_SOURCE_DIR "/lzhuf/testdata/";

Bytes ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct Vector {
  std::string name;
  int result;
};

// The reference vectors and the result their encoding gives, from testdata/RESULTS.
std::vector<Vector> ReferenceVectors() {
  std::ifstream in(kTestData + "RESULTS");
  std::vector<Vector> list;
  Vector v;
  while (in >> v.name >> v.result) list.push_back(v);
  return list;
}

TEST(LzhufVectors, EncodingGivesTheReferenceBytes) {
  auto codec = std::make_unique<LzhufCodec>();
  const auto vectors = ReferenceVectors();
  ASSERT_GE(vectors.size(), 20u);
  for (const auto& v : vectors) {
    SCOPED_TRACE(v.name);
    const Bytes input = ReadBytes(kTestData + v.name + ".bin");
    const Bytes expected = ReadBytes(kTestData + v.name + ".lzh");
    ASSERT_FALSE(expected.empty());
    Bytes out;
    EXPECT_EQ(v.result, LzhufEncodeBuffer(*codec, input, out));
    EXPECT_EQ(expected, out);
  }
}

TEST(LzhufVectors, DecodingGivesTheInputBack) {
  auto codec = std::make_unique<LzhufCodec>();
  for (const auto& v : ReferenceVectors()) {
    SCOPED_TRACE(v.name);
    const Bytes input = ReadBytes(kTestData + v.name + ".bin");
    Bytes out;
    const int expected = input.empty() ? kLzhufEmpty : kLzhufOk;
    EXPECT_EQ(expected, LzhufDecodeBuffer(*codec, ReadBytes(kTestData + v.name + ".lzh"), out, 0));
    EXPECT_EQ(input, out);
  }
}

// Deterministic test inputs of several kinds.
Bytes RandomBytes(size_t n, uint32_t seed) {
  Bytes b(n);
  for (auto& x : b) {
    seed = seed * 1664525u + 1013904223u;
    x = static_cast<uint8_t>(seed >> 24);
  }
  return b;
}

Bytes TextBytes(size_t n) {
  static const char* const kWords[] = {"package ", "install ", "the ", "server ", "file\n",
                                       "directory ", "TAVIK ", "= ", "[File]\n", "0755 "};
  Bytes b;
  uint32_t seed = 7;
  while (b.size() < n) {
    seed = seed * 1664525u + 1013904223u;
    const char* w = kWords[(seed >> 16) % 10];
    b.insert(b.end(), w, w + std::char_traits<char>::length(w));
  }
  b.resize(n);
  return b;
}

// Skewed bytes: long runs and a few frequent values, so the adaptive code grows
// deep and rebuilds often.
Bytes SkewedBytes(size_t n) {
  Bytes b(n);
  uint32_t seed = 99;
  for (size_t i = 0; i < n; ++i) {
    seed = seed * 1664525u + 1013904223u;
    const uint32_t r = seed >> 8;
    b[i] = (r % 16 == 0) ? static_cast<uint8_t>(r >> 8) : static_cast<uint8_t>(r % 3);
  }
  return b;
}

TEST(LzhufRoundTrip, DecodingReturnsWhatWasEncoded) {
  auto codec = std::make_unique<LzhufCodec>();
  const std::vector<std::pair<std::string, Bytes>> cases = {
      {"one byte", Bytes{0x41}},
      {"two bytes", Bytes{0, 255}},
      {"run", Bytes(100000, 'x')},
      {"zeros", Bytes(70000, 0)},
      {"random", RandomBytes(300000, 1)},
      {"text", TextBytes(2000000)},
      {"skewed", SkewedBytes(3000000)},
      {"all values", [] { Bytes b; for (int i = 0; i < 70000; ++i) b.push_back(static_cast<uint8_t>(i * 7)); return b; }()},
  };
  for (const auto& [name, input] : cases) {
    SCOPED_TRACE(name);
    Bytes packed, unpacked;
    ASSERT_EQ(kLzhufOk, LzhufEncodeBuffer(*codec, input, packed));
    ASSERT_EQ(kLzhufOk, LzhufDecodeBuffer(*codec, packed, unpacked, 0));
    EXPECT_EQ(input, unpacked);
  }
}

}  // namespace
}  // namespace tk
