#include "support/files.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>

namespace tk {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

// A fresh directory per test. Tree entries ending in "/" are directories, the
// others files holding their own name.
class FilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tk_files_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string P(const std::string& relative) const { return dir_ + "/" + relative; }
  void Write(const std::string& relative, const std::string& bytes) const {
    std::ofstream(P(relative), std::ios::binary) << bytes;
  }
  std::string Read(const std::string& relative) const {
    std::ifstream in(P(relative), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  void Tree(const Names& entries) const {
    for (const std::string& e : entries) {
      fs::create_directories(fs::path(P(e)).parent_path());
      if (e.back() != '/') Write(e, e);
    }
  }
  // Everything below the test directory, sorted, directories with a trailing "/".
  Names Remaining() const {
    Names names;
    for (const auto& e : fs::recursive_directory_iterator(dir_)) {
      names.push_back(fs::relative(e.path(), dir_).string() + (e.is_directory() ? "/" : ""));
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string dir_;
};

// Runs `body` in a forked child and returns its exit code (-1 if it did not exit).
int RunInChild(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

// Lowers the descriptor limit a little above the lowest free descriptor (whatever
// the runner left open) and opens /dev/null until it is reached. Returns the last
// descriptor opened, or -1 when the limit was not reached cleanly.
int ExhaustDescriptors() {
  int last = open("/dev/null", O_RDONLY);
  rlimit limit{};
  if (last < 0 || getrlimit(RLIMIT_NOFILE, &limit) != 0) return -1;
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, last + 32);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return -1;
  for (int fd; (fd = open("/dev/null", O_RDONLY)) >= 0;) last = fd;
  return errno == EMFILE ? last : -1;
}

// `head`, then at least 16 lower-case hex digits (counter, pid, rand()), then `tail`.
bool IsTempName(const std::string& name, const std::string& head, const std::string& tail) {
  if (name.size() < head.size() + 16 + tail.size() || !name.starts_with(head) ||
      !name.ends_with(tail)) {
    return false;
  }
  const std::string digits = name.substr(head.size(), name.size() - head.size() - tail.size());
  return digits.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// Thread body that frees the descriptor it is given. A plain pthread rather than
// std::thread: with no descriptor left, UBSan's check of std::thread's virtual call
// cannot probe memory (it needs a pipe) and reports a false error.
void* CloseAfterASecond(void* fd) {
  sleep(1);
  close(static_cast<int>(reinterpret_cast<intptr_t>(fd)));
  return nullptr;
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(FilesTest, OpenFileRetriesOnlyWhenOutOfDescriptors) {
  Write("f", "x");
  const std::string path = P("f");
  const int code = RunInChild([&path] {
    const int last = ExhaustDescriptors();
    if (last < 0) return 10;
    if (fopen64(path.c_str(), "rb") != nullptr || errno != EMFILE) return 11;
    const auto start = std::chrono::steady_clock::now();
    pthread_t freer;
    if (pthread_create(&freer, nullptr, CloseAfterASecond, reinterpret_cast<void*>(last))) {
      return 15;
    }
    FILE* f = OpenFile(path.c_str(), "rb");
    const double waited = SecondsSince(start);
    pthread_join(freer, nullptr);
    if (f == nullptr) return 12;
    if (waited < 0.9 || waited > 8) return 13;
    return (fcntl(fileno(f), F_GETFD) & FD_CLOEXEC) ? 0 : 14;
  });
  EXPECT_EQ(code, 0);
  // Any other failure is final at once.
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(OpenFile(P("missing").c_str(), "rb"), nullptr);
  EXPECT_LT(SecondsSince(start), 2);
}

TEST_F(FilesTest, DirectoryExistsIgnoresOneTrailingSeparatorButNotRoot) {
  Tree({"d/", "f"});
  const struct { std::string path; int expected; } cases[] = {
      {"/", 0}, {"", 0}, {P("d"), 1}, {P("d/"), 1}, {P("d\\"), 1}, {P("f"), 0}, {P("nope"), 0},
  };
  for (const auto& c : cases) EXPECT_EQ(DirectoryExists(c.path.c_str()), c.expected) << c.path;
  EXPECT_EQ(DirectoryExists(nullptr), 0);
}

TEST_F(FilesTest, CreateDirectoryPathMakesMissingComponentsAndStopsAtAFile) {
  const struct {
    Names before;
    std::string path;  // "{d}" stands for the test directory
    bool singleLevel;
    int expected;
    int expectedErrno;  // 0: not checked
    Names after;
  } cases[] = {
      {{}, "{d}/a/b/c", false, 1, 0, {"a/", "a/b/", "a/b/c/"}},
      {{"a/b/c/"}, "{d}/a/b/c", false, 1, 0, {"a/", "a/b/", "a/b/c/"}},
      {{}, " {d}/x\\y", false, 1, 0, {"x/", "x/y/"}},
      {{}, "{d}/a/b/", false, 1, 0, {"a/", "a/b/"}},
      {{"a/", "a/b"}, "{d}/a/b/c", false, 0, ENOTDIR, {"a/", "a/b"}},
      {{"a/", "a/b"}, "{d}/a/b", false, 1, 0, {"a/", "a/b"}},
      {{}, "{d}/a/b", true, 0, ENOENT, {}},
      {{}, "{d}/a", true, 1, 0, {"a/"}},
  };
  for (const auto& c : cases) {
    fs::remove_all(dir_);
    fs::create_directory(dir_);
    Tree(c.before);
    std::string path = c.path;
    path.replace(path.find("{d}"), 3, dir_);
    errno = 0;
    EXPECT_EQ(CreateDirectoryPath(path.c_str(), c.singleLevel), c.expected) << path;
    if (c.expectedErrno != 0) {
      EXPECT_EQ(errno, c.expectedErrno) << path;
    }
    EXPECT_EQ(Remaining(), c.after) << path;
  }
  EXPECT_EQ(CreateDirectoryPath(nullptr, false), 0);
}

TEST_F(FilesTest, RemoveDirectoryNeverEntersHiddenDirectories) {
  Tree({"d/.cache/x", "d/.profile", "d/f", "d/sub/g"});
  EXPECT_EQ(RemoveDirectory(P("d").c_str(), true, "", ""), 0);
  EXPECT_EQ(Remaining(), (Names{"d/", "d/.cache/", "d/.cache/x"}));
  Tree({"e/.profile", "e/sub/.g"});
  EXPECT_EQ(RemoveDirectory(P("e/").c_str(), true, nullptr, nullptr), 1);
  EXPECT_FALSE(fs::exists(P("e")));
  EXPECT_EQ(RemoveDirectory(nullptr, true, nullptr, nullptr), 1);
  EXPECT_EQ(RemoveDirectory(P("gone").c_str(), true, nullptr, nullptr), 1);
}

TEST_F(FilesTest, RemoveDirectoryRemovesLinksWithoutFollowingThem) {
  Tree({"outside/keep", "d/f"});
  fs::create_directory_symlink(P("outside"), P("d/link"));
  EXPECT_EQ(RemoveDirectory(P("d").c_str(), true, nullptr, nullptr), 1);
  EXPECT_EQ(Remaining(), (Names{"outside/", "outside/keep"}));
}

TEST_F(FilesTest, RemoveDirectoryPatternsSelectFilesAndDirectories) {
  const struct {
    const char* filePattern;
    const char* dirPattern;
    Names after;
  } cases[] = {
      {"", "*", {".c/", ".h", "f1", "g1"}},
      {"f", "", {".c/", ".h", "g1", "s1/", "s1/x", "t1/"}},
      {nullptr, "s", {".c/", "t1/"}},
      {"*", nullptr, {".c/"}},
  };
  for (const auto& c : cases) {
    fs::remove_all(dir_);
    fs::create_directory(dir_);
    Tree({"f1", "g1", ".h", "s1/x", "t1/", ".c/"});
    EXPECT_EQ(RemoveDirectory(dir_.c_str(), false, c.filePattern, c.dirPattern), 1);
    EXPECT_EQ(Remaining(), c.after);
  }
}

TEST_F(FilesTest, ListingsSkipHiddenNamesAndFilterByPrefix) {
  Tree({"a1", "a2", "b1", ".h", "d1/", "ad/", ".c/"});
  const struct { const char* pattern; Names files, dirs; } cases[] = {
      {nullptr, {"a1", "a2", "b1"}, {"ad", "d1"}},
      {"*", {"a1", "a2", "b1"}, {"ad", "d1"}},
      {"a", {"a1", "a2"}, {"ad"}},
      {"z", {}, {}},
  };
  for (const auto& c : cases) {
    Names files{"kept"}, dirs, expectedFiles{"kept"};
    EXPECT_EQ(ListFiles((dir_ + "/").c_str(), c.pattern, files), 1);
    EXPECT_EQ(ListDirectories(dir_.c_str(), c.pattern, dirs), 1);
    std::sort(files.begin() + 1, files.end());
    std::sort(dirs.begin(), dirs.end());
    expectedFiles.insert(expectedFiles.end(), c.files.begin(), c.files.end());
    EXPECT_EQ(files, expectedFiles);
    EXPECT_EQ(dirs, c.dirs);
  }
  Names list;
  EXPECT_EQ(ListFiles(P("gone").c_str(), nullptr, list), 1);
  EXPECT_EQ(ListDirectories(nullptr, nullptr, list), 0);
  EXPECT_TRUE(list.empty());
}

TEST_F(FilesTest, FileExistsNoCaseRewritesThePathToTheRealName) {
  Tree({"README.txt", "Docs/README.txt", "Docs/Sub/", "Docs/.Hidden"});
  const std::string cwd = fs::current_path();
  fs::current_path(dir_);
  const struct { std::string path; int expected; std::string after; } cases[] = {
      {"readme.TXT", 1, "./README.txt"},
      {"Docs/Readme.TXT", 1, "Docs/README.txt"},
      {"Docs\\readme.txt", 1, "Docs/README.txt"},
      {"Docs/sub", 0, "Docs/sub"},
      {"Docs/.hidden", 0, "Docs/.hidden"},
      {"Docs/missing", 0, "Docs/missing"},
      {"Nope/readme.txt", 0, "Nope/readme.txt"},
  };
  for (const auto& c : cases) {
    std::string path = c.path;
    EXPECT_EQ(FileExistsNoCase(path), c.expected) << c.path;
    EXPECT_EQ(path, c.after);
  }
  fs::current_path(cwd);
}

TEST_F(FilesTest, CopyFileTakesTheRangeThatExists) {
  std::string source;
  for (int i = 0; i < 100; ++i) source += static_cast<char>('!' + i % 90);
  Write("src", source);
  const struct { int64_t offset, length; int expected; std::string bytes; } cases[] = {
      {10, -1, 1, source.substr(10)}, {10, 1000, 1, source.substr(10)},
      {5, 10, 1, source.substr(5, 10)}, {0, -1, 1, source},
      {100, -1, 1, ""}, {200, -1, 0, ""}, {-1, -1, 0, ""},
  };
  for (const auto& c : cases) {
    Write("dst", "old contents");
    EXPECT_EQ(CopyFile(P("src").c_str(), P("dst").c_str(), c.offset, c.length), c.expected)
        << c.offset << " " << c.length;
    EXPECT_EQ(Read("dst"), c.bytes) << c.offset << " " << c.length;
  }
  EXPECT_EQ(CopyFile(P("gone").c_str(), P("new").c_str(), 0, -1), 0);
  EXPECT_FALSE(fs::exists(P("new")));
  EXPECT_EQ(CopyFile("", P("new").c_str(), 0, -1), 0);
}

TEST_F(FilesTest, CopiesSpanSeveralBlocksAndAppend) {
  std::string big(2 * 16384 + 7, '\0');
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 + i / 251);
  Write("big", big);
  EXPECT_EQ(CopyFile(P("big").c_str(), P("copy").c_str(), 3, -1), 1);
  EXPECT_EQ(Read("copy"), big.substr(3));
  EXPECT_EQ(AppendFileRange(P("big").c_str(), P("copy").c_str(), 0, 16384), 1);
  EXPECT_EQ(Read("copy"), big.substr(3) + big.substr(0, 16384));
  EXPECT_EQ(FileSize(P("copy").c_str()), static_cast<int64_t>(big.size() - 3 + 16384));
}

TEST_F(FilesTest, CopyStreamRangeWritesAtTheDestinationPosition) {
  Write("src", "0123456789");
  UniqueFile in(OpenFile(P("src").c_str(), "rb"));
  UniqueFile out(OpenFile(P("dst").c_str(), "wb"));
  fputs("XY", out.get());
  EXPECT_EQ(CopyStreamRange(in.get(), out.get(), 2, 3), 1);
  EXPECT_EQ(TellFile(in.get()), 5);
  EXPECT_EQ(StreamSize(in.get()), 10);
  EXPECT_EQ(TellFile(in.get()), 5);
  out.reset();
  EXPECT_EQ(Read("dst"), "XY234");
  EXPECT_EQ(CopyStreamRange(nullptr, in.get(), 0, -1), 0);
}

TEST_F(FilesTest, ReadTextLineStripsOneLineEnd) {
  const struct { std::string text; int size; std::vector<std::pair<int, std::string>> lines; }
  cases[] = {
      {"abc\r\n", 16, {{5, "abc"}}},
      {"\n", 16, {{1, ""}}},
      {"\r\n", 16, {{2, ""}}},
      {"a\n\nb", 16, {{2, "a"}, {1, ""}, {1, "b"}}},
      {"x\r\r\n", 16, {{4, "x\r"}}},
      {"abcdef\n", 5, {{3, "abc"}, {3, "def"}, {1, ""}}},
      {"abc", 2, {}},
      {"", 16, {}},
  };
  for (const auto& c : cases) {
    Write("t", c.text);
    UniqueFile f(OpenFile(P("t").c_str(), "rb"));
    // Exactly sized, so that a look before or past the buffer shows under ASan.
    std::unique_ptr<char[]> buffer(new char[c.size]);
    for (const auto& [length, line] : c.lines) {
      EXPECT_EQ(ReadTextLine(buffer.get(), c.size, f.get()), length) << c.text;
      EXPECT_EQ(std::string(buffer.get()), line);
    }
    EXPECT_EQ(ReadTextLine(buffer.get(), c.size, f.get()), 0) << c.text;
  }
}

TEST_F(FilesTest, FindInStreamFindsTextAcrossReads) {
  std::string data(3000, 'a');
  data.replace(1025, 4, "KEY!");  // straddles the first read of 1027 bytes
  data.replace(2100, 1, std::string(1, '\0'));
  data.replace(2500, 4, "LATE");  // hidden behind the NUL of its read
  Write("s", data);
  UniqueFile f(OpenFile(P("s").c_str(), "rb"));
  EXPECT_EQ(FindInStream(f.get(), "KEY!"), 1025u);
  EXPECT_EQ(TellFile(f.get()), 1025);
  EXPECT_EQ(FindInStream(f.get(), "LATE"), 0xFFFFFFFFu);
  EXPECT_EQ(FindInStream(f.get(), ""), 0xFFFFFFFFu);
}

TEST_F(FilesTest, MakeTempFileNameAddsOneDotBeforeTheExtension) {
  const struct { std::string extension, ending; } cases[] = {
      {"txt", ".txt"}, {".txt", ".txt"}, {" .txt\t", ".txt"}, {"", ""}, {".", ""},
  };
  std::string previous;
  for (const auto& c : cases) {
    std::string result, directory = " " + dir_, extension = c.extension;
    std::string prefix = "pre", suffix = "suf";
    ASSERT_EQ(MakeTempFileName(result, directory, extension, prefix, suffix), 1);
    EXPECT_EQ(directory, dir_ + "/");
    EXPECT_TRUE(IsTempName(result, dir_ + "/pre", "suf" + c.ending)) << result;
    EXPECT_TRUE(fs::exists(result) && fs::file_size(result) == 0) << result;
    EXPECT_NE(result, previous);
    previous = result;
  }
  std::string result = "x", directory = P("gone"), extension, prefix, suffix;
  EXPECT_EQ(MakeTempFileName(result, directory, extension, prefix, suffix), 0);
  EXPECT_EQ(result, "");
}

TEST_F(FilesTest, SmallDirectoryHelpers) {
  Tree({"d/.only", "e/x1", "e/x2", "e/.x3", "e/y", "f"});
  EXPECT_EQ(DirectoryIsEmpty(P("d").c_str()), 1);
  EXPECT_EQ(DirectoryIsEmpty(P("e/").c_str()), 0);
  EXPECT_EQ(DirectoryIsEmpty(P("gone").c_str()), 1);
  EXPECT_EQ(FindFileByPrefix(P("e/").c_str(), "y"), P("e/y"));
  EXPECT_EQ(FindFileByPrefix(P("e/").c_str(), "z"), "");
  DeleteFilesByPrefix(P("e/").c_str(), ".x");
  DeleteFilesByPrefix(P("e/").c_str(), "x1");
  EXPECT_EQ(Remaining(), (Names{"d/", "d/.only", "e/", "e/x2", "e/y", "f"}));
  EXPECT_EQ(FileExists(P("f").c_str()), 1);
  EXPECT_EQ(FileExists(P("gone").c_str()), 0);
  EXPECT_EQ(FileSize(P("f").c_str()), 1);
  EXPECT_EQ(FileSize(P("gone").c_str()), 0);
}

TEST(SamePath, ComparesWithoutSeparatorsAndOuterSpaces) {
  const struct { std::string a, b; int expected; } cases[] = {
      {"/opt/tavik/", "opt\\tavik", 1}, {" /opt/tavik", "/opt/tavik\t", 1},
      {"/opt/Tavik", "/opt/tavik", 0}, {"/", "/", 0}, {"", "", 0},
  };
  for (auto c : cases) EXPECT_EQ(SamePath(c.a, c.b), c.expected) << c.a << " | " << c.b;
}

}  // namespace
}  // namespace tk
