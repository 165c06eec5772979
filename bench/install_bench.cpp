// How much the record work of InstallPackage adds on top of decoding the package.
//
// Packs a tree with BuildPackage: the files below the directory given as argument (the
// codec benchmark's corpus: build/release/bench-codec after bench/codec), or by default a
// deterministic tree of about 40 MB and two thousand files (text: the first files of
// /usr/include in sorted order; binary: the first regular files of /usr/lib in sorted
// order), which makes the per-file cost of installing show. Then it times
//   BM_DecodeOnly  LzhufDecodeFile of the package into a plain file, and
//   BM_Install     InstallPackage of the same package into a fresh directory
// and prints the share the records add (install / decode - 1). The goal is at most 25%.
// The scratch directory (corpus, package, installations) is TK_BENCH_DIR, /dev/shm or /tmp.
//
// Run: cmake --preset release && cmake --build --preset release --target install_bench &&
//      build/release/bin/install_bench [build/release/bench-codec]
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lzhuf/lzhuf.h"
#include "package/package.h"
#include "testing/temp_dir.h"

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t kTextBytes = 20u << 20;
constexpr std::uintmax_t kBinaryBytes = 20u << 20;
constexpr std::uintmax_t kLargestBinaryFile = 4u << 20;

struct Corpus {
  std::string root;     // scratch directory
  std::string package;  // the package built from root/tree
  std::uintmax_t bytes = 0;
  std::size_t files = 0;
};

Corpus gCorpus;

// Regular files below `from`, sorted by path; names starting with "." are left out
// because captures never carry them.
std::vector<fs::path> SortedFiles(const fs::path& from) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::recursive_directory_iterator
           it(from, fs::directory_options::skip_permission_denied, error),
       end;
       it != end; it.increment(error)) {
    if (error) break;
    const std::string name = it->path().filename().string();
    if (name.starts_with(".") || it->is_symlink() || !it->is_regular_file()) continue;
    if (it->path().string().find("  ") != std::string::npos) continue;
    files.push_back(it->path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// Copies the first files of `from` (up to `budget` bytes) below `to`, keeping their paths.
void CopyFirstFiles(const fs::path& from, const fs::path& to, std::uintmax_t budget,
                    std::uintmax_t largest) {
  for (const fs::path& file : SortedFiles(from)) {
    const std::uintmax_t size = fs::file_size(file);
    if (size > largest || size > budget) continue;
    const fs::path target = to / fs::relative(file, from);
    fs::create_directories(target.parent_path());
    fs::copy_file(file, target, fs::copy_options::overwrite_existing);
    budget -= size;
    gCorpus.bytes += size;
    ++gCorpus.files;
    if (budget < 4096) break;
  }
}

// The scratch directory lives in TK_BENCH_DIR when set, else in /dev/shm (memory, so
// that the disk's inode allocation does not drown what is measured), else in /tmp.
std::string ScratchParent() {
  const char* parent = std::getenv("TK_BENCH_DIR");
  if (parent != nullptr) return parent;
  return fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
}

// Builds the corpus package in the scratch directory `root`. The tree is a copy of
// `source` when given (e.g. the codec benchmark's corpus files), else the first files
// of /usr/include and /usr/lib.
bool PrepareCorpus(const std::string& root, const char* source) {
  if (root.empty()) return false;
  gCorpus.root = root;
  const fs::path tree = gCorpus.root + "/tree";
  const std::string description = gCorpus.root + "/corpus.desc";
  if (source != nullptr) {
    CopyFirstFiles(source, tree / "corpus", UINTMAX_MAX, UINTMAX_MAX);
    std::ofstream(description) << "[corpus]\ncopydirsub:\n";
  } else {
    CopyFirstFiles("/usr/include", tree / "include", kTextBytes, kTextBytes);
    CopyFirstFiles("/usr/lib", tree / "lib", kBinaryBytes, kLargestBinaryFile);
    std::ofstream(description) << "[HEADER]\nName = install bench corpus\n"
                               << "[include]\ncopydirsub:\n[lib]\ncopydirsub:\n";
  }
  gCorpus.package = gCorpus.root + "/corpus.pkg";
  tk::TkPackage package;
  if (!package.BuildPackage(description.c_str(), tree.c_str(), gCorpus.package.c_str())) {
    std::fprintf(stderr, "build failed: %s\n", package.ErrorText().c_str());
    return false;
  }
  return true;
}

void BM_DecodeOnly(benchmark::State& state) {
  const std::string plain = gCorpus.root + "/decoded.plain";
  auto codec = std::make_unique<tk::LzhufCodec>();
  for (auto _ : state) {
    if (tk::LzhufDecodeFile(*codec, gCorpus.package.c_str(), plain.c_str(), 0) != 0) {
      state.SkipWithError("decode failed");
    }
  }
  fs::remove(plain);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * gCorpus.bytes));
}

// Every run installs into a directory of its own: deleting thousands of files just before
// creating as many would time the file system's inode reuse policy, not the installation.
void BM_Install(benchmark::State& state) {
  static int run = 0;
  tk::TkPackage package;
  for (auto _ : state) {
    const std::string destination = gCorpus.root + "/installed." + std::to_string(++run);
    if (!package.InstallPackage(gCorpus.package.c_str(), destination.c_str(), 0)) {
      state.SkipWithError(package.ErrorText().c_str());
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * gCorpus.bytes));
}

BENCHMARK(BM_DecodeOnly)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Repetitions(3)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_Install)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Repetitions(3)
    ->ReportAggregatesOnly(true);

// Console output as usual, plus the medians kept for the summary line.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  struct Times {
    double real = 0;
    double cpu = 0;
  };

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name != "median") continue;
      medians_[run.run_name.function_name] = {run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
    }
    ConsoleReporter::ReportRuns(runs);
  }
  Times Median(const std::string& name) const {
    auto it = medians_.find(name);
    return it == medians_.end() ? Times() : it->second;
  }

 private:
  std::map<std::string, Times> medians_;
};

double PercentAdded(double install, double decode) { return (install / decode - 1.0) * 100.0; }

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc > 2 || (argc == 2 && !fs::is_directory(argv[1]))) {
    std::fprintf(stderr, "usage: install_bench [benchmark flags] [DIRECTORY]\n");
    return 2;
  }
  const tk::test::TempDir scratch("install_bench", ScratchParent());
  if (!PrepareCorpus(scratch.path(), argc == 2 ? argv[1] : nullptr)) return 1;
  std::printf("corpus: %zu files, %.1f MB; package %.1f MB\n", gCorpus.files,
              static_cast<double>(gCorpus.bytes) / 1e6,
              static_cast<double>(fs::file_size(gCorpus.package)) / 1e6);
  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const MedianReporter::Times decode = reporter.Median("BM_DecodeOnly");
  const MedianReporter::Times install = reporter.Median("BM_Install");
  if (decode.real > 0 && decode.cpu > 0) {
    // CPU time is the steadier figure on a shared machine; wall time is what a user waits.
    std::printf("median decode %.0f ms wall / %.0f ms CPU, install %.0f ms wall / %.0f ms CPU\n",
                decode.real, decode.cpu, install.real, install.cpu);
    std::printf("the records add %.1f%% wall, %.1f%% CPU (goal <= 25%%)\n",
                PercentAdded(install.real, decode.real), PercentAdded(install.cpu, decode.cpu));
  }
  benchmark::Shutdown();
  return 0;
}
