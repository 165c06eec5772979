#include "support/ini_file.h"

#include <tuple>

#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

class IniFileTest : public test::TempDirTest {
 protected:
  // The whole output buffer (`size` bytes, at least 8) after a lookup; it starts as "#"s.
  std::string Raw(unsigned size, const char* section, const char* key, const char* fallback) {
    std::string out(std::max(size, 8u), '#');
    ReadIniValue(Path("settings.ini").c_str(), out.data(), size, section, key, fallback);
    return out;
  }
  // Expects `value` ("<none>" for the default) from `file` with LF and with CR LF line ends.
  void ExpectValue(const std::string& file, const char* section, const char* key,
                   const std::string& value) {
    std::string crlf;
    for (char ch : file) crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
    for (const std::string& text : {file, crlf}) {
      WriteFile("settings.ini", text);
      EXPECT_EQ(Raw(512, section, key, "<none>").c_str(), value) << key << " in " << text;
    }
  }
};

// Names match ignoring case, values keep theirs; a key is matched with its "=" and a
// header with its "]"; there is no comment syntax.
TEST_F(IniFileTest, FindsTheValueOfTheFirstMatchingSection) {
  const std::string file =
      "[General]\nPath = /opt/x\nName=Mixed Case\nempty=\nportal=5\n"
      ";Comment=1\n[Other]\nKey=other\n";
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"general", "PATH", "/opt/x"}, {"GENERAL", "name", "Mixed Case"},
      {"General", "empty", ""},      {"General", "port", "<none>"},
      {"General", ";comment", "1"},  {"General", "Key", "<none>"},
      {"Gen", "Path", "<none>"}};
  for (const auto& [section, key, value] : cases) ExpectValue(file, section, key, value);
}

// Spaces around names and delimiters go and runs of them shrink to one; the search ends
// at the first "[" after the first matching header; lines are read in 254-byte pieces.
TEST_F(IniFileTest, CleansLinesAndStopsAtTheNextSection) {
  const std::tuple<const char*, const char*> cases[] = {
      {"[S]\n  Key  =  a   b } \n", "a b }"},   {"[ S ]\n\tKey\t=\tv\t\t3\t", "v 3"},
      {"[S] extra\nKey = a [b] c\n", "a[b] c"}, {"[S]\na=1\n[S]\nKey=2\n", "<none>"},
      {"Key=0\n[S]\nKey=1\nKey=2\n", "1"},      {"[S]\n[T]\nKey=1\n", "<none>"}};
  for (const auto& [file, value] : cases) ExpectValue(file, "S", "Key", value);
  ExpectValue("[S]\n" + std::string(254, 'x') + "Key=split\nKey=whole\n", "S", "Key", "split");
  ExpectValue("[S]\nKey=" + std::string(300, 'v') + "\n", "S", "Key", std::string(250, 'v'));
}

TEST_F(IniFileTest, BoundedCopyAddsNoTerminatorWhenFull) {
  EXPECT_EQ(Raw(8, "S", "Key", "fb"), std::string("fb\0#####", 8));  // no file
  WriteFile("settings.ini", "[S]\nKey=abcdef\nShort=ab\n");
  EXPECT_EQ(Raw(3, "S", "Key", ""), "abc#####");
  EXPECT_EQ(Raw(5, "S", "Short", ""), std::string("ab\0\0\0###", 8));
  EXPECT_EQ(Raw(0, "S", "Key", "dflt"), std::string("dflt\0###", 8));
}

// Null pointers compare equal; only the sign counts. StrIStr points into the caller's text.
TEST_F(IniFileTest, CaseInsensitiveComparisons) {
  const std::tuple<const char*, const char*, int, int> cases[] = {
      {"Hello", "hELLO", -1, 0},   {"a", "B", -1, -1},    {"abc", "AB", -1, 1},
      {nullptr, "x", -1, 0},       {"x", nullptr, -1, 0}, {"HelloX", "helloY", 5, 0},
      {"HelloX", "helloY", 6, -1}, {"abc", "AB", 10, 1},  {"a", "b", 0, 0},
      {nullptr, "b", 1, 0}};
  for (const auto& [a, b, n, sign] : cases) {
    const int result = n < 0 ? StrICmp(a, b) : StrNICmp(a, b, n);  // n -1: StrICmp
    EXPECT_EQ((result > 0) - (result < 0), sign) << (a ? a : "null") << " " << n;
  }
  const char text[] = "Hello World";
  const std::tuple<const char*, const char*> found[] = {
      {"WORLD", text + 6}, {"o w", text + 4}, {"", text}, {"worlds", nullptr}, {nullptr, nullptr}};
  for (const auto& [pattern, at] : found) EXPECT_EQ(StrIStr(text, pattern), at) << pattern;
  EXPECT_EQ(StrIStr(nullptr, "a"), nullptr);
}

// The first match in list order wins; the cursor moves past the compared bytes.
TEST_F(IniFileTest, MatchWordListTakesTheFirstMatchInListOrder) {
  const char* const days[] = {"monday", "mon", "tuesday", nullptr};
  const std::tuple<const char*, int, int, int> cases[] = {
      {"MONDAY 5", 0, 0, 6}, {"Mon 5", 0, 1, 3}, {"Wed", 0, -1, 0}, {"Tue,", 3, 2, 3},
      {"monte", 3, 0, 3},    {"mo", 3, -1, 0},   {"", 0, -1, 0}};
  for (const auto& [text, n, index, advance] : cases) {
    const char* cursor = text;
    EXPECT_EQ(MatchWordList(&cursor, days, n), index) << text;
    EXPECT_EQ(cursor, text + advance) << text;
  }
  const char* const short_words[] = {"mo", nullptr};
  const char *const text = "MO", *cursor = text;  // the text ends inside the compared bytes
  EXPECT_EQ(MatchWordList(&cursor, short_words, 3), 0);
  EXPECT_EQ(cursor, text + 2);
}

}  // namespace
}  // namespace tk
