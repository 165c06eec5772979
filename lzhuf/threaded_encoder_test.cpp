// The threaded encoder gives the single-threaded encoder's bytes: for every input, thread
// count and block size, at the edges of blocks and of the ring, on the reference
// vectors, through failing sinks and short reads, and when its threads cannot start.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>
#include <vector>

#include "lzhuf/lzhuf.h"
#include "lzhuf/test_inputs.h"
#include "testing/fault.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using test::Bytes;
using test::ChunkedSource;
using test::RandomBytes;
using test::SkewedBytes;
using test::TestSink;
using test::TextBytes;

// The single-threaded encoder's bytes, from a codec of its own.
Bytes OneThread(const Bytes& input) {
  auto codec = std::make_unique<LzhufCodec>();
  Bytes out;
  LzhufEncodeBuffer(*codec, input, out);
  return out;
}

Bytes Threaded(LzhufCodec& codec, const Bytes& input, int threads, size_t blockSize,
               int* result = nullptr) {
  LzhufEncodeOptions options;
  options.threads = threads;
  options.blockSize = blockSize;
  Bytes out{9, 9};
  const int got = LzhufEncodeBuffer(codec, input, out, options);
  if (result != nullptr) *result = got;
  return out;
}

// Text and random bytes in turns of `piece` bytes: the work of the trees shifts from
// piece to piece, so trees change hands between the threads again and again.
Bytes Alternating(size_t n, size_t piece) {
  const Bytes text = TextBytes(n);
  const Bytes noise = SkewedBytes(n);
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[i] = (i / piece) % 2 == 0 ? text[i] : noise[i];
  return b;
}

std::string Label(const std::string& name, int threads, size_t blockSize) {
  return name + ", " + std::to_string(threads) + " threads, blocks of " + std::to_string(blockSize);
}

// One codec serves every case, threaded or not, so state left behind by a run shows.
TEST(LzhufThreads, CodeTheBytesOfOneThread) {
  auto codec = std::make_unique<LzhufCodec>();
  const std::tuple<std::string, Bytes, std::vector<size_t>> cases[] = {
      {"empty", {}, {1, 64}},
      {"one byte", {'A'}, {1, 64}},
      {"two bytes", {0, 255}, {1, 64}},
      {"nine spaces", Bytes(9, ' '), {1, 4}},
      {"ten spaces", Bytes(10, ' '), {1, 4}},
      {"twelve", {'a', 'b', 'c', 'a', 'b', 'c', 'a', 'b', 'c', 'a', 'b', 'c'}, {1, 5}},
      {"eighteen zeros", Bytes(18, 0), {1, 7}},
      {"nineteen", TextBytes(19), {1, 7}},
      {"text 3000", TextBytes(3000), {1, 7, 4096}},
      {"run", Bytes(100000, 'x'), {64, 65536}},
      {"zeros", Bytes(70000, 0), {64, 65536}},
      {"random", RandomBytes(100000, 1), {256, 4096, 0}},
      {"text", TextBytes(200000), {256, 4096, 0}},
      {"skewed", SkewedBytes(200000), {256, 4096, 0}}};
  for (const auto& [name, input, blockSizes] : cases) {
    const Bytes expected = OneThread(input);
    for (int threads : {1, 2, 3, 8}) {
      for (size_t blockSize : blockSizes) {
        int result = -1;
        EXPECT_EQ(expected, Threaded(*codec, input, threads, blockSize, &result))
            << Label(name, threads, blockSize);
        EXPECT_EQ(input.empty() ? kLzhufEmpty : kLzhufOk, result);
      }
    }
  }
}

