// Shared fixture of the package tests: a fresh temporary directory per test and small
// verbs to make record streams, packages and trees and to look at what ends up on disk.
#ifndef TAVIK_PACKAGE_PACKAGE_TEST_FIXTURE_H_
#define TAVIK_PACKAGE_PACKAGE_TEST_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "lzhuf/lzhuf.h"
#include "package/package.h"

namespace tk {

class PackageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tk_package_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    umask(022);  // file modes in the expectations assume it
  }
  void TearDown() override { std::filesystem::remove_all(root_); }

  std::string Path(const std::string& relative) const { return root_ + "/" + relative; }

  // Writes `bytes` to root/relative, creating the parent directories.
  void WriteFile(const std::string& relative, const std::string& bytes) const {
    const std::filesystem::path path = Path(relative);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }

  static std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
  }

  // Compresses the plain record stream `records` into root/name and returns its path.
  std::string WriteStream(const std::string& records, const std::string& name = "test.pkg") {
    WriteFile("plain.stream", records);
    const std::string package = Path(name);
    auto codec = std::make_unique<LzhufCodec>();
    EXPECT_EQ(LzhufEncodeFile(*codec, Path("plain.stream").c_str(), package.c_str()), 0);
    std::filesystem::remove(Path("plain.stream"));
    return package;
  }

  // The plain record stream inside a package.
  std::string Decompress(const std::string& package) {
    const std::string plain = Path("decoded.stream");
    auto codec = std::make_unique<LzhufCodec>();
    EXPECT_EQ(LzhufDecodeFile(*codec, package.c_str(), plain.c_str(), 0), 0);
    std::string bytes = ReadFile(plain);
    std::filesystem::remove(plain);
    return bytes;
  }

  // Cuts the file at `path` to its first `size` bytes.
  static void Truncate(const std::string& path, std::uintmax_t size) {
    std::filesystem::resize_file(path, size);
  }

  // Every path below `directory` (relative, "/"-separated) with "dir" for directories and
  // the mode bits and bytes for files, so that two trees compare in one assertion.
  static std::map<std::string, std::string> Snapshot(const std::string& directory) {
    std::map<std::string, std::string> tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
      const std::string relative = std::filesystem::relative(entry.path(), directory).string();
      if (entry.is_directory()) {
        tree[relative] = "dir";
        continue;
      }
      struct stat info {};
      stat(entry.path().c_str(), &info);
      tree[relative] = std::to_string(info.st_mode & 0777) + ":" + ReadFile(entry.path());
    }
    return tree;
  }

  // Number of "*.tk_temp" files anywhere below the test directory.
  int TempFilesLeft() const {
    int count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root_)) {
      if (entry.path().string().ends_with(".tk_temp")) ++count;
    }
    return count;
  }

  // Everything written to a temporary stream by `write`, read back.
  template <typename Write>
  std::string Capture(Write write) {
    FILE* out = std::fopen(Path("capture.stream").c_str(), "w+b");
    write(out);
    std::fclose(out);
    return ReadFile(Path("capture.stream"));
  }

  static constexpr const char* kMagic = "TAVIK PACKAGE FILE\n1\n";

  std::string root_;
  TkPackage package_;
};

}  // namespace tk

#endif  // TAVIK_PACKAGE_PACKAGE_TEST_FIXTURE_H_
