#include "support/ini_file.h"

#include "support/test_util.h"

namespace tk {
namespace {

class IniFileTest : public test::TempDirTest {
 protected:
  // The whole output buffer (`size` bytes, at least 8) after a lookup; it starts as "#"s.
  std::string Raw(unsigned size, const char* section, const char* key, const char* fallback) {
    std::string out(std::max(size, 8u), '#');
    ReadIniValue(P("settings.ini").c_str(), out.data(), size, section, key, fallback);
    return out;
  }
};

const std::string kSettings =
    "[General]\nPath = /opt/x\nName=MixedCase Value\nempty=\nportal=5\n;Comment=1\n"
    "[Other]\nKey=other\nPath=/elsewhere\n";
const std::string kFiller(254, 'x');

// Every file is read with LF and with CR LF line ends.
TEST_F(IniFileTest, FindsTheValueOfTheFirstMatchingSection) {
  const struct {
    std::string file;
    const char *section, *key;
    std::string value;
  } cases[] = {
      // Names match ignoring case, values keep theirs; "port" is not "portal".
      {kSettings, "general", "PATH", "/opt/x"},
      {kSettings, "GENERAL", "name", "MixedCase Value"},
      {kSettings, "General", "empty", ""},
      {kSettings, "General", "port", "<none>"},
      {kSettings, "General", "portal", "5"},
      {kSettings, "General", ";comment", "1"},
      {kSettings, "General", "Key", "<none>"},
      {kSettings, "other", "path", "/elsewhere"},
      {kSettings, "Gen", "Path", "<none>"},
      {kSettings, "Missing", "Path", "<none>"},
      {kSettings, "General", "", "<none>"},
      // Spaces around names and delimiters are dropped, runs of them shrink to one.
      {"[Main]\n  Key  =  some   value } \n", "main", "key", "some value }"},
      {"[ Main ]\nKey=1\n", "main", "key", "1"},
      {"[Main  ]\nKey=2\n", "main", "key", "2"},
      {"\t[Main]\t\n\tKey\t=\tv\t\t3\t\n", "main", "key", "v 3"},
      {"[Main] extra\nKey=4\n", "main", "key", "4"},
      {"[Main]\nKey = a [b] c\n", "main", "key", "a[b] c"},
      {"[Main]\nKey = x= y\n", "main", "key", "x=y"},
      {"[Main]\n\n   \nKey=5", "main", "key", "5"},
      // The search ends at the first "[" after the first matching header.
      {"[S]\na=1\n[S]\nb=2\n", "S", "b", "<none>"},
      {"b=0\n[S]\nb=1\n", "S", "b", "1"},
      {"b=0\n[T]\nb=1\n", "S", "b", "<none>"},
      {"[S]\na=1\n[\nb=2\n", "S", "b", "<none>"},
      {"[S]\nb=1\nb=2\n", "S", "b", "1"},
      {"", "S", "b", "<none>"},
      // Lines are read in 254-byte pieces; a header can be such a piece.
      {"[S]\n" + kFiller + "Key=split\nKey=whole\n", "S", "Key", "split"},
      {kFiller + "[S]\nKey=found\n", "S", "Key", "found"},
      {"[S]\nKey=" + std::string(300, 'v') + "\n", "S", "Key", std::string(250, 'v')},
  };
  for (const auto& c : cases) {
    std::string crlf;
    for (char ch : c.file) crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
    for (const std::string& file : {c.file, crlf}) {
      Write("settings.ini", file);
      const std::string value = Raw(512, c.section, c.key, "<none>").c_str();
      EXPECT_EQ(value, c.value) << c.section << "/" << c.key << " in " << file;
    }
  }
}

TEST_F(IniFileTest, BoundedCopyAddsNoTerminatorWhenFull) {
  EXPECT_EQ(Raw(8, "S", "Key", "fb"), std::string("fb\0#####", 8));  // no file
  Write("settings.ini", "[S]\nKey=abcdef\nShort=ab\n");
  EXPECT_EQ(Raw(3, "S", "Key", ""), "abc#####");
  EXPECT_EQ(Raw(5, "S", "Short", ""), std::string("ab\0\0\0###", 8));
  EXPECT_EQ(Raw(0, "S", "Key", "dflt"), std::string("dflt\0###", 8));
  char out[16] = "untouched";
  ReadIniValue(nullptr, out, sizeof out, "S", "Key", "d");
  EXPECT_STREQ(out, "d");
}

// Null pointers compare equal; the sign is all that counts.
TEST(IniStrings, CaseInsensitiveComparisons) {
  const struct {
    const char *a, *b;
    int n, sign;
  } cases[] = {
      // n -1: StrICmp
      {"Hello", "hELLO", -1, 0},   {"a", "B", -1, -1},
      {"abc", "AB", -1, 1},        {nullptr, "x", -1, 0},
      {"x", nullptr, -1, 0},       {"HelloX", "helloY", 5, 0},
      {"HelloX", "helloY", 6, -1}, {"ab", "AB", 10, 0},
      {"abc", "AB", 10, 1},        {"a", "b", 0, 0},
      {nullptr, "b", 1, 0},
  };
  for (const auto& c : cases) {
    const int result = c.n < 0 ? StrICmp(c.a, c.b) : StrNICmp(c.a, c.b, c.n);
    EXPECT_EQ((result > 0) - (result < 0), c.sign) << (c.a ? c.a : "null") << " " << c.n;
  }
  const char text[] = "Hello World";  // StrIStr points into the caller's text
  const struct {
    const char* pattern;
    const char* at;
  } found[] = {
      {"WORLD", text + 6}, {"o w", text + 4}, {"", text}, {"worlds", nullptr}, {nullptr, nullptr}};
  for (const auto& f : found) EXPECT_EQ(StrIStr(text, f.pattern), f.at) << f.pattern;
  EXPECT_EQ(StrIStr(static_cast<const char*>(nullptr), "a"), nullptr);
  char mutable_text[] = "aAbB";
  EXPECT_EQ(StrIStr(mutable_text, "ab"), mutable_text + 1);
}

TEST(IniStrings, MatchWordListTakesTheFirstMatchInListOrder) {
  const char* const days[] = {"monday", "mon", "tuesday", nullptr};
  const char* const short_words[] = {"mo", nullptr};
  const struct {
    const char* text;
    const char* const* words;
    int n, index, advance;
  } cases[] = {
      {"MONDAY 5", days, 0, 0, 6},  {"Mon 5", days, 0, 1, 3},
      {"Tuesday", days, 0, 2, 7},   {"Wed", days, 0, -1, 0},
      {"Tue,", days, 3, 2, 3},      {"monte", days, 3, 0, 3},
      {"mo", days, 3, -1, 0},       {"", days, 0, -1, 0},
      {"MO", short_words, 3, 0, 2},  // the text ends inside the compared bytes
  };
  for (const auto& c : cases) {
    const char* cursor = c.text;
    EXPECT_EQ(MatchWordList(&cursor, c.words, c.n), c.index) << c.text;
    EXPECT_EQ(cursor, c.text + c.advance) << c.text;
  }
}

}  // namespace
}  // namespace tk
