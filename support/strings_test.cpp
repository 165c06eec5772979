#include "support/strings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tk {
namespace {

TEST(Strings, CaseConversionTouchesOnlyAscii) {
  std::string s = "Abc\xC4\xE4Z9_";
  StrToUpper(s);
  EXPECT_EQ(s, "ABC\xC4\xE4Z9_");
  StrToLower(s);
  EXPECT_EQ(s, "abc\xC4\xE4z9_");

  char c_text[] = "MiXeD 1";
  EXPECT_EQ(CStrToUpper(c_text), c_text);
  EXPECT_STREQ(c_text, "MIXED 1");
  EXPECT_EQ(CStrToLower(c_text), c_text);
  EXPECT_STREQ(c_text, "mixed 1");
}

TEST(Strings, TrimWhitespaceKeepsBothBranches) {
  struct Case {
    std::string in;
    bool remove_all;
    bool collapse;
    std::string out;
  } cases[] = {
      {"", false, true, ""},
      {"abc", true, true, "abc"},
      // Only spaces: all leading and trailing spaces go.
      {"  a   b  ", false, true, "a b"},
      {"  a   b  ", false, false, "a   b"},
      {"   ", false, true, ""},
      {" a b ", true, false, "ab"},
      {" a b ", true, true, "ab"},
      // Tabs or line ends: line ends deleted, only one space goes at each end.
      {"\ta  b\n", false, true, "a b"},
      {"\t  a", false, false, "  a"},
      {"\t  a", false, true, "a"},
      {"a\r\nb", false, true, "ab"},
      {" \t a b \n", true, false, "ab"},
      {"a \t ", false, false, "a  "},
      {"\t", false, false, ""},
      {"\n\r", false, true, ""},
  };
  for (const Case& c : cases) {
    std::string s = c.in;
    TrimWhitespace(s, c.remove_all, c.collapse);
    EXPECT_EQ(s, c.out) << "input \"" << c.in << "\" " << c.remove_all << c.collapse;
  }
}

TEST(Strings, SpacesAndPathEnds) {
  std::string s = "  \ta b\n  ";
  TrimSpaces(s);
  EXPECT_EQ(s, "\ta b\n");
  s = "    ";
  TrimSpaces(s);
  EXPECT_EQ(s, "");

  struct Case {
    std::string in, out;
  } removes[] = {{"/", ""}, {"a//", "a/"}, {"C:\\", "C:"}, {"x\\/", "x"}, {"x/\\", "x/"}, {"", ""}};
  for (const Case& c : removes) {
    std::string path = c.in;
    RemoveTrailingSlash(path);
    EXPECT_EQ(path, c.out) << c.in;
  }
  Case adds[] = {{"", ""}, {"a", "a/"}, {"a/", "a/"}, {"a\\", "a\\/"}};
  for (const Case& c : adds) {
    std::string path = c.in;
    AddTrailingSlash(path);
    EXPECT_EQ(path, c.out) << c.in;
  }
  s = "a\\b\\\\c";
  BackslashesToSlashes(s);
  AppendNewline(s);
  EXPECT_EQ(s, "a/b//c\n");
}

TEST(Strings, IsIdentifier) {
  EXPECT_TRUE(IsIdentifier(""));
  EXPECT_TRUE(IsIdentifier("abc_XYZ_09"));
  const std::vector<std::string> bad_names = {"a b", "a-b", "a.b", "\xE9t\xE9",
                                              std::string("a\0b", 3)};
  for (const std::string& bad : bad_names) {
    EXPECT_FALSE(IsIdentifier(bad)) << bad;
  }
}

TEST(Strings, FindBytes) {
  const char buffer[] = "abcabcXY";
  EXPECT_EQ(FindBytes(buffer, 8, "cab"), 2);
  EXPECT_EQ(FindBytes(buffer, 8, "abc"), 0);
  EXPECT_EQ(FindBytes(buffer, 8, "XYZ"), -1);
  EXPECT_EQ(FindBytes(buffer, 8, ""), -1);
  EXPECT_EQ(FindBytes(buffer, 2, "abc"), -1);  // longer than the length
  // The start is bounded by the length, not the match: "cX" starts inside it.
  EXPECT_EQ(FindBytes(buffer, 6, "cX"), 5);
  const char with_nul[] = {'a', '\0', 'b', 'b'};
  EXPECT_EQ(FindBytes(with_nul, 4, "bb"), 2);
}

TEST(Strings, HexToIntAcceptsPunctuationAndStopsAfterFourDigits) {
  struct Case {
    const char* text;
    unsigned value;
  } cases[] = {
      {"", 0},      {"g1", 0},      {"1A", 26},      {"1a", 26},    {"ffff1", 65535},
      {":0", 160},  {"*", 10},      {"/", 15},       {"?", 15},     {"12 34", 0x12},
      {"0009", 9},  {"FfFf", 65535}, {"10g0", 0x10}, {"@1", 0},
  };
  for (const Case& c : cases) EXPECT_EQ(HexToInt(c.text), c.value) << c.text;
}

TEST(Strings, StrReserve) {
  std::string empty;
  StrReserve(empty, 500);
  EXPECT_LT(empty.capacity(), 500u);

  std::string s = "abc";
  StrReserve(s, 400);
  EXPECT_GE(s.capacity(), 400u);
  EXPECT_EQ(s, "abc");

  std::string full(2000, 'x');
  full.shrink_to_fit();
  const std::size_t before = full.capacity();
  StrReserve(full, 0);
  EXPECT_GE(full.capacity(), before + 1000);

  std::string roomy = "ab";
  roomy.reserve(100);
  const std::size_t roomy_before = roomy.capacity();
  StrReserve(roomy, -1);
  EXPECT_EQ(roomy.capacity(), roomy_before);
}

TEST(Strings, UrlEscapePasses) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"", ""},
      {"plain text+$,'!*()", "plain text+$,'!*()"},
      {"100%", "100%25"},
      {"a\tb\x1b", "a%09b%1b"},
      {std::string("\0", 1), "%00"},
      {"<>\"#{}|\\^~[]`;/?:@=&", "%3C%3E%22%23%7B%7D%7C%5C%5E%7E%5B%5D%60%3B%2F%3F%3A%40%3D%26"},
      {"\x7f\xe9", "%7F\xe9"},
      // An input marker is taken for an escaped "%".
      {"$$@@##", "%25"},
  };
  for (const Case& c : cases) {
    std::string s = c.in;
    EXPECT_EQ(UrlEscape(s, false, true), c.out.size()) << c.in;
    EXPECT_EQ(s, c.out) << c.in;
  }
  std::string untouched = "a b%";
  EXPECT_EQ(UrlEscape(untouched, true, false), 4u);
  EXPECT_EQ(untouched, "a b%");
}

