#include "support/files.h"

#include <fcntl.h>
#include <pthread.h>

#include <cerrno>

#include "support/copies.h"
#include "support/directories.h"
#include "support/fault_injection_fixture.h"
#include "support/test_util.h"

namespace tk {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;
using test::SecondsSince;

class FilesTest : public test::TempDirTest {
 protected:
  // Makes the test directory hold just `entries`: names ending in "/" are directories,
  // "name->target" symbolic links, the others files holding their own name.
  void Tree(const Names& entries) const {
    fs::remove_all(dir_);
    fs::create_directory(dir_);
    for (const std::string& e : entries) {
      const size_t arrow = e.find("->");
      const std::string name = e.substr(0, arrow);
      fs::create_directories(fs::path(P(name)).parent_path());
      if (arrow != std::string::npos) fs::create_directory_symlink(P(e.substr(arrow + 2)), P(name));
      if (arrow == std::string::npos && e.back() != '/') Write(e, e);
    }
  }
};

// Thread body that frees the descriptor it is given. A plain pthread rather than
// std::thread: with no descriptor left, UBSan's check of std::thread's virtual call
// cannot probe memory (it needs a pipe) and reports a false error.
void* CloseAfterASecond(void* fd) {
  sleep(1);
  close(static_cast<int>(reinterpret_cast<intptr_t>(fd)));
  return nullptr;
}

// In a child whose descriptors have run out, one is freed from another thread after a
// second: the open must have waited for it and marked the new one close-on-exec.
TEST_F(FilesTest, OpenFileRetriesOnlyWhenOutOfDescriptors) {
  Write("f", "x");
  const std::string path = P("f");
  EXPECT_EQ(fault::RunInChild([&path]() -> std::string {
              const std::vector<int> last = fault::ExhaustDescriptors(1);
              if (last.empty() || fopen64(path.c_str(), "rb") != nullptr) return "not exhausted";
              const auto start = std::chrono::steady_clock::now();
              pthread_t freer;
              pthread_create(&freer, nullptr, CloseAfterASecond,
                             reinterpret_cast<void*>(intptr_t{last[0]}));
              FILE* f = OpenFile(path.c_str(), "rb");
              const double waited = SecondsSince(start);
              pthread_join(freer, nullptr);
              if (f == nullptr || waited < 0.9 || waited > 8) return std::to_string(waited);
              return (fcntl(fileno(f), F_GETFD) & FD_CLOEXEC) ? "ok" : "inherited";
            }),
            "ok");
  const auto start = std::chrono::steady_clock::now();  // any other failure is final at once
  EXPECT_EQ(OpenFile(P("missing").c_str(), "rb"), nullptr);
  EXPECT_LT(SecondsSince(start), 2);
}

TEST_F(FilesTest, ExistenceAndEmptinessTests) {
  Tree({"d/.only", "e/x1", "f"});
  const struct {
    std::string path;
    int file, directory, empty;
  } cases[] = {
      {P("d"), 1, 1, 1},  {P("d/"), 1, 1, 1}, {P("d\\"), 0, 1, 1},
      {P("e/"), 1, 1, 0}, {P("f"), 1, 0, 1},  {P("gone"), 0, 0, 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FileExists(c.path.c_str()), c.file) << c.path;
    EXPECT_EQ(DirectoryExists(c.path.c_str()), c.directory) << c.path;
    EXPECT_EQ(DirectoryIsEmpty(c.path.c_str()), c.empty) << c.path;
  }
  EXPECT_EQ(DirectoryExists(nullptr) + DirectoryExists("") + DirectoryExists("/"), 0);
  EXPECT_EQ(FileExists(""), 0);
  EXPECT_EQ(FileSize(P("f").c_str()), 1);
  EXPECT_EQ(FileSize(P("gone").c_str()), 0);
}

// Multi-level paths are trimmed first; a single level is one mkdir of the path as given.
TEST_F(FilesTest, CreateDirectoryPathMakesMissingComponentsAndStopsAtAFile) {
  const Names abc = {"a/", "a/b/", "a/b/c/"}, ab = {"a/", "a/b"};
  const struct {
    Names before;
    std::string path;
    bool single;
    int result, error;
    Names after;
  } cases[] = {
      {{}, "/a/b/c", false, 1, 0, abc},
      {{"a/b/c/"}, "/a/b/c", false, 1, 0, abc},
      {{}, "/x\\y", false, 1, 0, {"x/", "x/y/"}},
      {{}, "/a/b/", false, 1, 0, {"a/", "a/b/"}},
      {ab, "/a/b/c", false, 0, ENOTDIR, ab},  // a file in the way
      {ab, "/a/b", false, 1, 0, ab},
      {{}, "/a/b", true, 0, ENOENT, {}},
      {{}, "/a", true, 1, 0, {"a/"}},
  };
  for (const auto& c : cases) {
    Tree(c.before);
    const std::string path = (c.single ? "" : " ") + dir_ + c.path;
    errno = 0;
    EXPECT_EQ(CreateDirectoryPath(path.c_str(), c.single), c.result) << path;
    EXPECT_EQ(c.error != 0 ? errno : 0, c.error) << path;
    EXPECT_EQ(Remaining(), c.after) << path;
  }
  EXPECT_EQ(CreateDirectoryPath(nullptr, false), 0);
}

// Hidden directories are never entered, so a tree holding one stays and the result is
// 0; links go as links, never followed; patterns pick files and directories by prefix.
TEST_F(FilesTest, RemoveDirectory) {
  const Names flat = {"f1", "g1", ".h", "s1/x", "t1/", ".c/"};
  const struct {
    Names tree;
    std::string path;
    bool itself;
    const char *files, *dirs;
    int result;
    Names after;
  } cases[] = {
      {{"d/.cache/x", "d/.profile", "d/f", "d/sub/g"},
       "d",
       true,
       "",
       "",
       0,
       {"d/", "d/.cache/", "d/.cache/x"}},
      {{"e/.profile", "e/sub/.g"}, "e/", true, nullptr, nullptr, 1, {}},
      {{"out/keep", "d/f", "d/link->out"}, "d", true, nullptr, nullptr, 1, {"out/", "out/keep"}},
      {flat, "", false, "", "*", 1, {".c/", ".h", "f1", "g1"}},
      {flat, "", false, "f", "", 1, {".c/", ".h", "g1", "s1/", "s1/x", "t1/"}},
      {flat, "", false, nullptr, "s", 1, {".c/", "t1/"}},
      {flat, "", false, "*", nullptr, 1, {".c/"}},
      {{}, "gone", true, nullptr, nullptr, 1, {}},
  };
  for (const auto& c : cases) {
    Tree(c.tree);
    EXPECT_EQ(RemoveDirectory(P(c.path).c_str(), c.itself, c.files, c.dirs), c.result);
    EXPECT_EQ(Remaining(), c.after) << "case " << &c - cases;
  }
  EXPECT_EQ(RemoveDirectory(nullptr, true, nullptr, nullptr), 1);
}

TEST_F(FilesTest, ListingsSkipHiddenNamesAndFilterByPrefix) {
  Tree({"a1", "a2", "b1", ".h", "d1/", "ad/", ".c/"});
  const Names all = {"kept", "a1", "a2", "b1"};  // lists are appended to
  const struct {
    const char* pattern;
    Names files, dirs;
  } cases[] = {
      {nullptr, all, {"ad", "d1"}},
      {"*", all, {"ad", "d1"}},
      {"a", {"kept", "a1", "a2"}, {"ad"}},
      {"z", {"kept"}, {}},
  };
  for (const auto& c : cases) {
    Names files{"kept"}, dirs;
    EXPECT_EQ(ListFiles((dir_ + "/").c_str(), c.pattern, files), 1);
    EXPECT_EQ(ListDirectories(dir_.c_str(), c.pattern, dirs), 1);
    std::sort(files.begin() + 1, files.end());
    std::sort(dirs.begin(), dirs.end());
    EXPECT_EQ(files, c.files);
    EXPECT_EQ(dirs, c.dirs);
  }
  Names list;
  EXPECT_EQ(ListFiles(P("gone").c_str(), nullptr, list), 1);
  EXPECT_EQ(ListDirectories(nullptr, nullptr, list), 0);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(FindFileByPrefix((dir_ + "/").c_str(), "b"), P("b1"));
  EXPECT_EQ(FindFileByPrefix((dir_ + "/").c_str(), "z"), "");
  DeleteFilesByPrefix((dir_ + "/").c_str(), ".h");
  DeleteFilesByPrefix((dir_ + "/").c_str(), "a");
  EXPECT_EQ(Remaining(), (Names{".c/", "ad/", "b1", "d1/"}));
}

TEST_F(FilesTest, FileExistsNoCaseRewritesThePathToTheRealName) {
  Tree({"README.txt", "Docs/README.txt", "Docs/Sub/", "Docs/.Hidden"});
  const std::string cwd = fs::current_path();
  fs::current_path(dir_);
  const struct {
    std::string path;
    int result;
    std::string after;
  } cases[] = {
      {"readme.TXT", 1, "./README.txt"},          {"Docs/Readme.TXT", 1, "Docs/README.txt"},
      {"Docs\\readme.txt", 1, "Docs/README.txt"}, {"Docs/sub", 0, "Docs/sub"},
      {"Docs/.hidden", 0, "Docs/.hidden"},        {"Nope/readme.txt", 0, "Nope/readme.txt"},
  };
  for (const auto& c : cases) {
    std::string path = c.path;
    EXPECT_EQ(FileExistsNoCase(path), c.result) << c.path;
    EXPECT_EQ(path, c.after);
  }
  fs::current_path(cwd);
}

// A source of several 16384-byte blocks; ranges past the end copy what is there.
TEST_F(FilesTest, CopiesTakeTheRangeThatExists) {
  std::string big(2 * 16384 + 7, '\0');
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 + i / 251);
  Write("src", big);
  const int64_t size = static_cast<int64_t>(big.size());
  const struct {
    int64_t offset, length;
    bool append;
    int result;
    std::string bytes;
  } cases[] = {
      {3, -1, false, 1, big.substr(3)},
      {10, size, false, 1, big.substr(10)},
      {5, 10, false, 1, big.substr(5, 10)},
      {size, -1, false, 1, ""},
      {size + 1, -1, false, 0, ""},
      {-1, -1, false, 0, ""},
      {0, 16384, true, 1, "old contents" + big.substr(0, 16384)},
  };
  for (const auto& c : cases) {
    Write("dst", "old contents");
    const auto copy = c.append ? AppendFileRange : CopyFile;
    EXPECT_EQ(copy(P("src").c_str(), P("dst").c_str(), c.offset, c.length), c.result) << c.offset;
    EXPECT_EQ(Read("dst"), c.bytes) << c.offset << " " << c.length;
  }
  EXPECT_EQ(CopyFile(P("gone").c_str(), P("new").c_str(), 0, -1), 0);
  EXPECT_EQ(CopyFile("", P("new").c_str(), 0, -1), 0);
  EXPECT_FALSE(fs::exists(P("new")));
}

