#include "support/strings.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace tk {
namespace {

struct Edit {
  std::string in, out;
};

// Applies `edit` to a copy of each input and expects the paired output.
void ExpectEdits(const std::function<void(std::string&)>& edit, const std::vector<Edit>& cases) {
  for (const Edit& c : cases) {
    std::string s = c.in;
    edit(s);
    EXPECT_EQ(s, c.out) << "input \"" << c.in << "\"";
  }
}

TEST(Strings, CaseConversionTouchesOnlyAscii) {
  ExpectEdits(StrToUpper, {{"Abc\xC4\xE4z9_", "ABC\xC4\xE4Z9_"}});
  ExpectEdits(StrToLower, {{"Abc\xC4\xE4Z9_", "abc\xC4\xE4z9_"}});
  char c_text[] = "MiXeD 1";
  EXPECT_EQ(CStrToUpper(c_text), c_text);
  EXPECT_STREQ(c_text, "MIXED 1");
  EXPECT_EQ(CStrToLower(c_text), c_text);
  EXPECT_STREQ(c_text, "mixed 1");
}

TEST(Strings, TrimWhitespaceKeepsBothBranches) {
  auto trim = [](bool remove_all, bool collapse) {
    return [=](std::string& s) { TrimWhitespace(s, remove_all, collapse); };
  };
  // Only spaces: all leading and trailing spaces go.
  ExpectEdits(trim(false, true), {{"", ""}, {"  a   b  ", "a b"}, {"   ", ""}, {"abc", "abc"}});
  ExpectEdits(trim(false, false), {{"  a   b  ", "a   b"}});
  ExpectEdits(trim(true, false), {{" a b ", "ab"}});
  ExpectEdits(trim(true, true), {{" a b ", "ab"}});
  // Tabs or line ends: line ends deleted, only one space goes at each end.
  ExpectEdits(trim(false, true), {{"\ta  b\n", "a b"}, {"\t  a", "a"}, {"a\r\nb", "ab"},
                                  {"\n\r", ""}});
  ExpectEdits(trim(false, false), {{"\t  a", "  a"}, {"a \t ", "a  "}, {"\t", ""}});
  ExpectEdits(trim(true, false), {{" \t a b \n", "ab"}});
}

TEST(Strings, SpacesAndPathEnds) {
  ExpectEdits(TrimSpaces, {{"  \ta b\n  ", "\ta b\n"}, {"    ", ""}});
  ExpectEdits(RemoveTrailingSlash, {{"/", ""}, {"a//", "a/"}, {"C:\\", "C:"}, {"x\\/", "x"},
                                    {"x/\\", "x/"}, {"", ""}});
  ExpectEdits(AddTrailingSlash, {{"", ""}, {"a", "a/"}, {"a/", "a/"}, {"a\\", "a\\/"}});
  ExpectEdits(BackslashesToSlashes, {{"a\\b\\\\c", "a/b//c"}});
  ExpectEdits(AppendNewline, {{"a", "a\n"}});
}

TEST(Strings, IsIdentifier) {
  EXPECT_TRUE(IsIdentifier(""));
  EXPECT_TRUE(IsIdentifier("abc_XYZ_09"));
  for (const char* bad : {"a b", "a-b", "\xE9t\xE9"}) EXPECT_FALSE(IsIdentifier(bad)) << bad;
  EXPECT_FALSE(IsIdentifier(std::string("a\0b", 3)));
}

TEST(Strings, FindBytes) {
  const char buffer[] = "abcabcXY";
  EXPECT_EQ(FindBytes(buffer, 8, "cab"), 2);
  EXPECT_EQ(FindBytes(buffer, 8, "XYZ"), -1);
  EXPECT_EQ(FindBytes(buffer, 8, ""), -1);
  EXPECT_EQ(FindBytes(buffer, 2, "abc"), -1);  // longer than the length
  EXPECT_EQ(FindBytes(buffer, 6, "cX"), 5);    // starts inside, runs past the length
  const char with_nul[] = {'a', '\0', 'b', 'b'};
  EXPECT_EQ(FindBytes(with_nul, 4, "bb"), 2);
}

TEST(Strings, HexToIntAcceptsPunctuationAndStopsAfterFourDigits) {
  struct Case {
    const char* text;
    unsigned value;
  } cases[] = {{"", 0},     {"g1", 0},    {"1A", 26},       {"1a", 26},      {"ffff1", 65535},
               {":0", 160}, {"*", 10},    {"/", 15},        {"?", 15},       {"12 34", 0x12},
               {"@1", 0},   {"0009", 9},  {"FfFf", 65535},  {"10g0", 0x10}};
  for (const Case& c : cases) EXPECT_EQ(HexToInt(c.text), c.value) << c.text;
}

TEST(Strings, StrReserve) {
  std::string empty, s = "abc", full(2000, 'x'), roomy = "ab";
  StrReserve(empty, 500);
  StrReserve(s, 400);
  EXPECT_LT(empty.capacity(), 500u);
  EXPECT_GE(s.capacity(), 400u);
  full.shrink_to_fit();
  roomy.reserve(100);
  const std::size_t full_before = full.capacity(), roomy_before = roomy.capacity();
  StrReserve(full, 0);    // no free room: grows by min(size, 1000)
  StrReserve(roomy, -1);  // enough free room: unchanged
  EXPECT_GE(full.capacity(), full_before + 1000);
  EXPECT_EQ(roomy.capacity(), roomy_before);
}

TEST(Strings, UrlEscapePasses) {
  auto escape = [](std::string& s) {
    const std::size_t length = UrlEscape(s, false, true);
    EXPECT_EQ(length, s.size());
  };
  ExpectEdits(escape, {
      {"", ""}, {"plain text+$,'!*()", "plain text+$,'!*()"}, {"100%", "100%25"},
      {"a\tb\x1b", "a%09b%1b"}, {std::string("\0", 1), "%00"}, {"\x7f\xe9", "%7F\xe9"},
      {"<>\"#{}|\\^~[]`;/?:@=&", "%3C%3E%22%23%7B%7D%7C%5C%5E%7E%5B%5D%60%3B%2F%3F%3A%40%3D%26"},
      {"$$@@##", "%25"},  // an input marker is taken for an escaped "%"
  });
  ExpectEdits([](std::string& s) { EXPECT_EQ(UrlEscape(s, true, false), 4u); }, {{"a b%", "a b%"}});
}

TEST(Strings, UrlUnescapeDecodesFromTheLeft) {
  auto unescape = [](std::string& s) {
    const std::size_t length = UrlUnescape(s, false, true);
    EXPECT_EQ(length, s.size());
  };
  ExpectEdits(unescape, {
      {"a%2541", "a%41"}, {"x+y%3D1", "x y=1"}, {"%3c%3E", "<>"}, {"a%00b", "ab"},
      {"ab%4", "ab%4"}, {"%41%4", "A%4"},  // a "%" in the last two bytes ends decoding
      {"+", " "}, {"%4g", "\x04"}, {"a$$##pourcent##$$b", "a%b"},
      {"%zz%41", "%zzA"}, {"%%41", "%%41"},  // no number: left alone, search goes on after
  });
  ExpectEdits([](std::string& s) { EXPECT_EQ(UrlUnescape(s, false, false), 6u); },
              {{"a+b%41", "a+b%41"}});
}

TEST(Strings, UrlEscapeThenUnescapeRoundTrips) {
  std::string all_bytes;
  for (int c = 1; c < 256; ++c) {
    if (c != '+') all_bytes.push_back(static_cast<char>(c));
  }
  for (const std::string& text : {std::string("path/to file?x=1&y=%41"), all_bytes}) {
    std::string s = text;
    UrlEscape(s, false, true);
    UrlUnescape(s, false, true);
    EXPECT_EQ(s, text);
  }
}

TEST(Strings, XmlEscapeDoesNotEscapeTwice) {
  const std::vector<Edit> cases = {
      {"a &amp; b < c", "a &amp; b &lt; c"}, {"&amp;lt;", "&amp;lt;"}, {"&&", "&amp;&amp;"},
      {"<a href='x'>\"&\"</a>", "&lt;a href=&apos;x&apos;&gt;&quot;&amp;&quot;&lt;/a&gt;"},
      {"&lt;&gt;&apos;&quot;", "&lt;&gt;&apos;&quot;"},
      {"&amp;amp;", "&amp;"},  // a decoded "&" is decoded again
  };
  auto escape = [](std::string& s) { EXPECT_EQ(XmlEscape(s), s); };
  ExpectEdits(escape, cases);
  auto twice = [](std::string& s) {
    XmlEscape(s);
    XmlEscape(s);
  };
  ExpectEdits(twice, cases);
  ExpectEdits(escape, {{"$$@@##%%x", "&x"}});  // an input marker is changed by the last pass
}

TEST(Strings, UndoubleCharRepeatsTheTailAfterAFinalChar) {
  ExpectEdits(UndoubleQuotes, {{"it''s", "it's"}, {"a''''b", "a''b"}, {"ab'", "ab'ab'"},
                               {"x''y'", "x'y'y'"}, {"''", "'"}, {"'", "''"}, {"a''", "a'"},
                               {"", ""}, {"none", "none"}});
  ExpectEdits([](std::string& s) { UndoubleChar(s, '"'); }, {{"a\"\"b", "a\"b"}});
}

}  // namespace
}  // namespace tk
