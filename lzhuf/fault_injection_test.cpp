// The codec's file front end when the machine refuses writes: a destination on a full
// device, and a destination that may not grow past a size limit (a full disk as the
// process sees it). Both must give kLzhufWriteFailed (145); the destination keeps what
// was written before the failure, for the caller to delete.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>

#include "lzhuf/lzhuf.h"
#include "support/fault_injection_fixture.h"
#include "support/test_util.h"

namespace tk {
namespace {

class LzhufFaultTest : public test::TempDirTest {
 protected:
  // A file of `size` random bytes (no two inputs alike, so nothing compresses away).
  std::string WriteRandomFile(const std::string& name, size_t size) const {
    std::mt19937 random(static_cast<unsigned>(size));
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    std::ofstream(P(name), std::ios::binary) << bytes;
    return P(name);
  }

  // The compressed form of the random file `name`.
  std::string WritePackedFile(const std::string& name, size_t size) const {
    const std::string plain = WriteRandomFile(name + ".plain", size);
    EXPECT_EQ(LzhufEncodeFile(*codec_, plain.c_str(), P(name).c_str()), kLzhufOk);
    return P(name);
  }

  std::unique_ptr<LzhufCodec> codec_ = std::make_unique<LzhufCodec>();
};

// Small and large inputs: the header write fails as well as the block writes.
TEST_F(LzhufFaultTest, WritesToAFullDeviceGive145) {
  for (const size_t size : {size_t{1}, size_t{100000}}) {
    const std::string plain = WriteRandomFile("plain", size);
    const std::string packed = WritePackedFile("packed", size);
    EXPECT_EQ(LzhufEncodeFile(*codec_, plain.c_str(), "/dev/full"), kLzhufWriteFailed) << size;
    EXPECT_EQ(LzhufDecodeFile(*codec_, packed.c_str(), "/dev/full", 0), kLzhufWriteFailed) << size;
  }
}

// With files limited to `limit` bytes, both directions stop with 145 and leave exactly
// the bytes that fitted in the destination.
TEST_F(LzhufFaultTest, FileSizeLimitGives145AndLeavesWhatFitted) {
  const std::string plain = WriteRandomFile("plain", 100000);
  const std::string packed = WritePackedFile("packed", 100000);
  for (const rlim_t limit : {rlim_t{0}, rlim_t{3}, rlim_t{4096}}) {
    const std::string encoded = P("encoded"), decoded = P("decoded");
    const auto report = fault::RunInChild([&] {
      if (!fault::LimitFileSize(limit)) return std::string("no limit");
      LzhufCodec& codec = *codec_;
      return std::to_string(LzhufEncodeFile(codec, plain.c_str(), encoded.c_str())) + " " +
             std::to_string(LzhufDecodeFile(codec, packed.c_str(), decoded.c_str(), 0));
    });
    EXPECT_EQ(report, "145 145") << limit;
    EXPECT_EQ(std::filesystem::file_size(encoded), limit);
    EXPECT_EQ(std::filesystem::file_size(decoded), limit);
  }
}

}  // namespace
}  // namespace tk
