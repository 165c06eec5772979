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

// With only spaces, all leading and trailing spaces go; with tabs or line ends, line
// ends are deleted and only one space goes at each end.
TEST(Strings, TrimWhitespaceKeepsBothBranches) {
  const struct {
    std::string in;
    bool removeAll, collapse;
    std::string out;
  } cases[] = {
      {"", false, true, ""},
      {"  a   b  ", false, true, "a b"},
      {"   ", false, true, ""},
      {"abc", false, true, "abc"},
      {"  a   b  ", false, false, "a   b"},
      {" a b ", true, false, "ab"},
      {" a b ", true, true, "ab"},
      {"\ta  b\n", false, true, "a b"},
      {"\t  a", false, true, "a"},
      {"a\r\nb", false, true, "ab"},
      {"\n\r", false, true, ""},
      {"\t  a", false, false, "  a"},
      {"a \t ", false, false, "a  "},
      {"\t", false, false, ""},
      {" \t a b \n", true, false, "ab"},
  };
  for (const auto& c : cases) {
    std::string s = c.in;
    TrimWhitespace(s, c.removeAll, c.collapse);
    EXPECT_EQ(s, c.out) << "input \"" << c.in << "\" " << c.removeAll << c.collapse;
  }
}

TEST(Strings, SpacesAndPathEnds) {
  ExpectEdits(TrimSpaces, {{"  \ta b\n  ", "\ta b\n"}, {"    ", ""}});
  ExpectEdits(RemoveTrailingSlash,
              {{"/", ""}, {"a//", "a/"}, {"C:\\", "C:"}, {"x\\/", "x"}, {"x/\\", "x/"}, {"", ""}});
  ExpectEdits(AddTrailingSlash, {{"", ""}, {"a", "a/"}, {"a/", "a/"}, {"a\\", "a\\/"}});
  ExpectEdits(BackslashesToSlashes, {{"a\\b\\\\c", "a/b//c"}});
  ExpectEdits(AppendNewline, {{"a", "a\n"}});
}

TEST(Strings, IsIdentifierAndFindBytes) {
  EXPECT_TRUE(IsIdentifier("") && IsIdentifier("abc_XYZ_09"));
  for (const char* bad : {"a b", "a-b", "\xE9t\xE9"}) EXPECT_FALSE(IsIdentifier(bad)) << bad;
  EXPECT_FALSE(IsIdentifier(std::string("a\0b", 3)));
  const char buffer[] = "abcabcXY\0bb";
  const struct {
    int length;
    const char* pattern;
    int at;
  } cases[] = {
      {8, "cab", 2}, {8, "XYZ", -1}, {8, "", -1}, {2, "abc", -1},  // longer than the length
      {6, "cX", 5},                                                // runs past the length
      {11, "bb", 9},
  };
  for (const auto& c : cases) EXPECT_EQ(FindBytes(buffer, c.length, c.pattern), c.at) << c.pattern;
}

TEST(Strings, HexToIntAcceptsPunctuationAndStopsAfterFourDigits) {
  const struct {
    const char* text;
    unsigned value;
  } cases[] = {{"", 0},     {"g1", 0},      {"1A", 26},      {"1a", 26},   {"ffff1", 65535},
               {":0", 160}, {"*", 10},      {"/", 15},       {"?", 15},    {"@1", 0},
               {"0009", 9}, {"10g0", 0x10}, {"FfFf", 65535}, {"12 34", 18}};
  for (const auto& c : cases) EXPECT_EQ(HexToInt(c.text), c.value) << c.text;
}

TEST(Strings, StrReserve) {
  std::string empty, s = "abc", full(2000, 'x'), roomy = "ab";
  full.shrink_to_fit();
  roomy.reserve(100);
  const std::size_t full_before = full.capacity(), roomy_before = roomy.capacity();
  StrReserve(empty, 500);  // nothing for an empty string
  StrReserve(s, 400);
  StrReserve(full, 0);    // no free room: grows by min(size, 1000)
  StrReserve(roomy, -1);  // enough free room: unchanged
  EXPECT_LT(empty.capacity(), 500u);
  EXPECT_GE(s.capacity(), 400u);
  EXPECT_GE(full.capacity(), full_before + 1000);
  EXPECT_EQ(roomy.capacity(), roomy_before);
}

