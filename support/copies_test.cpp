#include "support/copies.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/files.h"
#include "support/test_util.h"

namespace tk {
namespace {

class CopiesTest : public test::TempDirTest {
 protected:
  // 40000 bytes of "abc...z" repeated, written to "src".
  std::string WriteSource() {
    std::string bytes;
    for (int i = 0; i < 40000; ++i) bytes += static_cast<char>('a' + i % 26);
    Write("src", bytes);
    return bytes;
  }
};

// Whatever way the bytes travel, a range copy lands at the destination's current
// position, after bytes it already buffers, and leaves the source after the range.
TEST_F(CopiesTest, StreamRangeContinuesBothStreamsWhereTheCopyEnded) {
  const std::string bytes = WriteSource();
  for (const std::string head : {"", "head"}) {
    UniqueFile src(OpenFile(P("src").c_str(), "rb"));
    UniqueFile dst(OpenFile(P("dst").c_str(), "w+b"));
    std::fputs(head.c_str(), dst.get());
    ASSERT_EQ(CopyStreamRange(src.get(), dst.get(), 10, 20000), 1);
    EXPECT_EQ(TellFile(src.get()), 20010);
    std::fputs("tail", dst.get());
    dst.reset();
    EXPECT_EQ(Read("dst"), head + bytes.substr(10, 20000) + "tail");
  }
}

// The range lands at the destination's position whether the kernel copies it (a file) or
// it goes through user space (a pipe, which copy_file_range refuses); the source keeps
// its own position. A source that ends early or a negative range fails.
TEST_F(CopiesTest, DescriptorRangeCopiesTheRangeAndLeavesTheSourcePosition) {
  const std::string bytes = WriteSource();
  UniqueDescriptor src(OpenDescriptor(P("src").c_str(), O_RDONLY, 0));
  EXPECT_NE(fcntl(src.get(), F_GETFD) & FD_CLOEXEC, 0);
  lseek(src.get(), 5, SEEK_SET);
  UniqueDescriptor file(OpenDescriptor(P("dst").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600));
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  UniqueDescriptor pipeIn(pipeFds[0]), pipeOut(pipeFds[1]);
  for (const int out : {file.get(), pipeOut.get()}) {
    ASSERT_EQ(write(out, "head", 4), 4);
    ASSERT_EQ(CopyDescriptorRange(src.get(), 10, out, 20000), 1);
    EXPECT_EQ(lseek(src.get(), 0, SEEK_CUR), 5);
  }
  const std::string expected = "head" + bytes.substr(10, 20000);
  std::string fromPipe(expected.size(), '\0');
  ASSERT_EQ(read(pipeIn.get(), fromPipe.data(), fromPipe.size()), 20004);
  EXPECT_EQ(fromPipe, expected);
  EXPECT_EQ(CopyDescriptorRange(src.get(), 39000, file.get(), 2000), 0);
  EXPECT_EQ(CopyDescriptorRange(src.get(), -1, file.get(), 10), 0);
  EXPECT_EQ(OpenDescriptor(P("no/such").c_str(), O_WRONLY | O_CREAT, 0600), -1);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(Read("dst").substr(0, expected.size()), expected);
}

// A write error that shows only when the destination is closed still fails the copy.
TEST_F(CopiesTest, CopyFileFailsWhenTheLastBlockCannotBeWritten) {
  Write("small", "abcdef");
  const std::string source = P("small");
  EXPECT_EQ(CopyFile(source.c_str(), "/dev/full", 0, -1), 0);
  EXPECT_EQ(AppendFileRange(source.c_str(), "/dev/full", 0, -1), 0);
  EXPECT_EQ(CopyFile(source.c_str(), (source + ".copy").c_str(), 0, -1), 1);
  EXPECT_EQ(Read("small.copy"), "abcdef");
}

}  // namespace
}  // namespace tk