// Inputs ending on either side of block boundaries (the last keys reach 9 bytes into
// the next block or past the end) and of the ring (the first positions that overwrite
// the spaces, and the bytes past the end compared against what the ring held before).
TEST(LzhufThreads, InputsEndingAroundBlocksAndTheRing) {
  auto codec = std::make_unique<LzhufCodec>();
  std::vector<std::pair<size_t, size_t>> cases;  // input size, block size
  for (size_t blockSize : {size_t{7}, size_t{64}, size_t{4096}}) {
    for (size_t k : {size_t{1}, size_t{3}}) {
      for (size_t delta : {0, 1, 8, 9, 10, 17}) {
        cases.push_back({k * blockSize + delta, blockSize});
        if (k * blockSize > delta) cases.push_back({k * blockSize - delta, blockSize});
      }
    }
  }
  for (size_t size : {4076, 4085, 4086, 4087, 4095, 4096, 4097, 4105, 4106, 8182, 8192, 8193}) {
    cases.push_back({size, 1000});
    cases.push_back({size, 4086});
  }
  const Bytes spaces(20000, ' ');
  const Bytes text = TextBytes(20000);
  for (const auto& [size, blockSize] : cases) {
    ASSERT_LE(size, text.size());
    for (const Bytes* source : {&spaces, &text}) {
      const Bytes input(source->begin(), source->begin() + static_cast<long>(size));
      const Bytes expected = OneThread(input);
      for (int threads : {2, 3}) {
        EXPECT_EQ(expected, Threaded(*codec, input, threads, blockSize))
            << Label(source == &spaces ? "spaces" : "text", threads, blockSize) << ", " << size
            << " bytes";
      }
    }
  }
}

// The reference vectors of lzhuf/testdata (3 to 4000 bytes), with blocks that split them
// anywhere.
TEST(LzhufThreads, EncodeTheVectorsToTheReferenceBytes) {
  const std::string dir = TK_SOURCE_DIR "/lzhuf/testdata/";
  auto codec = std::make_unique<LzhufCodec>();
  std::ifstream list(dir + "RESULTS");
  std::string name;
  int result, count = 0;
  for (; list >> name >> result; ++count) {
    const Bytes input = test::ReadBytes(dir + name + ".bin");
    const Bytes expected = test::ReadBytes(dir + name + ".lzh");
    for (int threads : {2, 8}) {
      for (size_t blockSize : {size_t{5}, size_t{500}}) {
        int got = -1;
        EXPECT_EQ(expected, Threaded(*codec, input, threads, blockSize, &got))
            << Label(name, threads, blockSize);
        EXPECT_EQ(result, got) << name;
      }
    }
  }
  EXPECT_GE(count, 20);
}

// Megabytes whose trees change hands many times, with the Huffman tree rebuilt often.
TEST(LzhufThreads, LongInputsWithTreesChangingHands) {
  auto codec = std::make_unique<LzhufCodec>();
  const std::tuple<std::string, Bytes, size_t> cases[] = {
      {"alternating 16 KiB", Alternating(1500000, 16384), 4096},
      {"alternating 256 KiB", Alternating(2000000, 262144), 0},
      {"text", TextBytes(1000000), 16384}};
  for (const auto& [name, input, blockSize] : cases) {
    const Bytes expected = OneThread(input);
    for (int threads : {2, 3}) {
      EXPECT_EQ(expected, Threaded(*codec, input, threads, blockSize))
          << Label(name, threads, blockSize);
    }
  }
}

// What the sink receives and the result, for the single-threaded encoder and the threaded
// one alike: short reads change nothing; a refused write gives 145 with exactly the
// bytes before it; an empty source whose size was stated codes one literal.
TEST(LzhufThreads, SourcesAndSinksSeeWhatOneThreadShowsThem) {
  auto codec = std::make_unique<LzhufCodec>();
  const Bytes text = TextBytes(200000);
  // input, its stated size, bytes per read, room in the sink, failing flush
  const std::tuple<Bytes, uint64_t, size_t, size_t, bool> cases[] = {
      {text, text.size(), 1, SIZE_MAX, false},        {text, text.size(), 7, SIZE_MAX, false},
      {text, text.size(), 100000, 0, false},          {text, text.size(), 100000, 30000, false},
      {text, text.size(), 100000, SIZE_MAX, true},    {{}, 5, 100, SIZE_MAX, false},
      {RandomBytes(3, 4), 100, 100, SIZE_MAX, false}, {text, 0, 100, SIZE_MAX, false}};
  for (const auto& [input, size, chunk, room, flushFails] : cases) {
    int results[2];
    Bytes outputs[2];
    for (int threads : {1, 3}) {
      LzhufEncodeOptions options;
      options.threads = threads;
      options.blockSize = 4096;
      ChunkedSource source(input, chunk);
      TestSink sink(room, flushFails);
      results[threads / 2] = LzhufEncode(*codec, source, size, sink, options);
      outputs[threads / 2] = sink.bytes;
    }
    SCOPED_TRACE(std::to_string(input.size()) + " bytes, read " + std::to_string(chunk) +
                 ", room " + std::to_string(room));
    EXPECT_EQ(results[0], results[1]);
    EXPECT_EQ(outputs[0], outputs[1]);
    EXPECT_EQ(room == SIZE_MAX && !flushFails, results[0] != kLzhufWriteFailed);
  }
}

