#include "lzhuf/lzhuf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lzhuf/test_inputs.h"

namespace tk {
namespace {

using Bytes = std::vector<uint8_t>;

using test::ChunkedSource;
using test::RandomBytes;
using test::ReadBytes;
using test::SkewedBytes;
using test::TestSink;
using test::TextBytes;

Bytes Encode(LzhufCodec& codec, const Bytes& input) {
  Bytes out;
  LzhufEncodeBuffer(codec, input, out);
  return out;
}

Bytes Decode(LzhufCodec& codec, const Bytes& packed, uint64_t limit) {
  Bytes out;
  EXPECT_EQ(kLzhufOk, LzhufDecodeBuffer(codec, packed, out, limit));
  return out;
}

Bytes Prefix(const Bytes& b, size_t n) { return Bytes(b.begin(), b.begin() + n); }

// Each reference vector (listed in testdata/RESULTS with the result its encoding
// gives) encodes to its exact bytes and decodes back. One output buffer serves all,
// so a front end that appends instead of replacing shows too, and one codec, which has
// coded a long skewed input first: a reused codec gives the bytes of a fresh one.
TEST(LzhufVectors, EncodeToTheReferenceBytesAndDecodeBack) {
  const std::string dir = TK_SOURCE_DIR "/lzhuf/testdata/";
  auto codec = std::make_unique<LzhufCodec>();
  Decode(*codec, Encode(*codec, SkewedBytes(500000)), 0);
  std::ifstream list(dir + "RESULTS");
  std::string name;
  int result, count = 0;
  Bytes out{1, 2, 3};
  for (; list >> name >> result; ++count) {
    SCOPED_TRACE(name);
    const Bytes input = ReadBytes(dir + name + ".bin");
    const Bytes expected = ReadBytes(dir + name + ".lzh");
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(result, LzhufEncodeBuffer(*codec, input, out));
    EXPECT_EQ(expected, out);
    EXPECT_EQ(input.empty() ? kLzhufEmpty : kLzhufOk, LzhufDecodeBuffer(*codec, expected, out, 0));
    EXPECT_EQ(input, out);
  }
  EXPECT_GE(count, 20);
}

TEST(LzhufRoundTrip, DecodingReturnsWhatWasEncoded) {
  auto codec = std::make_unique<LzhufCodec>();
  const std::pair<std::string, Bytes> cases[] = {
      {"two bytes", Bytes{0, 255}}, {"run", Bytes(100000, 'x')},
      {"zeros", Bytes(70000, 0)},   {"random", RandomBytes(300000, 1)},
      {"text", TextBytes(2000000)}, {"skewed", SkewedBytes(3000000)}};
  for (const auto& [name, input] : cases) {
    EXPECT_EQ(input, Decode(*codec, Encode(*codec, input), 0)) << name;
  }
}

// The code word of symbol c in the starting tree, from its shape alone: leaves 0
// to 263 in order, node 264 + i above positions 2i and 2i + 1, root 526; a node at
// an odd position adds a 1. Returned as a string of '0'/'1', root end first.
std::string StartingCode(int c) {
  std::string bits;
  for (int node = c; node != kLzhufRoot; node = 264 + node / 2) {
    bits.insert(bits.begin(), '0' + (node & 1));
  }
  return bits;
}

// Packs a header and a string of '0'/'1' bits (zero padded) into a stream.
Bytes HandMade(uint32_t length, const std::string& bits) {
  Bytes b{static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8),
          static_cast<uint8_t>(length >> 16), static_cast<uint8_t>(length >> 24)};
  for (size_t i = 0; i < bits.size(); ++i) {
    if (i % 8 == 0) b.push_back(0);
    if (bits[i] == '1') b.back() |= static_cast<uint8_t>(0x80 >> (i % 8));
  }
  return b;
}

// A single byte is one literal padded to a byte. Ten spaces are one match of length 10
// (symbol 263) into the pre-filled ring, at distance 9: prefix 000 and the low bits
// 001001. A limit of 1 still completes the match.
TEST(LzhufEdges, EncoderSendsTheStartingTreesCodeWords) {
  auto codec = std::make_unique<LzhufCodec>();
  std::vector<std::pair<Bytes, std::string>> cases = {
      {Bytes(10, ' '), StartingCode(263) + "000001001"}};
  for (int c = 0; c < 256; ++c) cases.push_back({Bytes{static_cast<uint8_t>(c)}, StartingCode(c)});
  for (const auto& [input, bits] : cases) {
    const Bytes packed = Encode(*codec, input);
    EXPECT_EQ(HandMade(static_cast<uint32_t>(input.size()), bits), packed) << bits;
    EXPECT_EQ(input, Decode(*codec, packed, 1)) << bits;
  }
}

TEST(LzhufEdges, LimitStopsAfterTheSymbolThatReachesIt) {
  auto codec = std::make_unique<LzhufCodec>();
  const Bytes input = TextBytes(1000000);
  const Bytes packed = Encode(*codec, input);
  EXPECT_EQ(Prefix(input, 1), Decode(*codec, packed, 1));  // the first symbol is a literal
  for (uint64_t limit : {100000ull, 999999ull}) {
    const Bytes out = Decode(*codec, packed, limit);
    EXPECT_GE(out.size(), limit);
    EXPECT_LE(out.size(), limit + 9);
    EXPECT_EQ(Prefix(input, out.size()), out);
  }
  EXPECT_EQ(input, Decode(*codec, packed, 5000000));
}

// Streams the encoder never makes decode as their header states. Past the end of the
// bit stream come zero bits, and a match among them is completed (up to 9 more bytes);
// nothing but zero bits leads down the starting tree's all-zero path to 0x10. A length
// field of 2^31 or more is sign-extended. Hand-made matches read the ring as
// pre-filled: length 10 at distance 0 starts on the last space and copies its own
// output, and length 3 at distance 4095 reads positions no byte has reached (zeros).
TEST(LzhufEdges, HandMadeStreamsDecodeToTheStatedLength) {
  auto codec = std::make_unique<LzhufCodec>();
  const Bytes input = TextBytes(20000);
  Bytes lying = Encode(*codec, input);
  lying[1] += 1;                                            // claims 256 bytes more than there are
  Decode(*codec, Encode(*codec, RandomBytes(9000, 3)), 0);  // leaves the ring dirty
  // stream, limit, what the output begins with, its least and greatest size
  const std::tuple<Bytes, uint64_t, Bytes, size_t, size_t> cases[] = {
      {lying, 0, input, 20256, 20265},
      {Prefix(lying, lying.size() / 2), 0, {}, 20256, 20265},
      {HandMade(1000, ""), 0, {0x10}, 1000, 1009},
      {HandMade(0x80000000u, ""), 5000, {}, 5000, 5009},
      {HandMade(10, StartingCode(263) + "000000000"), 0, Bytes(10, ' '), 10, 10},
      {HandMade(3, StartingCode(256) + "11111111111111"), 0, Bytes(3, 0), 3, 3}};
  for (const auto& [stream, limit, begin, least, most] : cases) {
    const Bytes out = Decode(*codec, stream, limit);
    EXPECT_GE(out.size(), least);
    EXPECT_LE(out.size(), most);
    EXPECT_EQ(begin, Prefix(out, std::min(begin.size(), out.size())));
  }
  const std::pair<uint32_t, uint64_t> lengths[] = {
      {0x7FFFFFFFu, 0x7FFFFFFFull}, {0x80000000u, 0xFFFFFFFF80000000ull}, {0xFFFFFFFFu, ~0ull}};
  for (const auto& [field, length] : lengths) {
    EXPECT_EQ(length, LzhufStatedLength(HandMade(field, "").data())) << field;
  }
}

TEST(LzhufStreams, ShortReadsAndBlockWritesCodeTheSameBytes) {
  auto codec = std::make_unique<LzhufCodec>();
  const Bytes input = TextBytes(300000);
  const Bytes packed = Encode(*codec, input);
  for (size_t chunk : {size_t{1}, size_t{7}, size_t{100000}}) {
    ChunkedSource in(input, chunk), packedIn(packed, chunk);
    TestSink encoded, decoded;
    EXPECT_EQ(kLzhufOk, LzhufEncode(*codec, in, input.size(), encoded));
    EXPECT_EQ(packed, encoded.bytes);
    EXPECT_EQ(kLzhufOk, LzhufDecode(*codec, packedIn, decoded, 0));
    EXPECT_EQ(input, decoded.bytes);
    EXPECT_GT(decoded.calls, 10);  // output arrives in blocks, as progress
  }
}

TEST(LzhufStreams, FailedWritesAndFlushesGive145) {
  auto codec = std::make_unique<LzhufCodec>();
  const Bytes input = RandomBytes(200000, 5);
  const Bytes packed = Encode(*codec, input);
  for (size_t room : {size_t{0}, size_t{100000}, SIZE_MAX}) {
    TestSink encodeSink(room, room == SIZE_MAX), decodeSink(room, room == SIZE_MAX);
    LzhufMemorySource in(input), packedIn(packed);
    EXPECT_EQ(kLzhufWriteFailed, LzhufEncode(*codec, in, input.size(), encodeSink)) << room;
    EXPECT_EQ(kLzhufWriteFailed, LzhufDecode(*codec, packedIn, decodeSink, 0)) << room;
  }
}

}  // namespace
}  // namespace tk
