// The file utilities when the machine misbehaves: copies onto a full device, a text
// conversion whose temporary file cannot be written, and directories the process may
// not write (a root run works from a child that has become "nobody"). Results are the
// documented failure values, and nothing is left that was not there before.
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/copies.h"
#include "support/directories.h"
#include "support/files.h"
#include "support/text_file.h"
#include "testing/fault.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using SupportFaultTest = test::TempDirTest;

// A small source fails only when the destination is closed, a large one during the copy.
TEST_F(SupportFaultTest, CopiesOntoAFullDeviceFail) {
  for (const size_t size : {6, 100000}) {
    WriteFile("source", std::string(size, 'x'));
    EXPECT_EQ(CopyFile(Path("source").c_str(), "/dev/full", 0, -1), 0) << size;
    EXPECT_EQ(AppendFileRange(Path("source").c_str(), "/dev/full", 0, -1), 0) << size;
  }
  UniqueFile in(std::fopen(Path("source").c_str(), "rb"));
  UniqueFile full(std::fopen("/dev/full", "wb"));
  ASSERT_TRUE(in && full);
  EXPECT_EQ(CopyStreamRange(in.get(), full.get(), 10, 50000), 0);
  // The device refuses an in-kernel copy; the block copy then meets the full device.
  UniqueDescriptor fullDevice(open("/dev/full", O_WRONLY));
  EXPECT_EQ(CopyDescriptorRange(fileno(in.get()), 10, fullDevice.get(), 50000), 0);
  // A file that may not grow past 4096 bytes stops the in-kernel copy half-way.
  EXPECT_EQ(test::RunInChild([&] {
              UniqueDescriptor out(open(Path("limited").c_str(), O_WRONLY | O_CREAT, 0600));
              if (!test::LimitFileSize(4096)) return std::string("no limit");
              return std::to_string(CopyDescriptorRange(fileno(in.get()), 10, out.get(), 50000));
            }),
            "0");
  EXPECT_EQ(ReadFile("limited").size(), 4096u);
}

// The converted copy goes to a temporary that cannot be written (a link to the full
// device): the file keeps its CR LF line ends and the temporary is gone.
TEST_F(SupportFaultTest, TextConversionThatCannotWriteLeavesTheFileAlone) {
  WriteFile("notes.txt", "a\r\nb\r\n");
  std::filesystem::create_symlink("/dev/full", Path("notes.txt.tktmpascii"));
  ConvertTextFile(Path("notes.txt").c_str());
  EXPECT_EQ(ReadFile("notes.txt"), "a\r\nb\r\n");
  EXPECT_EQ(Listing(), std::vector<std::string>{"notes.txt"});
}

// In a directory the user may not write, a temporary name cannot be had (after ten
// attempts), no directory can be made, nothing can be removed, and a text file (that
// the user may write) cannot be converted.
TEST_F(SupportFaultTest, DirectoriesWithoutWritePermission) {
  if (!test::CanDropPrivileges()) GTEST_SKIP() << "cannot run as an unprivileged user";
  const std::string ro = Path("ro");
  WriteFile("ro/notes.txt", "a\r\nb\r\n");
  ASSERT_EQ(chmod(Path("ro/notes.txt").c_str(), 0666) + chmod(path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(ro.c_str(), 0555), 0);
  EXPECT_EQ(test::RunInChild([&] {
              if (!test::DropPrivileges()) return std::string("still privileged");
              std::string name = "unchanged", directory = ro, extension = "txt", pre = "p", suf;
              const int made = MakeTempFileName(name, directory, extension, pre, suf);
              ConvertTextFile((ro + "/notes.txt").c_str());
              return std::to_string(made) + " [" + name + "] " +
                     std::to_string(CreateDirectoryPath((ro + "/a/b").c_str(), false)) +
                     std::to_string(CreateDirectoryPath((ro + "/c").c_str(), true)) +
                     std::to_string(RemoveDirectory(ro.c_str(), true, "*", "*"));
            }),
            "0 [] 000");
  EXPECT_EQ(Snapshot(), (test::Tree{{"ro", "dir"}, {"ro/notes.txt", "666:a\r\nb\r\n"}}));
}

}  // namespace
}  // namespace tk
