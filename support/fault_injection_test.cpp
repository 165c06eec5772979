// The file utilities when the machine misbehaves: copies onto a full device, a text
// conversion whose temporary file cannot be written, and directories the process may
// not write (a root run works from a child that has become "nobody"). Results are the
// documented failure values, and nothing is left that was not there before.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "support/fault_injection_fixture.h"
#include "support/files.h"
#include "support/text_file.h"

namespace tk {
namespace {

class SupportFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tk_support_fault.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_)) {
      if (entry.is_directory() && !entry.is_symlink()) chmod(entry.path().c_str(), 0755);
    }
    std::filesystem::remove_all(dir_);
  }

  std::string Path(const std::string& name) const { return dir_ + "/" + name; }
  void Write(const std::string& name, const std::string& bytes) const {
    std::ofstream(Path(name), std::ios::binary) << bytes;
  }
  std::string Read(const std::string& name) const {
    std::ifstream in(Path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  // Names in the test directory, sorted, so that leftovers show in one assertion.
  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  // Runs `body` as an unprivileged user in a child and returns its report.
  std::string Unprivileged(const std::function<std::string()>& body) const {
    const auto report = fault::RunInChild([&] {
      return fault::DropPrivileges() ? body() : std::string("still privileged");
    });
    return report.value_or("child failed");
  }

  // Makes the test directory enterable by everyone and `name`, holding the file `kept`,
  // a directory nobody but root may write.
  void MakeReadOnlyDirectory(const std::string& name) const {
    std::filesystem::create_directories(Path(name));
    Write(name + "/kept", "k");
    ASSERT_EQ(chmod(dir_.c_str(), 0755), 0);
    ASSERT_EQ(chmod(Path(name).c_str(), 0555), 0);
  }

  std::string dir_;
};

// Sources larger than a stream buffer, so that the failure shows during the copy.
TEST_F(SupportFaultTest, CopiesOntoAFullDeviceFail) {
  Write("source", std::string(100000, 'x'));
  EXPECT_EQ(CopyFile(Path("source").c_str(), "/dev/full", 0, -1), 0);
  EXPECT_EQ(AppendFileRange(Path("source").c_str(), "/dev/full", 0, -1), 0);
  UniqueFile in(std::fopen(Path("source").c_str(), "rb"));
  UniqueFile full(std::fopen("/dev/full", "wb"));
  ASSERT_TRUE(in && full);
  EXPECT_EQ(CopyStreamRange(in.get(), full.get(), 10, 50000), 0);
}

// The converted copy goes to a temporary that cannot be written (a link to the full
// device): the file keeps its CR LF line ends and the temporary is gone.
TEST_F(SupportFaultTest, TextConversionThatCannotWriteLeavesTheFileAlone) {
  Write("notes.txt", "a\r\nb\r\n");
  std::filesystem::create_symlink("/dev/full", Path("notes.txt.tktmpascii"));
  ConvertTextFile(Path("notes.txt").c_str());
  EXPECT_EQ(Read("notes.txt"), "a\r\nb\r\n");
  EXPECT_EQ(Entries(), std::vector<std::string>{"notes.txt"});
}

// In a directory the user may not write, a temporary name cannot be had (after ten
// attempts), no directory can be made and nothing can be removed.
TEST_F(SupportFaultTest, DirectoriesWithoutWritePermission) {
  if (!fault::CanDropPrivileges()) GTEST_SKIP() << "cannot run as an unprivileged user";
  MakeReadOnlyDirectory("ro");
  const std::string ro = Path("ro");
  EXPECT_EQ(Unprivileged([&] {
              std::string name = "unchanged", directory = ro, extension = "txt", prefix = "p",
                          suffix = "";
              const int made = MakeTempFileName(name, directory, extension, prefix, suffix);
              return std::to_string(made) + " [" + name + "]";
            }),
            "0 []");
  EXPECT_EQ(Unprivileged([&] {
              return std::to_string(CreateDirectoryPath((ro + "/a/b").c_str(), false)) +
                     std::to_string(CreateDirectoryPath((ro + "/c").c_str(), true));
            }),
            "00");
  EXPECT_EQ(Unprivileged([&] {
              return std::to_string(RemoveDirectory(ro.c_str(), true, "*", "*"));
            }),
            "0");
  EXPECT_EQ(Read("ro/kept"), "k");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(ro), {}), 1);
}

}  // namespace
}  // namespace tk