// Each pass returns the new length (so resizing to it changes nothing); `enable` false
// leaves the text alone.
TEST(Strings, UrlEscapeAndUnescape) {
  auto escape = [](std::string& s) { s.resize(UrlEscape(s, false, true)); };
  ExpectEdits(escape, {
                          {"", ""},
                          {"plain text+$,'!*()", "plain text+$,'!*()"},
                          {"100%", "100%25"},
                          {"a\tb\x1b", "a%09b%1b"},
                          {std::string("\0", 1), "%00"},
                          {"\x7f\xe9", "%7F\xe9"},
                          {"<>\"#{}|\\^~[]`;/?:@=&",
                           "%3C%3E%22%23%7B%7D%7C%5C%5E%7E%5B%5D%60%3B%2F%3F%3A%40%3D%26"},
                          {"$$@@##", "%25"},  // an input marker is taken for an escaped "%"
                      });
  auto unescape = [](std::string& s) { s.resize(UrlUnescape(s, false, true)); };
  ExpectEdits(unescape, {
                            {"a%2541", "a%41"},
                            {"x+y%3D1", "x y=1"},
                            {"%3c%3E", "<>"},
                            {"a%00b", "ab"},
                            {"ab%4", "ab%4"},
                            {"%41%4", "A%4"},  // a "%" in the last two bytes ends decoding
                            {"+", " "},
                            {"%4g", "\x04"},
                            {"a$$##pourcent##$$b", "a%b"},
                            {"%zz%41", "%zzA"},
                            {"%%41", "%%41"},  // no number: left alone, search goes on after
                        });
  std::string off = "a+b%41";
  EXPECT_EQ(UrlEscape(off, true, false) + UrlUnescape(off, false, false), 12u);
  EXPECT_EQ(off, "a+b%41");
  std::string all_bytes;  // escaped and unescaped again, every byte but "+" comes back
  for (int c = 1; c < 256; ++c) all_bytes.push_back(static_cast<char>(c == '+' ? ' ' : c));
  ExpectEdits(
      [&](std::string& s) {
        escape(s);
        unescape(s);
      },
      {{all_bytes, all_bytes}});
}

TEST(Strings, XmlEscapeDoesNotEscapeTwice) {
  const std::vector<Edit> cases = {
      {"a &amp; b < c", "a &amp; b &lt; c"},
      {"&amp;lt;", "&amp;lt;"},
      {"&&", "&amp;&amp;"},
      {"<a href='x'>\"&\"</a>", "&lt;a href=&apos;x&apos;&gt;&quot;&amp;&quot;&lt;/a&gt;"},
      {"&lt;&gt;&apos;&quot;", "&lt;&gt;&apos;&quot;"},
      {"&amp;amp;", "&amp;"},  // a decoded "&" is decoded again
  };
  auto escape = [](std::string& s) { EXPECT_EQ(XmlEscape(s), s); };
  ExpectEdits(escape, cases);
  ExpectEdits(
      [&](std::string& s) {
        escape(s);
        escape(s);
      },
      cases);
  ExpectEdits(escape, {{"$$@@##%%x", "&x"}});  // an input marker is changed by the last pass
}

TEST(Strings, UndoubleCharRepeatsTheTailAfterAFinalChar) {
  ExpectEdits(UndoubleQuotes, {{"it''s", "it's"},
                               {"a''''b", "a''b"},
                               {"ab'", "ab'ab'"},
                               {"x''y'", "x'y'y'"},
                               {"''", "'"},
                               {"'", "''"},
                               {"a''", "a'"},
                               {"", ""},
                               {"none", "none"}});
  ExpectEdits([](std::string& s) { UndoubleChar(s, '"'); }, {{"a\"\"b", "a\"b"}});
}

}  // namespace
}  // namespace tk
