// tkpack compress and tkpack decompress: the codec on single files, byte-identical to
// its file front end, and failures that carry the codec's result code.
#include <random>

#include "tkpack/tkpack_test_fixture.h"

namespace tk {
namespace {

using TkpackCodec = TkpackTest;

// Compressed files, and files decompressed whole or up to a limit, are those of the
// codec's file front end.
TEST_F(TkpackCodec, RoundTripMatchesTheCodecFrontEnd) {
  auto codec = std::make_unique<LzhufCodec>();
  std::mt19937 generator(7);
  std::string random(70000, '\0');
  for (char& byte : random) byte = static_cast<char>(generator());
  for (const std::string& bytes : {std::string("x"), std::string(5000, 'a'), random}) {
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
    EXPECT_EQ(Tkpack({"decompress", "in.lzh", "part", "--limit=2500"}).exitStatus, kExitSuccess);
    ASSERT_EQ(LzhufDecodeFile(*codec, Path("in.lzh").c_str(), Path("ref").c_str(), 2500), 0);
    EXPECT_EQ(ReadFile("part"), ReadFile("ref"));
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
