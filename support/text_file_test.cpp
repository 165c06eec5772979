#include "support/text_file.h"

#include <sys/stat.h>

#include <tuple>

#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using TextFileTest = test::TempDirTest;

// The file is overwritten in place, so it keeps its permissions, and the temporary goes.
// Only the CR before an LF goes. Single lines and empty files are not taken for text;
// later lines are read 65528 bytes at a time. A temporary that cannot be written is a
// case of fault_injection_test.cpp.
TEST_F(TextFileTest, ConvertsLineEndsInPlace) {
  auto expect = [this](const std::string& in, const std::string& out) {
    WriteFile("notes.txt", in);
    ASSERT_EQ(chmod(Path("notes.txt").c_str(), 0640), 0);
    ConvertTextFile(Path("notes.txt").c_str());
    EXPECT_EQ(Snapshot(), (test::Tree{{"notes.txt", "640:" + out}})) << in.substr(0, 20);
  };
  const std::pair<const char*, const char*> cases[] = {{"a\r\nbb\r\nccc\r\n", "a\nbb\nccc\n"},
                                                       {"a\r\nb", "a\nb\n"},
                                                       {"a\n\n\r\n", "a\n\n\n"},
                                                       {"a\rb\nc\r\r\n", "a\rb\nc\r\n"},
                                                       {"", ""},
                                                       {"one line\r", "one line\r"}};
  for (const auto& [in, out] : cases) expect(in, out);
  const std::string piece(65528, 'x'), first(65529, 'y');
  expect(first + "\r\nz\r\n", first + "\r\nz\r\n");
  expect("a\n" + piece + "tail\r\n", "a\n" + piece + "\ntail\n");
  ConvertTextFile(Path("missing").c_str());
  ConvertTextFile(nullptr);
  EXPECT_EQ(Listing(), std::vector<std::string>{"notes.txt"});
}

// The collapse looks at the input byte before a space, so a space after a dropped CR stays.
TEST_F(TextFileTest, TrimWhitespaceBufferCleansOneLine) {
  const std::tuple<std::string, bool, bool, std::string> cases[] = {
      {"", false, true, ""},
      {"\tab  c", false, true, "ab c"},
      {"a\r\nb", false, true, "a b"},
      {"x \r y", false, true, "x  y"},
      {"  a  b  ", false, false, "a  b "},
      {" a\tb\n", true, false, "ab"},
      {" \t\n ", false, true, ""},
      {"keep", true, true, "keep"}};
  for (auto [in, removeAll, collapse, out] : cases) {
    TrimWhitespaceBuffer(in.data(), removeAll, collapse);
    EXPECT_STREQ(in.c_str(), out.c_str());
  }
  TrimWhitespaceBuffer(nullptr, true, true);
}

}  // namespace
}  // namespace tk
