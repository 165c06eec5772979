// Shared fixture of the tkpack tests: a fresh directory per test in which the real
// tkpack program runs (with TMPDIR pointing into it, so that private temporaries can
// be checked), and small verbs to write sources and hand-made packages and to look at
// what ends up on disk.
#ifndef TAVIK_TKPACK_TKPACK_TEST_FIXTURE_H_
#define TAVIK_TKPACK_TKPACK_TEST_FIXTURE_H_

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "installer/test_process.h"
#include "lzhuf/lzhuf.h"
#include "support/test_util.h"
#include "tkpack/tool.h"

namespace tk {

class TkpackTest : public test::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    if (HasFatalFailure()) return;
    root_ = dir_;
    std::filesystem::create_directory(Path("tmp"));
    umask(022);  // file modes in the expectations assume it
  }

  std::string Path(const std::string& relative) const { return root_ + "/" + relative; }

  void WriteFile(const std::string& relative, const std::string& bytes) const {
    std::filesystem::create_directories(std::filesystem::path(Path(relative)).parent_path());
    std::ofstream(Path(relative), std::ios::binary) << bytes;
  }

  std::string ReadFile(const std::string& relative) const {
    std::ifstream in(Path(relative), std::ios::binary);
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

  // Compresses the plain record stream `records` into the package `name`.
  void WritePackage(const std::string& name, const std::string& records) const {
    WriteFile("plain.stream", records);
    auto codec = std::make_unique<LzhufCodec>();
    EXPECT_EQ(LzhufEncodeFile(*codec, Path("plain.stream").c_str(), Path(name).c_str()), 0);
    std::filesystem::remove(Path("plain.stream"));
  }

  // The sample sources (a header and three sections), built into sample.pkg.
  void BuildSample() const {
    WriteFile("src/desc.txt",
              "[HEADER]\nVersion = 5\nProduct = tavik\n[Bin]\ncopydir:\nexec: run.sh\n"
              "[Bin/lib]\ncopydir:\n[Doc]\ncopyfile: readme.txt\ntextfile: readme.txt\n");
    WriteFile("src/Bin/run.sh", "#!/bin/sh\necho hi\n");
    WriteFile("src/Bin/lib/x.so", "XSO");
    WriteFile("src/Doc/readme.txt", "line1\r\nline2");
    ASSERT_EQ(Tkpack({"build", "src/desc.txt", "sample.pkg"}).exitStatus, kExitSuccess);
  }

  // Every path below `relative` with "dir" for directories and mode and bytes for files.
  std::map<std::string, std::string> Snapshot(const std::string& relative) const {
    std::map<std::string, std::string> tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Path(relative))) {
      const std::string name = std::filesystem::relative(entry.path(), Path(relative)).string();
      struct stat info {};
      stat(entry.path().c_str(), &info);
      char mode[8];
      std::snprintf(mode, sizeof mode, "%o:", info.st_mode & 0777u);
      tree[name] = entry.is_directory() ? "dir" : mode + ReadFile(relative + "/" + name);
    }
    return tree;
  }

  // What tkpack should never leave behind: "*.tk_temp" files and anything in TMPDIR.
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
