#include "support/copies.h"

#include <fcntl.h>
#include <unistd.h>

#include <tuple>

#include "support/files.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

class CopiesTest : public test::TempDirTest {
 protected:
  // 40000 bytes without a short period (two whole 16384-byte blocks and a rest), as "src".
  void SetUp() override {
    test::TempDirTest::SetUp();
    for (int i = 0; i < 40000; ++i) src_ += static_cast<char>(i * 7 + i / 251);
    WriteFile("src", src_);
  }
  std::string src_;
};

// Ranges past the end copy what is there; a start past the end copies nothing and fails.
TEST_F(CopiesTest, CopyFileTakesTheRangeThatExists) {
  const std::tuple<int64_t, int64_t, int, size_t> cases[] = {
      {3, -1, 1, 39997}, {10, 40000, 1, 39990}, {5, 10, 1, 10},
      {40000, -1, 1, 0}, {40001, -1, 0, 0},     {-1, -1, 0, 0}};
  for (const auto& [offset, length, result, copied] : cases) {
    EXPECT_EQ(CopyFile(Path("src").c_str(), Path("dst").c_str(), offset, length), result);
    EXPECT_EQ(ReadFile("dst"), result ? src_.substr(offset, copied) : "") << offset;
  }
  WriteFile("dst", "old");
  EXPECT_EQ(AppendFileRange(Path("src").c_str(), Path("dst").c_str(), 0, 16384), 1);
  EXPECT_EQ(ReadFile("dst"), "old" + src_.substr(0, 16384));
  EXPECT_EQ(CopyFile(Path("gone").c_str(), Path("new").c_str(), 0, -1), 0);
  EXPECT_EQ(CopyFile("", Path("new").c_str(), 0, -1), 0);
  EXPECT_FALSE(Exists("new"));
}

// Whatever way the bytes travel (by blocks behind buffered bytes, or by the kernel), a
// range lands at the destination's current position and leaves the source after it.
TEST_F(CopiesTest, StreamRangeContinuesBothStreamsWhereTheCopyEnded) {
  for (const std::string head : {"", "head"}) {
    UniqueFile src(OpenFile(Path("src").c_str(), "rb")), dst(OpenFile(Path("dst").c_str(), "wb"));
    std::fputs(head.c_str(), dst.get());
    ASSERT_EQ(CopyStreamRange(src.get(), dst.get(), 10, 20000), 1);
    EXPECT_EQ(TellFile(src.get()), 20010);
    std::fputs("tail", dst.get());
    dst.reset();
    EXPECT_EQ(ReadFile("dst"), head + src_.substr(10, 20000) + "tail");
  }
  EXPECT_EQ(CopyStreamRange(nullptr, stdout, 0, -1), 0);
}

// The range lands at the destination's position whether the kernel copies it (a file) or
// it goes through user space (a pipe, which copy_file_range refuses); the source keeps
// its own position. A source that ends early or a negative range fails.
TEST_F(CopiesTest, DescriptorRangeCopiesTheRangeAndLeavesTheSourcePosition) {
  UniqueDescriptor src(OpenDescriptor(Path("src").c_str(), O_RDONLY, 0));
  EXPECT_NE(fcntl(src.get(), F_GETFD) & FD_CLOEXEC, 0);
  lseek(src.get(), 5, SEEK_SET);
  UniqueDescriptor file(OpenDescriptor(Path("dst").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600));
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  UniqueDescriptor pipeIn(pipeFds[0]), pipeOut(pipeFds[1]);
  for (const int out : {file.get(), pipeOut.get()}) {
    ASSERT_EQ(write(out, "head", 4), 4);
    ASSERT_EQ(CopyDescriptorRange(src.get(), 10, out, 20000), 1);
    EXPECT_EQ(lseek(src.get(), 0, SEEK_CUR), 5);
  }
  const std::string expected = "head" + src_.substr(10, 20000);
  std::string fromPipe(expected.size(), '\0');
  ASSERT_EQ(read(pipeIn.get(), fromPipe.data(), fromPipe.size()), 20004);
  EXPECT_EQ(fromPipe, expected);
  EXPECT_EQ(CopyDescriptorRange(src.get(), 39000, file.get(), 2000), 0);
  EXPECT_EQ(CopyDescriptorRange(src.get(), -1, file.get(), 10), 0);
  EXPECT_EQ(OpenDescriptor(Path("no/such").c_str(), O_WRONLY | O_CREAT, 0600), -1);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(ReadFile("dst").substr(0, expected.size()), expected);
}

}  // namespace
}  // namespace tk
