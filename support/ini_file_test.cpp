#include "support/ini_file.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

namespace tk {
namespace {

constexpr unsigned kOutSize = 512;

class IniFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tk_ini_file_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    path_ = dir_ + "/settings.ini";
  }
  void TearDown() override {
    unlink(path_.c_str());
    rmdir(dir_.c_str());
  }

  void Write(const std::string& bytes) {
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << bytes;
  }
  std::string Value(const char* section, const char* key, const char* fallback = "<none>") {
    char out[kOutSize];
    std::memset(out, '#', sizeof out);
    out[kOutSize - 1] = '\0';
    ReadIniValue(path_.c_str(), out, kOutSize, section, key, fallback);
    return out;
  }

  std::string dir_;
  std::string path_;
};

const char kSettings[] =
    "[General]\n"
    "Path = /opt/x\n"
    "Name=MixedCase Value\n"
    "empty=\n"
    "portal=5\n"
    ";Comment=1\n"
    "[Other]\n"
    "Key=other\n"
    "Path=/elsewhere\n";

struct Lookup {
  const char* section;
  const char* key;
  const char* value;
};

const Lookup kSettingsLookups[] = {
    {"general", "PATH", "/opt/x"},       {"GENERAL", "name", "MixedCase Value"},
    {"General", "empty", ""},            {"General", "port", "<none>"},
    {"General", "portal", "5"},          {"General", ";comment", "1"},
    {"General", "Key", "<none>"},        {"Other", "key", "other"},
    {"other", "path", "/elsewhere"},     {"Gen", "Path", "<none>"},
    {"Missing", "Path", "<none>"},       {"General", "", "<none>"},
};

TEST_F(IniFileTest, FindsValuesIgnoringCaseOfNames) {
  Write(kSettings);
  for (const Lookup& l : kSettingsLookups) {
    EXPECT_EQ(Value(l.section, l.key), l.value) << l.section << "/" << l.key;
  }
}

TEST_F(IniFileTest, CrLfLinesGiveTheSameValues) {
  std::string crlf;
  for (const char* p = kSettings; *p != '\0'; ++p) {
    if (*p == '\n') crlf += '\r';
    crlf += *p;
  }
  Write(crlf);
  for (const Lookup& l : kSettingsLookups) {
    EXPECT_EQ(Value(l.section, l.key), l.value) << l.section << "/" << l.key;
  }
}

TEST_F(IniFileTest, CleansSpacesAroundNamesAndDelimiters) {
  struct Case {
    std::string file;
    const char* value;
  } cases[] = {
      {"[Main]\n  Key  =  some   value } \n", "some value }"},
      {"[ Main ]\nKey=1\n", "1"},
      {"[Main  ]\nKey=2\n", "2"},
      {"\t[Main]\t\n\tKey\t=\tv\t\t3\t\n", "v 3"},
      {"[Main] extra\nKey=4\n", "4"},
      {"[Main]\nKey = a [b] c\n", "a[b] c"},
      {"[Main]\nKey = x= y\n", "x=y"},
      {"[Main]\n\n   \nKey=5", "5"},
  };
  for (const Case& c : cases) {
    Write(c.file);
    EXPECT_EQ(Value("main", "key"), c.value) << c.file;
  }
}

TEST_F(IniFileTest, SearchEndsAfterTheFirstMatchingSection) {
  struct Case {
    std::string file;
    const char* value;
  } cases[] = {
      {"[S]\na=1\n[S]\nb=2\n", "<none>"},
      {"b=0\n[S]\nb=1\n", "1"},
      {"b=0\n[T]\nb=1\n", "<none>"},
      {"[S]\na=1\n[\nb=2\n", "<none>"},
      {"[S]\nb=1\nb=2\n", "1"},
      {"", "<none>"},
  };
  for (const Case& c : cases) {
    Write(c.file);
    EXPECT_EQ(Value("S", "b"), c.value) << c.file;
  }
}

TEST_F(IniFileTest, LongLinesAreReadIn254BytePieces) {
  const std::string filler(254, 'x');
  Write("[S]\n" + filler + "Key=split\nKey=whole\n");
  EXPECT_EQ(Value("S", "Key"), "split");

  Write("[S]\nKey=" + std::string(300, 'v') + "\n");
  EXPECT_EQ(Value("S", "Key"), std::string(250, 'v'));

  // A header read as a continuation piece still counts.
  Write(filler + "[S]\nKey=found\n");
  EXPECT_EQ(Value("S", "Key"), "found");
}

