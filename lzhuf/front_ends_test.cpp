#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "lzhuf/lzhuf.h"

namespace tk {
namespace {

using Bytes = std::vector<uint8_t>;

class LzhufFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/lzhuf_test_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern));
    dir_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string Path(const std::string& name) const { return dir_ + "/" + name; }
  bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }

  void Write(const std::string& name, const Bytes& bytes) const {
    std::ofstream(Path(name), std::ios::binary) << std::string(bytes.begin(), bytes.end());
  }
  Bytes Read(const std::string& name) const {
    std::ifstream in(Path(name), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  int EncodeFile(const std::string& from, const std::string& to) {
    return LzhufEncodeFile(*codec_, Path(from).c_str(), Path(to).c_str());
  }
  int DecodeFile(const std::string& from, const std::string& to, uint64_t limit = 0) {
    return LzhufDecodeFile(*codec_, Path(from).c_str(), Path(to).c_str(), limit);
  }

  std::string dir_;
  std::unique_ptr<LzhufCodec> codec_ = std::make_unique<LzhufCodec>();
};

// Files of text-like bytes, of several blocks so that block boundaries are crossed,
// give the buffers' bytes, whole and with a limit.
TEST_F(LzhufFiles, FilesCodeLikeBuffers) {
  for (size_t size : {size_t{1}, size_t{4096}, size_t{1000003}}) {
    Bytes input(size), packed, limited;
    for (size_t i = 0; i < size; ++i) input[i] = "abcdefgh \n"[(i * 2654435761u >> 20) % 10];
    ASSERT_EQ(kLzhufOk, LzhufEncodeBuffer(*codec_, input, packed));
    ASSERT_EQ(kLzhufOk, LzhufDecodeBuffer(*codec_, packed, limited, 100000));
    Write("in", input);
    EXPECT_EQ(kLzhufOk, EncodeFile("in", "packed"));
    EXPECT_EQ(packed, Read("packed"));
    EXPECT_EQ(kLzhufOk, DecodeFile("packed", "out"));
    EXPECT_EQ(input, Read("out"));
    EXPECT_EQ(kLzhufOk, DecodeFile("packed", "out", 100000));
    EXPECT_EQ(limited, Read("out"));
  }
}

// 117 for an empty source (the bare header) and a header stating 0 bytes (an empty
// destination); 1 for a file that cannot be opened (nothing created); 143 for a
// source shorter than the header (an empty destination; both streams are
// deliberately left open); 145 when the destination refuses even the header.
TEST_F(LzhufFiles, EachResultLeavesItsFiles) {
  Write("empty", {});
  EXPECT_EQ(kLzhufEmpty, EncodeFile("empty", "packed"));
  EXPECT_EQ((Bytes{0, 0, 0, 0}), Read("packed"));
  const std::pair<Bytes, int> kDecodes[] = {
      {{0, 0, 0, 0}, kLzhufEmpty}, {{}, kLzhufNoHeader}, {{7, 0, 0}, kLzhufNoHeader}};
  for (const auto& [source, result] : kDecodes) {
    Write("in", source);
    Write("out", {1, 2, 3});
    EXPECT_EQ(result, DecodeFile("in", "out"));
    EXPECT_EQ(Bytes{}, Read("out"));
  }
  EXPECT_EQ(kLzhufOpenFailed, EncodeFile("missing", "new"));
  EXPECT_EQ(kLzhufOpenFailed, DecodeFile("missing", "new"));
  EXPECT_EQ(kLzhufOpenFailed, EncodeFile("empty", "no/such/dir/new"));
  EXPECT_EQ(kLzhufOpenFailed, DecodeFile("packed", "no/such/dir/new"));
  EXPECT_FALSE(Exists("new") || Exists("no"));
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  Write("in", {7, 0, 0, 0, 0});
  EXPECT_EQ(kLzhufWriteFailed, LzhufEncodeFile(*codec_, Path("empty").c_str(), "/dev/full"));
  EXPECT_EQ(kLzhufWriteFailed, LzhufDecodeFile(*codec_, Path("in").c_str(), "/dev/full", 0));
}

}  // namespace
}  // namespace tk
