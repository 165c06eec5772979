// The file utilities when the machine misbehaves: copies onto a full device, a text
// conversion whose temporary file cannot be written, and directories the process may
// not write (a root run works from a child that has become "nobody"). Results are the
// documented failure values, and nothing is left that was not there before.
#include <fcntl.h>
#include <sys/stat.h>

#include <functional>

#include "support/copies.h"
#include "support/directories.h"
#include "support/fault_injection_fixture.h"
#include "support/files.h"
#include "support/test_util.h"
#include "support/text_file.h"

namespace tk {
namespace {

using SupportFaultTest = test::TempDirTest;

// Runs `body` as an unprivileged user in a child and returns its report.
std::string Unprivileged(const std::function<std::string()>& body) {
  return fault::RunInChild([&] { return fault::DropPrivileges() ? body() : "still privileged"; })
      .value_or("child failed");
}

// Sources larger than a stream buffer, so that the failure shows during the copy.
TEST_F(SupportFaultTest, CopiesOntoAFullDeviceFail) {
  Write("source", std::string(100000, 'x'));
  EXPECT_EQ(CopyFile(P("source").c_str(), "/dev/full", 0, -1), 0);
  EXPECT_EQ(AppendFileRange(P("source").c_str(), "/dev/full", 0, -1), 0);
  UniqueFile in(std::fopen(P("source").c_str(), "rb"));
  UniqueFile full(std::fopen("/dev/full", "wb"));
  ASSERT_TRUE(in && full);
  EXPECT_EQ(CopyStreamRange(in.get(), full.get(), 10, 50000), 0);
  // The device refuses an in-kernel copy; the block copy then meets the full device.
  UniqueDescriptor fullDevice(open("/dev/full", O_WRONLY));
  EXPECT_EQ(CopyDescriptorRange(fileno(in.get()), 10, fullDevice.get(), 50000), 0);
  // A file that may not grow past 4096 bytes stops the in-kernel copy half-way.
  EXPECT_EQ(fault::RunInChild([&] {
              UniqueDescriptor out(open(P("limited").c_str(), O_WRONLY | O_CREAT, 0600));
              if (!fault::LimitFileSize(4096)) return std::string("no limit");
              return std::to_string(CopyDescriptorRange(fileno(in.get()), 10, out.get(), 50000));
            }),
            "0");
  EXPECT_EQ(std::filesystem::file_size(P("limited")), 4096u);
}

// The converted copy goes to a temporary that cannot be written (a link to the full
// device): the file keeps its CR LF line ends and the temporary is gone.
TEST_F(SupportFaultTest, TextConversionThatCannotWriteLeavesTheFileAlone) {
  Write("notes.txt", "a\r\nb\r\n");
  std::filesystem::create_symlink("/dev/full", P("notes.txt.tktmpascii"));
  ConvertTextFile(P("notes.txt").c_str());
  EXPECT_EQ(Read("notes.txt"), "a\r\nb\r\n");
  EXPECT_EQ(Remaining(), std::vector<std::string>{"notes.txt"});
}

// In a directory the user may not write, a temporary name cannot be had (after ten
// attempts), no directory can be made, nothing can be removed, and a text file (that
// the user may write) cannot be converted.
TEST_F(SupportFaultTest, DirectoriesWithoutWritePermission) {
  if (!fault::CanDropPrivileges()) GTEST_SKIP() << "cannot run as an unprivileged user";
  const std::string ro = P("ro");
  std::filesystem::create_directories(ro);
  Write("ro/notes.txt", "a\r\nb\r\n");
  ASSERT_EQ(chmod(P("ro/notes.txt").c_str(), 0666), 0);
  ASSERT_EQ(chmod(dir_.c_str(), 0755), 0);
  ASSERT_EQ(chmod(ro.c_str(), 0555), 0);
  EXPECT_EQ(Unprivileged([&] {
              std::string name = "unchanged", directory = ro, extension = "txt", pre = "p", suf;
              const int made = MakeTempFileName(name, directory, extension, pre, suf);
              return std::to_string(made) + " [" + name + "]";
            }),
            "0 []");
  EXPECT_EQ(Unprivileged([&] {
              ConvertTextFile((ro + "/notes.txt").c_str());
              return std::to_string(CreateDirectoryPath((ro + "/a/b").c_str(), false)) +
                     std::to_string(CreateDirectoryPath((ro + "/c").c_str(), true)) +
                     std::to_string(RemoveDirectory(ro.c_str(), true, "*", "*"));
            }),
            "000");
  EXPECT_EQ(Read("ro/notes.txt"), "a\r\nb\r\n");
  EXPECT_EQ(Remaining(), (std::vector<std::string>{"ro/", "ro/notes.txt"}));
}

}  // namespace
}  // namespace tk
