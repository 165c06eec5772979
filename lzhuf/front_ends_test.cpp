// The file front end: files code like buffers, each result leaves its files as stated,
// and a machine that refuses writes gives 145.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lzhuf/lzhuf.h"
#include "testing/fault.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using Bytes = std::vector<uint8_t>;

int OpenDescriptors() {
  int count = 0;
  for (auto it = std::filesystem::directory_iterator("/proc/self/fd"); it != decltype(it)(); ++it)
    ++count;
  return count;
}

class LzhufFiles : public test::TempDirTest {
 protected:
  void Write(const std::string& name, const Bytes& bytes) const {
    WriteFile(name, std::string(bytes.begin(), bytes.end()));
  }
  Bytes Read(const std::string& name) const {
    const std::string bytes = ReadFile(name);
    return Bytes(bytes.begin(), bytes.end());
  }
  int EncodeFile(const std::string& from, const std::string& to) {
    return LzhufEncodeFile(*codec_, Path(from).c_str(), Path(to).c_str());
  }
  int DecodeFile(const std::string& from, const std::string& to, uint64_t limit = 0) {
    return LzhufDecodeFile(*codec_, Path(from).c_str(), Path(to).c_str(), limit);
  }

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
// destination); 143 for a source shorter than the header (an empty destination, and
// both files stay open); 1 for a file that cannot be opened (nothing created); 145 when
// the destination refuses even the header. Every other result closes both files.
TEST_F(LzhufFiles, EachResultLeavesItsFiles) {
  Write("empty", {});
  Write("zero", {0, 0, 0, 0});
  Write("short", {7, 0, 0});
  Write("seven", {7, 0, 0, 0, 0});
  // encode or decode, source, destination, result, the bytes of "out" after it, descriptors left
  // open
  const std::tuple<bool, std::string, std::string, int, Bytes, int> cases[] = {
      {true, "empty", "out", kLzhufEmpty, {0, 0, 0, 0}, 0},
      {false, "zero", "out", kLzhufEmpty, {}, 0},
      {false, "empty", "out", kLzhufNoHeader, {}, 2},
      {false, "short", "out", kLzhufNoHeader, {}, 2},
      {true, "missing", "new", kLzhufOpenFailed, {1, 2, 3}, 0},
      {false, "missing", "new", kLzhufOpenFailed, {1, 2, 3}, 0},
      {true, "empty", "no/such/dir/new", kLzhufOpenFailed, {1, 2, 3}, 0},
      {false, "zero", "no/such/dir/new", kLzhufOpenFailed, {1, 2, 3}, 0},
      {true, "empty", "/dev/full", kLzhufWriteFailed, {1, 2, 3}, 0},
      {false, "seven", "/dev/full", kLzhufWriteFailed, {1, 2, 3}, 0}};
  for (const auto& [encode, source, destination, result, out, leftOpen] : cases) {
    SCOPED_TRACE(source + " -> " + destination);
    Write("out", {1, 2, 3});
    const int before = OpenDescriptors();
    EXPECT_EQ(result, encode ? EncodeFile(source, destination) : DecodeFile(source, destination));
    EXPECT_EQ(leftOpen, OpenDescriptors() - before);
    EXPECT_EQ(out, Read("out"));
  }
  EXPECT_FALSE(Exists("new") || Exists("no"));
}

// With files limited in size, both directions stop with 145 and leave exactly the bytes
// that fitted in the destination, for the caller to delete.
TEST_F(LzhufFiles, FileSizeLimitGives145AndLeavesWhatFitted) {
  Bytes input(100000), packed;  // random bytes: nothing compresses away
  uint32_t seed = 5;
  for (auto& byte : input)
    byte = static_cast<uint8_t>((seed = seed * 1664525u + 1013904223u) >> 24);
  ASSERT_EQ(kLzhufOk, LzhufEncodeBuffer(*codec_, input, packed));
  Write("plain", input);
  Write("packed", packed);
  for (const rlim_t limit : {rlim_t{0}, rlim_t{3}, rlim_t{4096}}) {
    const auto report = test::RunInChild([&] {
      if (!test::LimitFileSize(limit)) return std::string("no limit");
      return std::to_string(EncodeFile("plain", "encoded")) + " " +
             std::to_string(DecodeFile("packed", "decoded"));
    });
    EXPECT_EQ(report, "145 145") << limit;
    EXPECT_EQ(std::filesystem::file_size(Path("encoded")), limit);
    EXPECT_EQ(std::filesystem::file_size(Path("decoded")), limit);
  }
}

}  // namespace
}  // namespace tk
