// tkpack compress and tkpack decompress: the codec on single files, byte-identical to
// the codec's own file front end, and failures that carry the codec's result code.
#include <random>

#include "tkpack/tkpack_test_fixture.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

class TkpackCodec : public TkpackTest {
 protected:
  // The result line: both files with their sizes.
  std::string SizeLine(const std::string& in, const std::string& out) const {
    return in + " (" + std::to_string(std::filesystem::file_size(Path(in))) + " bytes) -> " +
           out + " (" + std::to_string(std::filesystem::file_size(Path(out))) + " bytes)\n";
  }
};

std::string RandomBytes(std::size_t size) {
  std::mt19937 generator(7);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(generator() & 0xFF);
  return bytes;
}

TEST_F(TkpackCodec, RoundTripMatchesTheCodecFrontEnd) {
  const std::string cases[] = {
      "x", "abc", std::string(5000, 'a'), "line one\nline two\r\n" + std::string(300, '-'),
      RandomBytes(70000),
  };
  auto codec = std::make_unique<LzhufCodec>();
  for (const std::string& bytes : cases) {
    WriteFile("in.bin", bytes);
    const test::ChildResult compressed = Tkpack({"compress", "in.bin", "in.lzh"});
    ExpectRun(compressed, kExitSuccess, SizeLine("in.bin", "in.lzh"), "");
    ASSERT_EQ(LzhufEncodeFile(*codec, Path("in.bin").c_str(), Path("ref.lzh").c_str()), 0);
    EXPECT_EQ(ReadFile(Path("in.lzh")), ReadFile(Path("ref.lzh"))) << bytes.size();

    const test::ChildResult restored = Tkpack({"decompress", "in.lzh", "out.bin"});
    ExpectRun(restored, kExitSuccess, SizeLine("in.lzh", "out.bin"), "");
    EXPECT_EQ(ReadFile(Path("out.bin")), bytes);
  }
}

TEST_F(TkpackCodec, LimitStopsTheDecoderEarly) {
  const std::string bytes = RandomBytes(20000) + std::string(20000, 'r');
  WriteFile("in.bin", bytes);
  ASSERT_EQ(Tkpack({"compress", "in.bin", "in.lzh"}).exitStatus, kExitSuccess);
  for (const uint64_t limit : {1u, 1000u, 25000u, 39999u}) {
    const test::ChildResult result =
        Tkpack({"decompress", "in.lzh", "part.bin", "--limit", std::to_string(limit)});
    EXPECT_EQ(result.exitStatus, kExitSuccess);
    const std::string part = ReadFile(Path("part.bin"));
    EXPECT_GE(part.size(), limit);
    EXPECT_LE(part.size(), limit + kLzhufLookahead - 1);
    EXPECT_EQ(part, bytes.substr(0, part.size()));
  }
  ASSERT_EQ(Tkpack({"decompress", "--limit=0", "in.lzh", "all.bin"}).exitStatus, kExitSuccess);
  EXPECT_EQ(ReadFile(Path("all.bin")), bytes);
}

TEST_F(TkpackCodec, FailuresCarryTheCodecResult) {
  WriteFile("empty.bin", "");
  WriteFile("short.lzh", "ab");
  WriteFile("zero.lzh", std::string(4, '\0'));
  WriteFile("in.bin", "abc");
  struct Case {
    std::vector<std::string> words;
    std::string err;
    std::string output;  // what the output file holds afterwards
  };
  const Case cases[] = {
      {{"compress", "empty.bin", "out"},
       "tkpack: cannot compress empty.bin into out: codec result 117: nothing to code: empty "
       "input or a stated length of 0\n",
       std::string(4, '\0')},
      {{"decompress", "short.lzh", "out"},
       "tkpack: cannot decompress short.lzh into out: codec result 143: fewer than 4 bytes: no "
       "length header\n",
       ""},
      {{"decompress", "zero.lzh", "out"},
       "tkpack: cannot decompress zero.lzh into out: codec result 117: nothing to code: empty "
       "input or a stated length of 0\n",
       ""},
      {{"compress", "missing.bin", "out"},
       "tkpack: cannot compress missing.bin into out: codec result 1: a file could not be "
       "opened: missing.bin\n",
       "<none>"},
      {{"decompress", "in.bin", "no/dir/out"},
       "tkpack: cannot decompress in.bin into no/dir/out: codec result 1: a file could not be "
       "opened: no/dir/out\n",
       "<none>"},
  };
  for (const Case& c : cases) {
    ExpectRun(Tkpack(c.words), kExitFailure, "", c.err);
    const std::string out = Path(c.words[2]);
    EXPECT_EQ(std::filesystem::exists(out) ? ReadFile(out) : "<none>", c.output) << c.err;
    std::filesystem::remove(out);
  }
}

}  // namespace
}  // namespace tk
