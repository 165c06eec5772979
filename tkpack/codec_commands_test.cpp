// tkpack compress and tkpack decompress: the codec on single files, byte-identical to
// its file front end, and failures that carry the codec's result code.
#include <random>

#include "tkpack/tkpack_test_fixture.h"

namespace tk {
namespace {

using TkpackCodec = TkpackTest;

std::string RandomBytes(std::size_t size) {
  std::mt19937 generator(7);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(generator() & 0xFF);
  return bytes;
}

TEST_F(TkpackCodec, RoundTripMatchesTheCodecFrontEnd) {
  auto codec = std::make_unique<LzhufCodec>();
  for (const std::string& bytes : {std::string("x"), std::string(5000, 'a'), RandomBytes(70000)}) {
    WriteFile("in", bytes);
    const test::ChildResult compressed = Tkpack({"compress", "in", "in.lzh"});
    ASSERT_EQ(LzhufEncodeFile(*codec, Path("in").c_str(), Path("ref.lzh").c_str()), 0);
    EXPECT_EQ(ReadFile("in.lzh"), ReadFile("ref.lzh"));
    ExpectRun(compressed, kExitSuccess,
              "in (" + std::to_string(bytes.size()) + " bytes) -> in.lzh (" +
                  std::to_string(ReadFile("ref.lzh").size()) + " bytes)\n",
              "");
    EXPECT_EQ(Tkpack({"decompress", "in.lzh", "out"}).exitStatus, kExitSuccess);
    EXPECT_EQ(ReadFile("out"), bytes);
  }
}

TEST_F(TkpackCodec, LimitStopsTheDecoderEarly) {
  const std::string bytes = RandomBytes(20000) + std::string(20000, 'r');
  WriteFile("in", bytes);
  ASSERT_EQ(Tkpack({"compress", "in", "in.lzh"}).exitStatus, kExitSuccess);
  for (const std::size_t limit : {1, 25000}) {
    ASSERT_EQ(Tkpack({"decompress", "in.lzh", "part", "--limit", std::to_string(limit)}).exitStatus,
              kExitSuccess);
    const std::string part = ReadFile("part");
    EXPECT_GE(part.size(), limit);
    EXPECT_LT(part.size(), limit + kLzhufLookahead);
    EXPECT_EQ(part, bytes.substr(0, part.size()));
  }
}

TEST_F(TkpackCodec, FailuresCarryTheCodecResult) {
  WriteFile("empty", "");
  WriteFile("short", "ab");
  const std::vector<std::string> cases[] = {
      {"compress", "empty", "out", "117: nothing to code: empty input or a stated length of 0"},
      {"decompress", "short", "out", "143: fewer than 4 bytes: no length header"},
      {"compress", "missing", "out", "1: a file could not be opened: missing"},
      {"decompress", "short", "no/out", "1: a file could not be opened: no/out"},
  };
  for (const std::vector<std::string>& c : cases) {
    ExpectRun(
        Tkpack({c[0], c[1], c[2]}), kExitFailure, "",
        "tkpack: cannot " + c[0] + " " + c[1] + " into " + c[2] + ": codec result " + c[3] + "\n");
  }
}

}  // namespace
}  // namespace tk
