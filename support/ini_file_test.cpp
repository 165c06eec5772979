#include "support/ini_file.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace tk {
namespace {

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
  // The whole output buffer after a lookup, from a buffer filled with "#".
  std::string Raw(unsigned size, const char* section, const char* key, const char* fallback) {
    std::string out(8, '#');
    ReadIniValue(path_.c_str(), out.data(), size, section, key, fallback);
    return out;
  }
  std::string Value(const char* section, const char* key) {
    char out[512];
    ReadIniValue(path_.c_str(), out, sizeof out, section, key, "<none>");
    return out;
  }

  std::string dir_;
  std::string path_;
};

struct FileCase {
  std::string file;
  const char* value;
};

const char kSettings[] =
    "[General]\nPath = /opt/x\nName=MixedCase Value\nempty=\nportal=5\n;Comment=1\n"
    "[Other]\nKey=other\nPath=/elsewhere\n";

const struct Lookup {
  const char* section;
  const char* key;
  const char* value;
} kSettingsLookups[] = {
    {"general", "PATH", "/opt/x"}, {"GENERAL", "name", "MixedCase Value"}, {"General", "empty", ""},
    {"General", "port", "<none>"}, {"General", "portal", "5"}, {"General", ";comment", "1"},
    {"General", "Key", "<none>"},  {"Other", "key", "other"},  {"other", "path", "/elsewhere"},
    {"Gen", "Path", "<none>"},     {"Missing", "Path", "<none>"}, {"General", "", "<none>"},
};

TEST_F(IniFileTest, FindsValuesIgnoringCaseOfNamesWithLfAndCrLf) {
  std::string crlf;
  for (const char* p = kSettings; *p != '\0'; ++p) crlf += *p == '\n' ? "\r\n" : std::string(1, *p);
  for (const std::string& file : {std::string(kSettings), crlf}) {
    Write(file);
    for (const Lookup& l : kSettingsLookups) {
      EXPECT_EQ(Value(l.section, l.key), l.value) << l.section << "/" << l.key << " " << file;
    }
  }
}

TEST_F(IniFileTest, CleansSpacesAroundNamesAndDelimiters) {
  const std::vector<FileCase> cases = {
      {"[Main]\n  Key  =  some   value } \n", "some value }"}, {"[ Main ]\nKey=1\n", "1"},
      {"[Main  ]\nKey=2\n", "2"}, {"\t[Main]\t\n\tKey\t=\tv\t\t3\t\n", "v 3"},
      {"[Main] extra\nKey=4\n", "4"}, {"[Main]\nKey = a [b] c\n", "a[b] c"},
      {"[Main]\nKey = x= y\n", "x=y"}, {"[Main]\n\n   \nKey=5", "5"},
  };
  for (const FileCase& c : cases) {
    Write(c.file);
    EXPECT_EQ(Value("main", "key"), c.value) << c.file;
  }
}

TEST_F(IniFileTest, SearchEndsAfterTheFirstMatchingSection) {
  const std::vector<FileCase> cases = {
      {"[S]\na=1\n[S]\nb=2\n", "<none>"}, {"b=0\n[S]\nb=1\n", "1"}, {"b=0\n[T]\nb=1\n", "<none>"},
      {"[S]\na=1\n[\nb=2\n", "<none>"},   {"[S]\nb=1\nb=2\n", "1"}, {"", "<none>"},
  };
  for (const FileCase& c : cases) {
    Write(c.file);
    EXPECT_EQ(Value("S", "b"), c.value) << c.file;
  }
}

TEST_F(IniFileTest, LongLinesAreReadIn254BytePieces) {
  const std::string filler(254, 'x');
  const std::vector<FileCase> cases = {
      {"[S]\n" + filler + "Key=split\nKey=whole\n", "split"},
      {filler + "[S]\nKey=found\n", "found"},  // a header read as a continuation piece
  };
  for (const FileCase& c : cases) {
    Write(c.file);
    EXPECT_EQ(Value("S", "Key"), c.value);
  }
  Write("[S]\nKey=" + std::string(300, 'v') + "\n");
  EXPECT_EQ(Value("S", "Key"), std::string(250, 'v'));
}

TEST_F(IniFileTest, BoundedCopyAddsNoTerminatorWhenFull) {
  Write("[S]\nKey=abcdef\nShort=ab\n");
  EXPECT_EQ(Raw(3, "S", "Key", ""), "abc#####");
  EXPECT_EQ(Raw(5, "S", "Short", ""), std::string("ab\0\0\0###", 8));
  EXPECT_EQ(Raw(0, "S", "Key", "dflt"), std::string("dflt\0###", 8));
}

TEST_F(IniFileTest, MissingFileGivesTheDefault) {
  EXPECT_EQ(Raw(8, "S", "Key", "fb"), std::string("fb\0#####", 8));
  char out[16] = "untouched";
  ReadIniValue(nullptr, out, sizeof out, "S", "Key", "d");
  EXPECT_STREQ(out, "d");
}

TEST(IniStrings, CaseInsensitiveComparisons) {
  EXPECT_EQ(StrICmp("Hello", "hELLO"), 0);
  EXPECT_LT(StrICmp("a", "B"), 0);
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
  EXPECT_EQ(StrIStr(mutable_text, "ab"), mutable_text + 1);
}

TEST(IniStrings, MatchWordListTakesTheFirstMatchInListOrder) {
  const char* const days[] = {"monday", "mon", "tuesday", nullptr};
  const char* const short_words[] = {"mo", nullptr};
  struct Case {
    const char* text;
    const char* const* words;
    int n, index, advance;
  } cases[] = {
      {"MONDAY 5", days, 0, 0, 6}, {"Mon 5", days, 0, 1, 3}, {"Tuesday", days, 0, 2, 7},
      {"Wed", days, 0, -1, 0},     {"Tue,", days, 3, 2, 3},  {"monte", days, 3, 0, 3},
      {"mo", days, 3, -1, 0},      {"", days, 0, -1, 0},
      {"MO", short_words, 3, 0, 2},  // the text ends inside the compared bytes
  };
  for (const Case& c : cases) {
    const char* cursor = c.text;
    EXPECT_EQ(MatchWordList(&cursor, c.words, c.n), c.index) << c.text;
    EXPECT_EQ(cursor, c.text + c.advance) << c.text;
  }
}

}  // namespace
}  // namespace tk