// FindInStream and StreamSize leave the stream where they say (copies_test.cpp has the
// positions of CopyStreamRange).
TEST_F(FilesTest, StreamSearches) {
  std::string data(3000, 'a');
  data.replace(1025, 4, "KEY!");  // straddles the first read of 1027 bytes
  data.replace(2100, 1, std::string(1, '\0'));
  data.replace(2500, 4, "LATE");  // hidden behind the NUL of its read
  Write("s", data);
  UniqueFile in(OpenFile(P("s").c_str(), "rb"));
  EXPECT_EQ(FindInStream(in.get(), "KEY!"), 1025u);
  EXPECT_EQ(StreamSize(in.get()), 3000);
  EXPECT_EQ(TellFile(in.get()), 1025);
  EXPECT_EQ(FindInStream(in.get(), "LATE"), 0xFFFFFFFFu);
  EXPECT_EQ(FindInStream(in.get(), ""), 0xFFFFFFFFu);
  EXPECT_EQ(CopyStreamRange(nullptr, in.get(), 0, -1), 0);
}

TEST_F(FilesTest, ReadTextLineStripsOneLineEnd) {
  const struct {
    std::string text;
    int size;
    std::vector<std::pair<int, std::string>> lines;
  } cases[] = {
      {"abc\r\n", 16, {{5, "abc"}}},
      {"\n", 16, {{1, ""}}},
      {"\r\n", 16, {{2, ""}}},
      {"x\r\r\n", 16, {{4, "x\r"}}},
      {"a\n\nb", 16, {{2, "a"}, {1, ""}, {1, "b"}}},
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

// Names are the prefix, at least 16 hex digits (counter, pid, rand()) and the suffix.
TEST_F(FilesTest, MakeTempFileNameAddsOneDotBeforeTheExtension) {
  const struct {
    std::string extension, ending;
  } cases[] = {
      {"txt", ".txt"}, {".txt", ".txt"}, {" .txt\t", ".txt"}, {"", ""}, {".", ""},
  };
  std::string previous;
  for (const auto& c : cases) {
    std::string result, directory = " " + dir_, extension = c.extension, pre = "pre", suf = "suf";
    ASSERT_EQ(MakeTempFileName(result, directory, extension, pre, suf), 1);
    EXPECT_EQ(directory, dir_ + "/");
    const size_t head = dir_.size() + 4, tail = 3 + c.ending.size();  // "/pre", "suf" + ending
    ASSERT_GE(result.size(), head + 16 + tail) << result;
    EXPECT_EQ(result.substr(0, head) + result.substr(result.size() - tail), P("presuf" + c.ending));
    EXPECT_EQ(result.find_first_not_of("0123456789abcdef", head), result.size() - tail) << result;
    EXPECT_TRUE(fs::exists(result) && fs::file_size(result) == 0) << result;
    EXPECT_NE(result, previous);
    previous = result;
  }
  std::string result = "x", directory = P("gone"), extension, prefix, suffix;
  EXPECT_EQ(MakeTempFileName(result, directory, extension, prefix, suffix), 0);
  EXPECT_EQ(result, "");
}

TEST(SamePath, ComparesWithoutSeparatorsAndOuterSpaces) {
  const struct {
    std::string a, b;
    int result;
  } cases[] = {
      {"/opt/tavik/", "opt\\tavik", 1},
      {" /opt/tavik", "/opt/tavik\t", 1},
      {"/opt/Tavik", "/opt/tavik", 0},
      {"/", "/", 0},
      {"", "", 0},
  };
  for (auto c : cases) EXPECT_EQ(SamePath(c.a, c.b), c.result) << c.a << " | " << c.b;
}

}  // namespace
}  // namespace tk
