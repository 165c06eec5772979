// Shared fixture of the tkpack tests: a fresh directory per test in which the real
// tkpack program runs (with TMPDIR pointing into it, so private temporaries can be
// checked), and small verbs to write description files, sources and hand-made
// packages and to look at what ends up on disk.
#ifndef TAVIK_TKPACK_TKPACK_TEST_FIXTURE_H_
#define TAVIK_TKPACK_TKPACK_TEST_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "installer/test_process.h"
#include "lzhuf/lzhuf.h"

namespace tk {

class TkpackTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tk_tkpack_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    std::filesystem::create_directory(Path("tmp"));
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

  // Runs tkpack with `words` after the program name, in the test directory.
  test::ChildResult Tkpack(const std::vector<std::string>& words) const {
    test::ChildRun run;
    run.program = TK_BIN_DIR "/tkpack";
    run.arguments = {"tkpack"};
    run.arguments.insert(run.arguments.end(), words.begin(), words.end());
    run.workDirectory = root_;
    run.environment["TMPDIR"] = Path("tmp");
    return test::RunChild(run);
  }

  // Compresses the plain record stream `records` into root/name with the codec.
  void WritePackage(const std::string& name, const std::string& records) const {
    WriteFile("plain.stream", records);
    auto codec = std::make_unique<LzhufCodec>();
    EXPECT_EQ(LzhufEncodeFile(*codec, Path("plain.stream").c_str(), Path(name).c_str()), 0);
    std::filesystem::remove(Path("plain.stream"));
  }

  // The plain record stream inside the package at `path`.
  static std::string Decompress(const std::string& path) {
    const std::string plain = path + ".plain";
    auto codec = std::make_unique<LzhufCodec>();
    EXPECT_EQ(LzhufDecodeFile(*codec, path.c_str(), plain.c_str(), 0), 0);
    std::string bytes = ReadFile(plain);
    std::filesystem::remove(plain);
    return bytes;
  }

  // The sample sources: a description with a header and three sections.
  void WriteSample() const {
    WriteFile("src/desc.txt",
              "[HEADER]\nVersion = 5\nProduct = tavik\n"
              "[Bin]\ncopydir:\nexec: run.sh\n"
              "[Bin/lib]\ncopydir:\n"
              "[Doc]\ncopyfile: readme.txt\ntextfile: readme.txt\n");
    WriteFile("src/Bin/run.sh", "#!/bin/sh\necho hi\n");
    WriteFile("src/Bin/lib/x.so", "XSO");
    WriteFile("src/Doc/readme.txt", "line1\r\nline2");
  }

  // Every path below root/relative with "dir" for directories and mode bits and bytes
  // for files, so that a whole tree compares in one assertion.
  std::map<std::string, std::string> Snapshot(const std::string& relative) const {
    std::map<std::string, std::string> tree;
    const std::string directory = Path(relative);
    if (!std::filesystem::exists(directory)) return tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
      const std::string name = std::filesystem::relative(entry.path(), directory).string();
      if (entry.is_directory()) {
        tree[name] = "dir";
        continue;
      }
      struct stat info {};
      stat(entry.path().c_str(), &info);
      char mode[8];
      std::snprintf(mode, sizeof mode, "%03o", info.st_mode & 0777);
      tree[name] = std::string(mode) + ":" + ReadFile(entry.path());
    }
    return tree;
  }

  // The whole test directory, for "nothing was written" checks.
  std::map<std::string, std::string> Everything() const { return Snapshot("."); }

  // What tkpack leaves behind that it should not: "*.tk_temp" files anywhere and
  // anything in its TMPDIR.
  int Leftovers() const {
    int count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root_)) {
      const std::string path = entry.path().string();
      if (path.ends_with(".tk_temp") || path.starts_with(Path("tmp/"))) ++count;
    }
    return count;
  }

  static constexpr const char* kMagic = "TAVIK PACKAGE FILE\n1\n";

  std::string root_;
};

// The whole observable result of one run.
inline void ExpectRun(const test::ChildResult& result, int status, const std::string& out,
                      const std::string& err) {
  EXPECT_EQ(result.exitStatus, status);
  EXPECT_EQ(result.out, out);
  EXPECT_EQ(result.err, err);
}

}  // namespace tk

#endif  // TAVIK_TKPACK_TKPACK_TEST_FIXTURE_H_