// Where no thread can be started (a process limit of 0 for an unprivileged user), the
// threaded call codes on the calling thread: the same bytes, no error.
TEST(LzhufThreads, FallBackToOneThreadWhenThreadsCannotStart) {
  if (!test::CanDropPrivileges()) GTEST_SKIP() << "cannot run as an unprivileged user";
  const Bytes input = TextBytes(100000);
  const Bytes expected = OneThread(input);
  const auto report = test::RunInChild([&] {
    const rlimit none{0, 0};
    if (!test::DropPrivileges() || setrlimit(RLIMIT_NPROC, &none) != 0) return std::string("setup");
    try {
      std::thread([] {}).join();
      return std::string("a thread started");
    } catch (const std::system_error&) {
    }
    auto codec = std::make_unique<LzhufCodec>();
    int result = -1;
    const Bytes out = Threaded(*codec, input, 4, 4096, &result);
    return std::to_string(result) + (out == expected ? " same" : " different");
  });
  EXPECT_EQ(report, "0 same");
}

class LzhufThreadFiles : public test::TempDirTest {};

// The file front end with threads: the same package file, the same results at the edges.
TEST_F(LzhufThreadFiles, FilesCodeAsWithOneThread) {
  const Bytes input = Alternating(500000, 65536);
  WriteFile("in", std::string(input.begin(), input.end()));
  WriteFile("empty", "");
  auto codec = std::make_unique<LzhufCodec>();
  LzhufEncodeOptions options;
  options.threads = 2;
  // source, destination (below the directory unless absolute), result
  const std::tuple<std::string, std::string, int> cases[] = {
      {"in", "out", kLzhufOk},
      {"empty", "out", kLzhufEmpty},
      {"missing", "out", kLzhufOpenFailed},
      {"in", "/dev/full", kLzhufWriteFailed}};
  for (const auto& [source, destination, result] : cases) {
    SCOPED_TRACE(source + " -> " + destination);
    const bool local = destination[0] != '/';
    const std::string to = local ? Path(destination) : destination;
    WriteFile("out", "old");
    EXPECT_EQ(result, LzhufEncodeFile(*codec, Path(source).c_str(), to.c_str()));
    const std::string one = ReadFile("out");
    WriteFile("out", "old");
    EXPECT_EQ(result, LzhufEncodeFile(*codec, Path(source).c_str(), to.c_str(), options));
    EXPECT_EQ(one, ReadFile("out"));
  }
}

// The default thread count is what the affinity mask allows, 1 to kLzhufThreadsCap.
TEST(LzhufThreads, AvailableThreadsFollowTheAffinityMask) {
  cpu_set_t set;
  ASSERT_EQ(0, sched_getaffinity(0, sizeof set, &set));
  EXPECT_EQ(std::min(CPU_COUNT(&set), kLzhufThreadsCap), LzhufAvailableThreads());
  const auto report = test::RunInChild([] {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0) return std::string("setup");
    return std::to_string(LzhufAvailableThreads());
  });
  EXPECT_EQ(report, "1");
}

}  // namespace
}  // namespace tk
