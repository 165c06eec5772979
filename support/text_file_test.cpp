#include "support/text_file.h"

#include <sys/stat.h>

#include "support/test_util.h"

namespace tk {
namespace {

using TextFileTest = test::TempDirTest;

// The file is rewritten in place (same inode, same permissions) and the temporary goes.
// The read-only directory case is in fault_injection_test.cpp.
TEST_F(TextFileTest, ConvertsLineEndsInPlace) {
  const std::string long_piece(65528, 'x');
  std::string many_crlf, many_lf;  // shrinks by one byte a line
  for (int i = 0; i < 1000; ++i) {
    many_crlf += "line " + std::to_string(i) + "\r\n";
    many_lf += "line " + std::to_string(i) + "\n";
  }
  const struct {
    std::string in, out;
  } cases[] = {
      {"a\r\nbb\r\nccc\r\n", "a\nbb\nccc\n"},
      {many_crlf, many_lf},
      {"a\nb", "a\nb\n"},
      {"a\r\nb", "a\nb\n"},
      {"a\n\n\r\n", "a\n\n\n"},
      {"a\rb\nc\r\n", "a\rb\nc\n"},
      {"a\r\r\nb\n", "a\r\nb\n"},  // only the CR before the LF goes
      // Single lines and empty files are not taken for text.
      {"", ""},
      {"one line", "one line"},
      {"one line\r", "one line\r"},
      {std::string(65529, 'y') + "\r\nz\r\n", std::string(65529, 'y') + "\r\nz\r\n"},
      // Later lines are read 65528 bytes at a time.
      {"a\n" + long_piece + "tail\r\n", "a\n" + long_piece + "\ntail\n"},
  };
  for (const auto& c : cases) {
    Write("notes.txt", c.in);
    ASSERT_EQ(chmod(P("notes.txt").c_str(), 0640), 0);
    struct stat before {
    }, after{};
    stat(P("notes.txt").c_str(), &before);
    ConvertTextFile(P("notes.txt").c_str());
    stat(P("notes.txt").c_str(), &after);
    EXPECT_EQ(Read("notes.txt"), c.out) << c.in.substr(0, 20);
    EXPECT_EQ(Remaining(), std::vector<std::string>{"notes.txt"});
    EXPECT_EQ(after.st_mode & 07777, 0640u);
    EXPECT_EQ(after.st_ino, before.st_ino);
  }
  ConvertTextFile(P("missing").c_str());
  ConvertTextFile(nullptr);
  EXPECT_EQ(Remaining(), std::vector<std::string>{"notes.txt"});
}

TEST(TrimWhitespaceBuffer, CleansOneLine) {
  const struct {
    const char* in;
    bool remove_all, collapse;
    const char* out;
  } cases[] = {
      {"", false, true, ""},
      {"\tab  c", false, true, "ab c"},
      {"a\r\nb", false, true, "a b"},
      {"x \r y", false, true, "x  y"},  // space after a CR stays
      {"  a  b  ", false, false, "a  b "},
      {"  a  b  ", false, true, "a b"},
      {" a\tb\n", true, false, "ab"},
      {"\r\r", false, false, ""},
      {" \t\n ", false, true, ""},
      {"keep", true, true, "keep"},
  };
  for (const auto& c : cases) {
    std::string buffer = c.in;
    TrimWhitespaceBuffer(buffer.data(), c.remove_all, c.collapse);
    EXPECT_STREQ(buffer.c_str(), c.out) << "input \"" << c.in << "\"";
  }
  TrimWhitespaceBuffer(nullptr, true, true);
}

}  // namespace
}  // namespace tk
