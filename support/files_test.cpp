#include "support/files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <tuple>

#include "runtime/sync.h"
#include "testing/fault.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using FilesTest = test::TempDirTest;
using Clock = std::chrono::steady_clock;

int gHeldDescriptor = -1;
void CloseHeldDescriptor(int) { close(gHeldDescriptor); }

// In a child whose descriptors have run out, one is freed by an alarm after a second:
// the open must have waited for it and marked the new one close-on-exec. Any other
// failure is final at once.
TEST_F(FilesTest, OpenFileRetriesOnlyWhenOutOfDescriptors) {
  WriteFile("f", "x");
  const std::string path = Path("f");
  EXPECT_EQ(test::RunInChild([&path]() -> std::string {
              const std::vector<int> last = test::ExhaustDescriptors(1);
              if (last.empty() || fopen64(path.c_str(), "rb") != nullptr) return "not exhausted";
              gHeldDescriptor = last[0];
              signal(SIGALRM, CloseHeldDescriptor);
              const auto start = Clock::now();
              alarm(1);
              FILE* f = OpenFile(path.c_str(), "rb");
              const auto waited = Clock::now() - start;
              if (f == nullptr || waited < std::chrono::milliseconds(900)) return "no wait";
              return (fcntl(fileno(f), F_GETFD) & FD_CLOEXEC) ? "ok" : "inherited";
            }),
            "ok");
  const auto start = Clock::now();
  EXPECT_EQ(OpenFile(Path("missing").c_str(), "rb"), nullptr);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
}

// FileExists takes anything that opens for reading, a directory too.
TEST_F(FilesTest, FileExistsAndFileSize) {
  WriteFile("d/f", "abc");
  const std::tuple<std::string, int> cases[] = {{"d/f", 1}, {"d", 1}, {"gone", 0}};
  for (const auto& [name, exists] : cases) EXPECT_EQ(FileExists(Path(name).c_str()), exists);
  EXPECT_EQ(FileExists("") + FileExists(nullptr), 0);
  EXPECT_EQ(FileSize(Path("d/f").c_str()), 3);
  EXPECT_EQ(FileSize(Path("gone").c_str()), 0);
}

TEST_F(FilesTest, SamePathIgnoresSeparatorsAndOuterWhitespace) {
  const std::tuple<std::string, std::string, int> cases[] = {{"/opt/tk/", "opt\\tk", 1},
                                                             {" /opt/tk", "/opt/tk\t", 1},
                                                             {"/opt/Tk", "/opt/tk", 0},
                                                             {"/", "/", 0}};
  for (auto [a, b, same] : cases) EXPECT_EQ(SamePath(a, b), same) << a << " | " << b;
}

// Each read is given as its length, ":", the line left in the buffer and "|". A size of
// 5 reads at most 3 characters at a time.
TEST_F(FilesTest, ReadTextLineStripsOneLineEnd) {
  const std::tuple<std::string, int, std::string> cases[] = {
      {"abc\r\n", 16, "5:abc|"},          {"\n", 16, "1:|"},
      {"x\r\r\n", 16, "4:x\r|"},          {"a\n\nb", 16, "2:a|1:|1:b|"},
      {"abcdef\n", 5, "3:abc|3:def|1:|"}, {"abc", 2, ""}};
  for (const auto& [text, size, reads] : cases) {
    WriteFile("t", text);
    UniqueFile f(OpenFile(Path("t").c_str(), "rb"));
    // Exactly sized, so that a look before or past the buffer shows under ASan.
    std::unique_ptr<char[]> buffer(new char[size]);
    std::string got;
    for (int n, i = 0; i < 10 && (n = ReadTextLine(buffer.get(), size, f.get())) > 0; ++i) {
      got += std::to_string(n) + ":" + buffer.get() + "|";
    }
    EXPECT_EQ(got, reads);
  }
}

// Reads of 1027 bytes overlap by the text's length, so a text across two reads is
// found; a NUL hides the rest of its read.
TEST_F(FilesTest, FindInStreamLeavesTheStreamAtTheHit) {
  std::string data(3000, 'a');
  data.replace(1025, 4, "KEY!").replace(2100, 1, 1, '\0').replace(2500, 4, "LATE");
  WriteFile("s", data);
  UniqueFile in(OpenFile(Path("s").c_str(), "rb"));
  EXPECT_EQ(FindInStream(in.get(), "KEY!"), 1025u);
  EXPECT_EQ(StreamSize(in.get()), 3000);
  EXPECT_EQ(TellFile(in.get()), 1025);
  EXPECT_EQ(FindInStream(in.get(), "LATE"), 0xFFFFFFFFu);
  EXPECT_EQ(FindInStream(in.get(), ""), 0xFFFFFFFFu);
}

// Names are the prefix, at least 16 hex digits (counter, pid, rand()) and the suffix.
TEST_F(FilesTest, MakeTempFileNameAddsOneDotBeforeTheExtension) {
  const std::tuple<std::string, std::string> cases[] = {
      {"txt", ".txt"}, {".txt", ".txt"}, {" .txt\t", ".txt"}, {"", ""}, {".", ""}};
  for (const auto& [ext, ending] : cases) {
    std::string result, directory = " " + path(), extension = ext, pre = "pre", suf = "suf";
    ASSERT_EQ(MakeTempFileName(result, directory, extension, pre, suf), 1);
    EXPECT_EQ(directory, path() + "/");
    const std::string head = path() + "/pre", tail = "suf" + ending;
    ASSERT_TRUE(result.starts_with(head) && result.ends_with(tail)) << result;
    const std::string hex = result.substr(head.size(), result.size() - head.size() - tail.size());
    EXPECT_TRUE(hex.size() >= 16 && hex.find_first_not_of("0123456789abcdef") == hex.npos);
    EXPECT_TRUE(Exists(result) && ReadFile(result).empty()) << result;
  }
  std::string result = "x", directory = Path("gone"), extension, prefix, suffix;
  EXPECT_EQ(MakeTempFileName(result, directory, extension, prefix, suffix), 0);
  EXPECT_EQ(result, "");
}

// In a child whose address space has no room for the name buffer (a directory name of
// 64 MiB): the result is 0 and gTempNameMutex stays locked.
TEST_F(FilesTest, MakeTempFileNameKeepsTheMutexLockedWithoutANameBuffer) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer ends the process on a failed allocation";
#endif
  EXPECT_EQ(test::RunInChild([] {
              constexpr size_t kBig = 64 << 20;
              std::string result = "x", directory(kBig, 'd'), extension, prefix, suffix;
              directory.reserve(kBig + 1);
              size_t pages = 0;
              std::ifstream("/proc/self/statm") >> pages;
              const rlimit limit{pages * sysconf(_SC_PAGESIZE) + kBig / 2, RLIM_INFINITY};
              if (pages == 0 || setrlimit(RLIMIT_AS, &limit) != 0) return std::string("no limit");
              const int made = MakeTempFileName(result, directory, extension, prefix, suffix);
              const bool locked = pthread_mutex_trylock(gTempNameMutex.Native()) == EBUSY;
              return std::to_string(made) + "[" + result + "]" + (locked ? "locked" : "free");
            }),
            "0[]locked");
}

}  // namespace
}  // namespace tk
