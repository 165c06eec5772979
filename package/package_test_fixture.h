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

// Relative path -> "dir", or the file's mode bits (decimal) + ":" + its bytes.
using Tree = std::map<std::string, std::string>;

class PackageTest : public ::testing::Test {
 protected:
  static constexpr const char* kMagic = "TAVIK PACKAGE FILE\n1\n";

  void SetUp() override {
    char pattern[] = "/tmp/tk_package_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    umask(022);  // the modes in the expectations assume it
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
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
  }

  // The [File] record of `content` named `name`, as the builder writes it.
  static std::string FileRecord(const std::string& name, const std::string& content) {
    return "[File]\nName = " + name + "\nSize = " + std::to_string(content.size()) + "\n" +
           content + "\n\n";
  }

  // Compresses the plain record stream `records` into root/test.pkg; returns its path.
  std::string WriteStream(const std::string& records) {
    WriteFile("plain.stream", records);
    auto codec = std::make_unique<LzhufCodec>();
    EXPECT_EQ(LzhufEncodeFile(*codec, Path("plain.stream").c_str(), Path("test.pkg").c_str()), 0);
    std::filesystem::remove(Path("plain.stream"));
    return Path("test.pkg");
  }

  // The plain record stream inside a package.
  std::string Decompress(const std::string& package) {
    auto codec = std::make_unique<LzhufCodec>();
    EXPECT_EQ(LzhufDecodeFile(*codec, package.c_str(), Path("decoded").c_str(), 0), 0);
    std::string bytes = ReadFile(Path("decoded"));
    std::filesystem::remove(Path("decoded"));
    return bytes;
  }

  // Everything `write` writes to a fresh unbuffered stream; with `fullDevice`, the stream
  // is /dev/full, where every write fails, and "" is returned.
  template <typename Write>
  std::string Capture(Write write, bool fullDevice = false) {
    const std::string path = fullDevice ? "/dev/full" : Path("capture.stream");
    FILE* out = std::fopen(path.c_str(), "wb");
    std::setvbuf(out, nullptr, _IONBF, 0);
    write(out);
    std::fclose(out);
    return fullDevice ? "" : ReadFile(path);
  }

  static Tree Snapshot(const std::string& directory) {
    Tree tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
      const std::string relative = std::filesystem::relative(entry.path(), directory).string();
      struct stat info {};
      stat(entry.path().c_str(), &info);
      tree[relative] = entry.is_directory()
                           ? "dir"
                           : std::to_string(info.st_mode & 0777) + ":" + ReadFile(entry.path());
    }
    return tree;
  }

  // Number of "*.tk_temp" files anywhere below the test directory.
  int TempFilesLeft() const {
    int count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root_)) {
      count += entry.path().string().ends_with(".tk_temp") ? 1 : 0;
    }
    return count;
  }

  std::string root_;
  TkPackage package_;
};

}  // namespace tk

#endif  // TAVIK_PACKAGE_PACKAGE_TEST_FIXTURE_H_
