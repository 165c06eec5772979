#include "support/text_file.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tk {
namespace {

constexpr uid_t kUnprivilegedId = 65534;  // "nobody"

class TextFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tk_text_file_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    path_ = dir_ + "/notes.txt";
  }
  void TearDown() override {
    chmod(dir_.c_str(), 0700);
    for (const std::string& name : Entries()) unlink((dir_ + "/" + name).c_str());
    rmdir(dir_.c_str());
  }

  void Write(const std::string& bytes) {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << bytes;
  }
  std::string Read() {
    std::ifstream in(path_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  std::vector<std::string> Entries() {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir_.c_str())) {
      while (dirent* e = readdir(d)) {
        if (e->d_name[0] != '.') names.push_back(e->d_name);
      }
      closedir(d);
    }
    return names;
  }

  std::string dir_;
  std::string path_;
};

TEST_F(TextFileTest, ConvertsLineEnds) {
  const std::string long_piece(65528, 'x');
  std::string many_crlf, many_lf;  // shrinks by one byte a line
  for (int i = 0; i < 1000; ++i) {
    many_crlf += "line " + std::to_string(i) + "\r\n";
    many_lf += "line " + std::to_string(i) + "\n";
  }
  struct Case {
    std::string in, out;
  } cases[] = {
      {"a\r\nbb\r\nccc\r\n", "a\nbb\nccc\n"}, {many_crlf, many_lf}, {"a\nb", "a\nb\n"},
      {"a\r\nb", "a\nb\n"}, {"a\n\n\r\n", "a\n\n\n"}, {"a\rb\nc\r\n", "a\rb\nc\n"},
      {"a\r\r\nb\n", "a\r\nb\n"},  // only the CR before the LF goes
      // Single lines and empty files are not taken for text.
      {"", ""}, {"one line", "one line"}, {"one line\r", "one line\r"},
      {std::string(65529, 'y') + "\r\nz\r\n", std::string(65529, 'y') + "\r\nz\r\n"},
      // Later lines are read 65528 bytes at a time.
      {"a\n" + long_piece + "tail\r\n", "a\n" + long_piece + "\ntail\n"},
  };
  for (const Case& c : cases) {
    Write(c.in);
    ConvertTextFile(path_.c_str());
    EXPECT_EQ(Read(), c.out) << c.in.substr(0, 20);
    EXPECT_EQ(Entries(), std::vector<std::string>{"notes.txt"});
  }
}

TEST_F(TextFileTest, KeepsPermissionsAndTheFileItself) {
  Write("a\r\nb\r\n");
  ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
  struct stat before {};
  ASSERT_EQ(stat(path_.c_str(), &before), 0);
  ConvertTextFile(path_.c_str());
  struct stat after {};
  ASSERT_EQ(stat(path_.c_str(), &after), 0);
  EXPECT_EQ(Read(), "a\nb\n");
  EXPECT_EQ(after.st_mode & 07777, 0640u);
  EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(TextFileTest, MissingFileOrNullPathDoesNothing) {
  ConvertTextFile(path_.c_str());
  ConvertTextFile(nullptr);
  EXPECT_TRUE(Entries().empty());
}

// In a read-only directory the temporary cannot be made: the file stays as it was
// and nothing is left behind. Root ignores permissions, so a root run converts from
// a child that has dropped to an unprivileged user.
TEST_F(TextFileTest, ReadOnlyDirectoryLeavesFileAlone) {
  Write("a\r\nb\r\n");
  ASSERT_EQ(chmod(path_.c_str(), 0666), 0);
  ASSERT_EQ(chmod(dir_.c_str(), 0555), 0);
  if (geteuid() != 0) {
    ConvertTextFile(path_.c_str());
  } else {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      if (setgid(kUnprivilegedId) != 0 || setuid(kUnprivilegedId) != 0) _exit(2);
      ConvertTextFile(path_.c_str());
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);
  }
  EXPECT_EQ(Read(), "a\r\nb\r\n");
  EXPECT_EQ(Entries(), std::vector<std::string>{"notes.txt"});
}

TEST(TrimWhitespaceBuffer, CleansOneLine) {
  struct Case {
    const char* in;
    bool remove_all;
    bool collapse;
    const char* out;
  } cases[] = {
      {"", false, true, ""},          {"\tab  c", false, true, "ab c"},
      {"a\r\nb", false, true, "a b"},  {"x \r y", false, true, "x  y"},  // space after a CR stays
      {"  a  b  ", false, false, "a  b "}, {"  a  b  ", false, true, "a b"},
      {" a\tb\n", true, false, "ab"},   {"\r\r", false, false, ""},
      {" \t\n ", false, true, ""},      {"keep", true, true, "keep"},
  };
  for (const Case& c : cases) {
    std::string buffer = c.in;
    TrimWhitespaceBuffer(buffer.data(), c.remove_all, c.collapse);
    EXPECT_STREQ(buffer.c_str(), c.out) << "input \"" << c.in << "\"";
  }
  TrimWhitespaceBuffer(nullptr, true, true);
}

}  // namespace
}  // namespace tk