TEST_F(IniFileTest, BoundedCopyAddsNoTerminatorWhenFull) {
  Write("[S]\nKey=abcdef\nShort=ab\n");
  char out[8];
  std::memset(out, '#', sizeof out);
  ReadIniValue(path_.c_str(), out, 3, "S", "Key", "");
  EXPECT_EQ(std::string(out, sizeof out), std::string("abc#####"));

  std::memset(out, '#', sizeof out);
  ReadIniValue(path_.c_str(), out, 5, "S", "Short", "");
  EXPECT_EQ(std::string(out, sizeof out), std::string("ab\0\0\0###", 8));

  std::memset(out, '#', sizeof out);
  ReadIniValue(path_.c_str(), out, 0, "S", "Key", "dflt");
  EXPECT_STREQ(out, "dflt");
}

TEST_F(IniFileTest, MissingFileGivesTheDefault) {
  EXPECT_EQ(Value("S", "Key", "fallback"), "fallback");
  char out[16] = "untouched";
  ReadIniValue(nullptr, out, sizeof out, "S", "Key", "d");
  EXPECT_STREQ(out, "d");
}

TEST(IniStrings, CaseInsensitiveComparisons) {
  EXPECT_EQ(StrICmp("Hello", "hELLO"), 0);
  EXPECT_LT(StrICmp("a", "B"), 0);
  EXPECT_GT(StrICmp("b", "A"), 0);
  EXPECT_GT(StrICmp("abc", "AB"), 0);
  EXPECT_EQ(StrICmp(nullptr, "x"), 0);
  EXPECT_EQ(StrICmp("x", nullptr), 0);

  EXPECT_EQ(StrNICmp("HelloX", "helloY", 5), 0);
  EXPECT_LT(StrNICmp("HelloX", "helloY", 6), 0);
  EXPECT_EQ(StrNICmp("ab", "AB", 10), 0);
  EXPECT_GT(StrNICmp("abc", "AB", 10), 0);
  EXPECT_EQ(StrNICmp("a", "b", 0), 0);
  EXPECT_EQ(StrNICmp(nullptr, "b", 1), 0);
}

TEST(IniStrings, StrIStrPointsIntoTheCallersText) {
  const char text[] = "Hello World";
  EXPECT_EQ(StrIStr(text, "WORLD"), text + 6);
  EXPECT_EQ(StrIStr(text, "o w"), text + 4);
  EXPECT_EQ(StrIStr(text, ""), text);
  EXPECT_EQ(StrIStr(text, "worlds"), nullptr);
  EXPECT_EQ(StrIStr(text, nullptr), nullptr);
  EXPECT_EQ(StrIStr(static_cast<const char*>(nullptr), "a"), nullptr);
  char mutable_text[] = "aAbB";
  char* hit = StrIStr(mutable_text, "ab");
  EXPECT_EQ(hit, mutable_text + 1);
}

TEST(IniStrings, MatchWordListTakesTheFirstMatchInListOrder) {
  const char* const days[] = {"monday", "mon", "tuesday", nullptr};
  struct Case {
    const char* text;
    int n;
    int index;
    int advance;
  } cases[] = {
      {"MONDAY 5", 0, 0, 6}, {"Mon 5", 0, 1, 3},  {"Tuesday", 0, 2, 7},
      {"Wed", 0, -1, 0},     {"Tue,", 3, 2, 3},   {"monte", 3, 0, 3},
      {"mo", 3, -1, 0},      {"", 0, -1, 0},
  };
  for (const Case& c : cases) {
    const char* cursor = c.text;
    EXPECT_EQ(MatchWordList(&cursor, days, c.n), c.index) << c.text;
    EXPECT_EQ(cursor, c.text + c.advance) << c.text;
  }
  // A text that ends inside the compared bytes leaves the cursor at its end.
  const char* const short_words[] = {"mo", nullptr};
  const char* text = "MO";
  const char* cursor = text;
  EXPECT_EQ(MatchWordList(&cursor, short_words, 3), 0);
  EXPECT_EQ(cursor, text + 2);
}

}  // namespace
}  // namespace tk
