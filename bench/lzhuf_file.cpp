// lzhuf_file: codes one file to another with LzhufEncodeFile / LzhufDecodeFile, so
// that bench/codec can time the codec exactly as the package engine uses it.
//
//   lzhuf_file [--rss] [--threads N] [--block BYTES] encode SOURCE DESTINATION
//   lzhuf_file [--rss] decode SOURCE DESTINATION [LIMIT]
//
// The exit status is the codec's result (0, 1, 117, 143, 145), 2 for bad usage.
// With --rss it prints the process's peak resident memory in KiB on stdout. --threads
// and --block set the encoder's LzhufEncodeOptions (default: one thread).
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "lzhuf/lzhuf.h"

namespace {

constexpr int kUsageError = 2;

int Usage() {
  std::fputs(
      "usage: lzhuf_file [--rss] [--threads N] [--block BYTES] encode|decode SOURCE DESTINATION "
      "[LIMIT]\n",
      stderr);
  return kUsageError;
}

long PeakRssKiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

}  // namespace

int main(int argc, char** argv) {
  int arg = 1;
  bool reportRss = false;
  tk::LzhufEncodeOptions options;
  for (; arg < argc && argv[arg][0] == '-'; ++arg) {
    if (std::strcmp(argv[arg], "--rss") == 0) {
      reportRss = true;
    } else if (std::strcmp(argv[arg], "--threads") == 0 && arg + 1 < argc) {
      options.threads = std::atoi(argv[++arg]);
    } else if (std::strcmp(argv[arg], "--block") == 0 && arg + 1 < argc) {
      options.blockSize = std::strtoull(argv[++arg], nullptr, 10);
    } else {
      return Usage();
    }
  }
  if (argc - arg < 3 || argc - arg > 4) return Usage();
  const char* mode = argv[arg];
  auto codec = std::make_unique<tk::LzhufCodec>();
  int result;
  if (std::strcmp(mode, "encode") == 0 && argc - arg == 3) {
    result = tk::LzhufEncodeFile(*codec, argv[arg + 1], argv[arg + 2], options);
  } else if (std::strcmp(mode, "decode") == 0) {
    const uint64_t limit = argc - arg == 4 ? std::strtoull(argv[arg + 3], nullptr, 10) : 0;
    result = tk::LzhufDecodeFile(*codec, argv[arg + 1], argv[arg + 2], limit);
  } else {
    return Usage();
  }
  if (reportRss) std::printf("%ld\n", PeakRssKiB());
  return result;
}
