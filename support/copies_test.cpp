#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/files.h"

namespace tk {
namespace {

// Whatever way the bytes travel, a range copy lands at the destination's current
// position, after bytes it already buffers, and leaves the source after the range.
TEST(CopyStreamRange, ContinuesBothStreamsWhereTheCopyEnded) {
  char pattern[] = "/tmp/tk_copies_XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string dir = pattern;
  std::string bytes;
  for (int i = 0; i < 40000; ++i) bytes += static_cast<char>('a' + i % 26);
  {
    UniqueFile src(OpenFile((dir + "/src").c_str(), "wb"));
    ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), src.get()), bytes.size());
  }
  for (const std::string head : {"", "head"}) {
    UniqueFile src(OpenFile((dir + "/src").c_str(), "rb"));
    UniqueFile dst(OpenFile((dir + "/dst").c_str(), "w+b"));
    std::fputs(head.c_str(), dst.get());
    ASSERT_EQ(CopyStreamRange(src.get(), dst.get(), 10, 20000), 1);
    EXPECT_EQ(TellFile(src.get()), 20010);
    std::fputs("tail", dst.get());
    std::rewind(dst.get());
    std::string out(head.size() + 20004, '\0');
    ASSERT_EQ(std::fread(out.data(), 1, out.size() + 1, dst.get()), out.size());
    EXPECT_EQ(out, head + bytes.substr(10, 20000) + "tail");
  }
  std::filesystem::remove_all(dir);
}

// The range lands at the destination's position whether the kernel copies it (a file) or
// it goes through user space (a pipe, which copy_file_range refuses); the source keeps
// its own position. A source that ends early or a negative range fails.
TEST(CopyDescriptorRange, CopiesTheRangeAndLeavesTheSourcePosition) {
  char pattern[] = "/tmp/tk_copies_XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string dir = pattern;
  std::string bytes;
  for (int i = 0; i < 40000; ++i) bytes += static_cast<char>('a' + i % 26);
  UniqueDescriptor src(OpenDescriptor((dir + "/src").c_str(), O_RDWR | O_CREAT, 0600));
  ASSERT_EQ(write(src.get(), bytes.data(), bytes.size()), 40000);
  EXPECT_NE(fcntl(src.get(), F_GETFD) & FD_CLOEXEC, 0);
  lseek(src.get(), 5, SEEK_SET);
  UniqueDescriptor file(OpenDescriptor((dir + "/dst").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600));
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  UniqueDescriptor pipeIn(pipeFds[0]), pipeOut(pipeFds[1]);
  for (const int out : {file.get(), pipeOut.get()}) {
    ASSERT_EQ(write(out, "head", 4), 4);
    ASSERT_EQ(CopyDescriptorRange(src.get(), 10, out, 20000), 1);
    EXPECT_EQ(lseek(src.get(), 0, SEEK_CUR), 5);
  }
  const std::string expected = "head" + bytes.substr(10, 20000);
  std::string fromFile(expected.size(), '\0'), fromPipe(expected.size(), '\0');
  ASSERT_EQ(pread(file.get(), fromFile.data(), fromFile.size(), 0), 20004);
  ASSERT_EQ(read(pipeIn.get(), fromPipe.data(), fromPipe.size()), 20004);
  EXPECT_EQ(fromFile, expected);
  EXPECT_EQ(fromPipe, expected);
  EXPECT_EQ(CopyDescriptorRange(src.get(), 39000, file.get(), 2000), 0);
  EXPECT_EQ(CopyDescriptorRange(src.get(), -1, file.get(), 10), 0);
  EXPECT_EQ(OpenDescriptor((dir + "/no/such").c_str(), O_WRONLY | O_CREAT, 0600), -1);
  EXPECT_EQ(file.Close(), 0);
  std::filesystem::remove_all(dir);
}

// A write error that shows only when the destination is closed still fails the copy.
TEST(CopyFile, FailsWhenTheLastBlockCannotBeWritten) {
  char pattern[] = "/tmp/tk_copies_XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string source = std::string(pattern) + "/small";
  {
    UniqueFile out(OpenFile(source.c_str(), "wb"));
    std::fputs("abcdef", out.get());
  }
  EXPECT_EQ(CopyFile(source.c_str(), "/dev/full", 0, -1), 0);
  EXPECT_EQ(AppendFileRange(source.c_str(), "/dev/full", 0, -1), 0);
  EXPECT_EQ(CopyFile(source.c_str(), (source + ".copy").c_str(), 0, -1), 1);
  std::filesystem::remove_all(pattern);
}

}  // namespace
}  // namespace tk