TEST(Strings, UrlUnescapeDecodesFromTheLeft) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"a%2541", "a%41"},
      {"x+y%3D1", "x y=1"},
      {"%3c%3E", "<>"},
      {"a%00b", "ab"},
      {"ab%4", "ab%4"},  // a "%" in the last two bytes ends decoding
      {"%41%4", "A%4"},
      {"+", " "},
      {"%zz%41", "%zzA"},  // no number: left alone, search goes on
      {"%%41", "%%41"},
      {"%4g", "\x04"},
      {"a$$##pourcent##$$b", "a%b"},
  };
  for (const Case& c : cases) {
    std::string s = c.in;
    EXPECT_EQ(UrlUnescape(s, false, true), c.out.size()) << c.in;
    EXPECT_EQ(s, c.out) << c.in;
  }
  std::string untouched = "a+b%41";
  EXPECT_EQ(UrlUnescape(untouched, false, false), 6u);
  EXPECT_EQ(untouched, "a+b%41");
}

TEST(Strings, UrlEscapeThenUnescapeRoundTrips) {
  std::string all_bytes;
  for (int c = 1; c < 256; ++c) {
    if (c != '+') all_bytes.push_back(static_cast<char>(c));
  }
  for (const std::string& text :
       {std::string("path/to file?x=1&y=%41"), std::string("100% <b>\"q\"</b>\r\n"), all_bytes}) {
    std::string s = text;
    UrlEscape(s, false, true);
    UrlUnescape(s, false, true);
    EXPECT_EQ(s, text);
  }
}

TEST(Strings, XmlEscapeDoesNotEscapeTwice) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"a &amp; b < c", "a &amp; b &lt; c"},
      {"&amp;lt;", "&amp;lt;"},
      {"<a href='x'>\"&\"</a>", "&lt;a href=&apos;x&apos;&gt;&quot;&amp;&quot;&lt;/a&gt;"},
      {"&lt;&gt;&apos;&quot;", "&lt;&gt;&apos;&quot;"},
      {"&amp;amp;", "&amp;"},  // a decoded "&" is decoded again
      {"&&", "&amp;&amp;"},
  };
  for (const Case& c : cases) {
    std::string s = c.in;
    std::string copy = XmlEscape(s);
    EXPECT_EQ(s, c.out) << c.in;
    EXPECT_EQ(copy, c.out) << c.in;
    std::string again = s;
    XmlEscape(again);
    EXPECT_EQ(again, s) << c.in;
  }
  // An input marker is changed by the last pass.
  std::string marker = "$$@@##%%x";
  XmlEscape(marker);
  EXPECT_EQ(marker, "&x");
}

TEST(Strings, UndoubleCharRepeatsTheTailAfterAFinalChar) {
  struct Case {
    std::string in;
    char c;
    std::string out;
  } cases[] = {
      {"it''s", '\'', "it's"},    {"a''''b", '\'', "a''b"}, {"ab'", '\'', "ab'ab'"},
      {"x''y'", '\'', "x'y'y'"},  {"''", '\'', "'"},        {"'", '\'', "''"},
      {"", '\'', ""},             {"none", '\'', "none"},   {"a\"\"b", '"', "a\"b"},
      {"a''", '\'', "a'"},
  };
  for (const Case& c : cases) {
    std::string s = c.in;
    UndoubleChar(s, c.c);
    EXPECT_EQ(s, c.out) << c.in;
  }
  std::string s = "don''t";
  UndoubleQuotes(s);
  EXPECT_EQ(s, "don't");
}

}  // namespace
}  // namespace tk
