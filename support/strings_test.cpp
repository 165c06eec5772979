#include "support/strings.h"

#include <gtest/gtest.h>

#include <span>
#include <tuple>

namespace tk {
namespace {

using Edit = void (*)(std::string&);
using Case = std::pair<std::string, std::string>;

// Applies `edit` to a copy of each input and expects the paired output.
void ExpectEdits(Edit edit, std::span<const Case> cases) {
  for (const auto& [in, out] : cases) {
    std::string s = in;
    edit(s);
    EXPECT_EQ(s, out) << "input \"" << in << "\"";
  }
}

void Escape(std::string& s) { s.resize(UrlEscape(s, false, true)); }
void Unescape(std::string& s) { s.resize(UrlUnescape(s, false, true)); }
void EscapeAndUnescape(std::string& s) { Escape(s), Unescape(s); }
// XmlEscape leaves its result in `s` and returns a copy of it.
void EscapeXml(std::string& s) { EXPECT_EQ(XmlEscape(s), s); }
void EscapeXmlTwice(std::string& s) { EscapeXml(s), EscapeXml(s); }

TEST(Strings, CaseConversionTouchesOnlyAscii) {
  const Case upper[] = {{"Abc\xC4\xE4z9_", "ABC\xC4\xE4Z9_"}}, lower[] = {{"AbC\xC4", "abc\xC4"}};
  ExpectEdits(StrToUpper, upper);
  ExpectEdits(StrToLower, lower);
  char text[] = "MiXeD 1";
  EXPECT_STREQ(CStrToUpper(text), "MIXED 1");
  EXPECT_STREQ(CStrToLower(text), "mixed 1");
}

// With only spaces, all leading and trailing spaces go; with tabs or line ends, line
// ends are deleted and only one space goes at each end.
TEST(Strings, TrimWhitespaceKeepsBothBranches) {
  const std::tuple<std::string, bool, bool, std::string> cases[] = {
      {"  a   b  ", false, true, "a b"}, {"  a   b  ", false, false, "a   b"},
      {" a b ", true, false, "ab"},      {"\ta  b\n", false, true, "a b"},
      {"a\r\nb", false, true, "ab"},     {"\t  a", false, false, "  a"},
      {"a \t ", false, false, "a  "},    {"\t", false, false, ""},
      {" \t a b \n", true, false, "ab"}};
  for (const auto& [in, removeAll, collapse, out] : cases) {
    std::string s = in;
    TrimWhitespace(s, removeAll, collapse);
    EXPECT_EQ(s, out) << "input \"" << in << "\" " << removeAll << collapse;
  }
}

TEST(Strings, SpacesAndPathEnds) {
  const Case spaces[] = {{"  \ta b\n  ", "\ta b\n"}, {"    ", ""}},
             slashes[] = {{"a\\b\\", "a/b/"}};
  const Case removed[] = {{"/", ""},     {"a//", "a/"},  {"C:\\", "C:"},
                          {"x\\/", "x"}, {"x/\\", "x/"}, {"", ""}};
  const Case added[] = {{"", ""}, {"a", "a/"}, {"a/", "a/"}};
  ExpectEdits(TrimSpaces, spaces);
  ExpectEdits(RemoveTrailingSlash, removed);
  ExpectEdits(AddTrailingSlash, added);
  ExpectEdits(BackslashesToSlashes, slashes);
}

TEST(Strings, IsIdentifierAndFindBytes) {
  EXPECT_TRUE(IsIdentifier("") && IsIdentifier("abc_XYZ_09"));
  for (const char* bad : {"a b", "a-b", "\xE9t\xE9"}) EXPECT_FALSE(IsIdentifier(bad)) << bad;
  // A match may run past the length; a pattern longer than the length never matches.
  const char buffer[] = "abcabcXY\0bb";
  const std::tuple<int, const char*, int> cases[] = {{8, "cab", 2},  {8, "XYZ", -1}, {8, "", -1},
                                                     {2, "abc", -1}, {6, "cX", 5},   {11, "bb", 9}};
  for (const auto& [length, pattern, at] : cases) {
    EXPECT_EQ(FindBytes(buffer, length, pattern), at) << pattern;
  }
}

TEST(Strings, HexToIntAcceptsPunctuationAndStopsAfterFourDigits) {
  const std::tuple<const char*, unsigned> cases[] = {
      {"", 0},   {"g1", 0}, {"1A", 26}, {"fA", 250}, {"ffff1", 65535}, {":0", 160},
      {"*", 10}, {"?", 15}, {")", 0},   {"@1", 0},   {"10g0", 16},     {"12 34", 18}};
  for (const auto& [text, value] : cases) EXPECT_EQ(HexToInt(text), value) << text;
}

// Nothing for an empty string; below 1, growth by min(size, 1000) only when the free
// room is not greater than the size.
TEST(Strings, StrReserve) {
  std::string empty, s = "abc", full(2000, 'x'), roomy = "ab";
  full.shrink_to_fit();
  roomy.reserve(100);
  const std::size_t full_before = full.capacity(), roomy_before = roomy.capacity();
  StrReserve(empty, 500);
  StrReserve(s, 400);
  StrReserve(full, 0);
  StrReserve(roomy, -1);
  EXPECT_LT(empty.capacity(), 500u);
  EXPECT_GE(s.capacity(), 400u);
  EXPECT_GE(full.capacity(), full_before + 1000);
  EXPECT_EQ(roomy.capacity(), roomy_before);
}

// Control bytes come out in lower-case hexadecimal, the rest in upper case; a decoded
// "%" is not decoded again; a "%" in the last two bytes ends decoding. Escaped and
// unescaped again, every byte but "+" comes back.
TEST(Strings, UrlEscapeAndUnescape) {
  const Case escapes[] = {{" +$,'!*()", " +$,'!*()"}, {"100%", "100%25"},
                          {"a\tb\x1b", "a%09b%1b"},   {std::string("\0", 1), "%00"},
                          {"\x7f\xe9", "%7F\xe9"},    {"$$@@##", "%25"}};
  ExpectEdits(Escape, escapes);
  std::string special = "<>\"#{}|\\^~[]`;/?:@=&";
  Escape(special);
  EXPECT_EQ(special, "%3C%3E%22%23%7B%7D%7C%5C%5E%7E%5B%5D%60%3B%2F%3F%3A%40%3D%26");
  const Case unescapes[] = {
      {"a%2541", "a%41"}, {"x+y%3D1", "x y=1"}, {"%3c%3E", "<>"}, {"a%00b", "ab"},
      {"%41%4", "A%4"},   {"+", " "},           {"%4g", "\x04"},  {"a$$##pourcent##$$b", "a%b"},
      {"%zz%41", "%zzA"}, {"%%41", "%%41"}};
  ExpectEdits(Unescape, unescapes);
  std::string off = "a+b%41";
  EXPECT_EQ(UrlEscape(off, true, false) + UrlUnescape(off, false, false), 12u);
  EXPECT_EQ(off, "a+b%41");
  Case all_bytes;
  for (int c = 1; c < 256; ++c) all_bytes.first += static_cast<char>(c == '+' ? ' ' : c);
  all_bytes.second = all_bytes.first;
  ExpectEdits(EscapeAndUnescape, {&all_bytes, 1});
}

// Already escaped text is not escaped again; an input marker is changed by the last pass.
TEST(Strings, XmlEscapeDoesNotEscapeTwice) {
  const Case cases[] = {
      {"&amp; <", "&amp; &lt;"}, {"&amp;lt;", "&amp;lt;"},         {"&&", "&amp;&amp;"},
      {"&lt;&gt;", "&lt;&gt;"},  {"&apos;&quot;", "&apos;&quot;"}, {"&amp;amp;", "&amp;"},
      {"'\"", "&apos;&quot;"}};
  ExpectEdits(EscapeXml, cases);
  ExpectEdits(EscapeXmlTwice, cases);
  std::string marker = "$$@@##%%x";
  EXPECT_EQ(XmlEscape(marker), "&x");
}

TEST(Strings, UndoubleCharRepeatsTheTailAfterAFinalChar) {
  const Case cases[] = {{"it''s", "it's"},   {"a''''b", "a''b"}, {"ab'", "ab'ab'"},
                        {"x''y'", "x'y'y'"}, {"''", "'"},        {"'", "''"},
                        {"a''", "a'"},       {"none", "none"}};
  ExpectEdits(UndoubleQuotes, cases);
  std::string doubled = "a\"\"b";
  UndoubleChar(doubled, '"');
  EXPECT_EQ(doubled, "a\"b");
}

}  // namespace
}  // namespace tk
