#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

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
    codec_ = std::make_unique<LzhufCodec>();
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  void Write(const std::string& name, const Bytes& bytes) const {
    std::ofstream out(Path(name), std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

  Bytes Read(const std::string& name) const {
    std::ifstream in(Path(name), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }

  int EncodeFile(const std::string& from, const std::string& to) {
    return LzhufEncodeFile(*codec_, Path(from).c_str(), Path(to).c_str());
  }
  int DecodeFile(const std::string& from, const std::string& to, uint64_t limit = 0) {
    return LzhufDecodeFile(*codec_, Path(from).c_str(), Path(to).c_str(), limit);
  }

  std::string dir_;
  std::unique_ptr<LzhufCodec> codec_;
};

// Text-like bytes of several blocks, so that block boundaries are crossed.
Bytes Sample(size_t n) {
  Bytes b(n);
  uint32_t seed = 11;
  for (auto& x : b) {
    seed = seed * 1664525u + 1013904223u;
    x = static_cast<uint8_t>("abcdefgh \n"[(seed >> 20) % 10]);
  }
  return b;
}

TEST_F(LzhufFiles, FilesCodeLikeBuffers) {
  for (size_t size : {size_t{1}, size_t{4096}, size_t{1000003}}) {
    const Bytes input = Sample(size);
    Bytes packed;
    ASSERT_EQ(kLzhufOk, LzhufEncodeBuffer(*codec_, input, packed));
    Write("in", input);
    EXPECT_EQ(kLzhufOk, EncodeFile("in", "packed"));
    EXPECT_EQ(packed, Read("packed"));
    EXPECT_EQ(kLzhufOk, DecodeFile("packed", "out"));
    EXPECT_EQ(input, Read("out"));
  }
}

TEST_F(LzhufFiles, EmptySourceGivesTheBareHeaderAndDecodesToNothing) {
  Write("empty", {});
  EXPECT_EQ(kLzhufEmpty, EncodeFile("empty", "packed"));
  EXPECT_EQ((Bytes{0, 0, 0, 0}), Read("packed"));
  Write("out", {1, 2, 3});
  EXPECT_EQ(kLzhufEmpty, DecodeFile("packed", "out"));
  EXPECT_TRUE(Exists("out"));
  EXPECT_EQ(Bytes{}, Read("out"));
}

TEST_F(LzhufFiles, LimitDecodesTheBeginning) {
  const Bytes input = Sample(1000000);
  Write("in", input);
  ASSERT_EQ(kLzhufOk, EncodeFile("in", "packed"));
  EXPECT_EQ(kLzhufOk, DecodeFile("packed", "out", 100000));
  const Bytes out = Read("out");
  EXPECT_GE(out.size(), 100000u);
  EXPECT_LE(out.size(), 100009u);
  EXPECT_EQ(Bytes(input.begin(), input.begin() + static_cast<long>(out.size())), out);
}

TEST_F(LzhufFiles, UnopenableFilesGive1) {
  Write("in", Sample(100));
  EXPECT_EQ(kLzhufOpenFailed, EncodeFile("missing", "packed"));
  EXPECT_EQ(kLzhufOpenFailed, DecodeFile("missing", "out"));
  EXPECT_FALSE(Exists("packed"));
  EXPECT_FALSE(Exists("out"));
  EXPECT_EQ(kLzhufOpenFailed, EncodeFile("in", "no/such/dir/packed"));
  EXPECT_EQ(kLzhufOpenFailed, DecodeFile("in", "no/such/dir/out"));
  EXPECT_FALSE(Exists("no"));
}

TEST_F(LzhufFiles, SourceWithoutHeaderGives143AndAnEmptyDestination) {
  for (const Bytes& source : {Bytes{}, Bytes{7, 0, 0}}) {
    Write("short", source);
    Write("out", {1, 2, 3});
    // The two streams are deliberately left open in this case.
    EXPECT_EQ(kLzhufNoHeader, DecodeFile("short", "out"));
    EXPECT_EQ(Bytes{}, Read("out"));
  }
}

TEST_F(LzhufFiles, FullDeviceGives145EvenForTheHeaderAlone) {
  struct stat st;
  if (stat("/dev/full", &st) != 0) GTEST_SKIP() << "no /dev/full";
  Write("empty", {});
  Bytes packed;
  ASSERT_EQ(kLzhufOk, LzhufEncodeBuffer(*codec_, Sample(5000), packed));
  Write("packed", packed);
  EXPECT_EQ(kLzhufWriteFailed, LzhufEncodeFile(*codec_, Path("empty").c_str(), "/dev/full"));
  EXPECT_EQ(kLzhufWriteFailed, LzhufDecodeFile(*codec_, Path("packed").c_str(), "/dev/full", 10));
}

}  // namespace
}  // namespace tk
