#include "support/strings.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace tk {

namespace {

// Marker texts that hold an intermediate result until the last pass of a function.
constexpr std::string_view kUrlPercentMarker = "$$@@##";
constexpr std::string_view kUrlDecodedPercentMarker = "$$##pourcent##$$";
constexpr std::string_view kXmlAmpMarker = "$$@@##%%amp;";
constexpr std::string_view kXmlAmpMarkerPrefix = "$$@@##%%";

constexpr int kHexToIntMaxDigits = 4;
constexpr int kReserveMaxGrowth = 1000;
constexpr unsigned char kDelete = 127;
constexpr unsigned char kLastControlByte = 31;
constexpr unsigned char kPercentSign = '%';

bool IsAsciiDigit(unsigned char c) { return c >= '0' && c <= '9'; }
bool IsAsciiLetter(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

void RemoveAll(std::string& s, char c) { s.erase(std::remove(s.begin(), s.end(), c), s.end()); }

// Replaces every occurrence of `from` by `to` exactly as a loop of "find the first
// occurrence from the start, replace it" would, but in one pass: after a replacement
// the new text is scanned again together with what precedes it, so matches that a
// replacement creates (e.g. "&amp;amp;" -> "&amp;" -> "&") are found as well. `to`
// must not contain `from`, or the loop never ends, just as the search from the start.
void ReplaceAll(std::string& s, std::string_view from, std::string_view to) {
  if (from.empty() || s.find(from) == std::string::npos) return;
  std::string out;
  out.reserve(s.size());
  std::string pending;  // replacement text still to scan, in reverse order
  std::size_t next = 0;
  while (!pending.empty() || next < s.size()) {
    if (!pending.empty()) {
      out.push_back(pending.back());
      pending.pop_back();
    } else {
      out.push_back(s[next++]);
    }
    if (std::string_view(out).ends_with(from)) {
      out.resize(out.size() - from.size());
      pending.append(to.rbegin(), to.rend());
    }
  }
  s.swap(out);
}

void ReplaceAll(std::string& s, char from, std::string_view to) {
  ReplaceAll(s, std::string_view(&from, 1), to);
}

// Collapses every run of spaces into a single space.
void CollapseSpaces(std::string& s) {
  auto both_spaces = [](char a, char b) { return a == ' ' && b == ' '; };
  s.erase(std::unique(s.begin(), s.end(), both_spaces), s.end());
}

// The branch of TrimWhitespace for text whose only whitespace is spaces.
void TrimOnlySpaces(std::string& s, bool removeAllSpaces, bool collapseSpaces) {
  if (removeAllSpaces) {
    RemoveAll(s, ' ');
    return;
  }
  TrimSpaces(s);
  if (collapseSpaces) CollapseSpaces(s);
}

// The branch of TrimWhitespace for text holding tabs or line ends: only one space is
// taken from each end, after tabs have become spaces.
void TrimMixedWhitespace(std::string& s, bool removeAllSpaces, bool collapseSpaces) {
  std::replace(s.begin(), s.end(), '\t', ' ');
  RemoveAll(s, '\n');
  RemoveAll(s, '\r');
  if (collapseSpaces) CollapseSpaces(s);
  if (!s.empty() && s.front() == ' ') s.erase(0, 1);
  if (!s.empty() && s.back() == ' ') s.pop_back();
  if (removeAllSpaces) RemoveAll(s, ' ');
}

// Value of one HexToInt digit, or -1 for a character that ends the number.
int HexDigitValue(unsigned char c) {
  if (c >= 42 && c <= 63) return c & 0x0F;
  if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) return (c & 0x0F) + 9;
  return -1;
}

// Reads the two bytes after a "%" the way sscanf("%2x") does. False when no number
// can be read from them.
bool ScanEscapedByte(const char* twoBytes, unsigned char& value) {
  char text[3] = {twoBytes[0], twoBytes[1], '\0'};
  unsigned scanned = 0;
  if (std::sscanf(text, "%2x", &scanned) != 1) return false;
  value = static_cast<unsigned char>(scanned & 0xFF);
  return true;
}

// Decodes the "%xx" sequences of `s` from the left. A decoded "%" becomes a marker
// so that it is not decoded again; "%00" decodes to nothing; a "%" whose two bytes
// hold no number is left as it is and the search goes on after it.
void DecodePercentSequences(std::string& s) {
  std::string out;
  out.reserve(s.size());
  std::size_t next = 0;
  while (true) {
    std::size_t pos = s.find('%', next);
    if (pos == std::string::npos || pos + 2 >= s.size()) break;
    out.append(s, next, pos - next);
    unsigned char value = 0;
    if (!ScanEscapedByte(s.data() + pos + 1, value)) {
      out.append(s, pos, 3);
    } else if (value == kPercentSign) {
      out.append(kUrlDecodedPercentMarker);
    } else if (value != 0) {
      out.push_back(static_cast<char>(value));
    }
    next = pos + 3;
  }
  out.append(s, next, std::string::npos);
  s.swap(out);
}

}  // namespace

void StrToLower(std::string& s) {
  for (char& ch : s) {
    unsigned char c = static_cast<unsigned char>(ch);
    if (c < 128 && std::isupper(c)) ch = static_cast<char>(std::tolower(c));
  }
}

void StrToUpper(std::string& s) {
  for (char& ch : s) {
    unsigned char c = static_cast<unsigned char>(ch);
    if (c < 128 && std::islower(c)) ch = static_cast<char>(std::toupper(c));
  }
}

char* CStrToLower(char* s) {
  for (char* p = s; *p != '\0'; ++p) {
    *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
  }
  return s;
}

char* CStrToUpper(char* s) {
  for (char* p = s; *p != '\0'; ++p) {
    *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
  }
  return s;
}

void TrimWhitespace(std::string& s, bool removeAllSpaces, bool collapseSpaces) {
  if (s.find_first_of(" \t\r\n") == std::string::npos) return;
  if (s.find_first_of("\t\r\n") == std::string::npos) {
    TrimOnlySpaces(s, removeAllSpaces, collapseSpaces);
  } else {
    TrimMixedWhitespace(s, removeAllSpaces, collapseSpaces);
  }
}

void TrimSpaces(std::string& s) {
  std::size_t first = s.find_first_not_of(' ');
  if (first == std::string::npos) {
    s.clear();
    return;
  }
  s.erase(s.find_last_not_of(' ') + 1);
  s.erase(0, first);
}

void RemoveTrailingSlash(std::string& s) {
  if (!s.empty() && s.back() == '/') s.pop_back();
  if (!s.empty() && s.back() == '\\') s.pop_back();
}

void AddTrailingSlash(std::string& s) {
  if (!s.empty() && s.back() != '/') s.push_back('/');
}

void AppendNewline(std::string& s) { s.push_back('\n'); }

void BackslashesToSlashes(std::string& s) { std::replace(s.begin(), s.end(), '\\', '/'); }

bool IsIdentifier(const std::string& s) {
  return std::all_of(s.begin(), s.end(), [](char ch) {
    unsigned char c = static_cast<unsigned char>(ch);
    return IsAsciiDigit(c) || IsAsciiLetter(c) || c == '_';
  });
}

int FindBytes(const char* buffer, int length, const char* pattern) {
  const int pattern_length = static_cast<int>(std::strlen(pattern));
  if (pattern_length == 0 || pattern_length > length) return -1;
  for (int start = 0; start < length; ++start) {
    // Compared byte by byte so that bytes past `length` are read only while matching.
    int matched = 0;
    while (matched < pattern_length && buffer[start + matched] == pattern[matched]) ++matched;
    if (matched == pattern_length) return start;
  }
  return -1;
}

unsigned HexToInt(const char* text) {
  unsigned value = 0;
  for (int i = 0; i < kHexToIntMaxDigits && text[i] != '\0'; ++i) {
    int digit = HexDigitValue(static_cast<unsigned char>(text[i]));
    if (digit < 0) break;
    value = (value << 4) | static_cast<unsigned>(digit);
  }
  return value;
}

void StrReserve(std::string& s, int wanted) {
  if (s.empty()) return;
  if (wanted >= 1) {
    s.reserve(static_cast<std::size_t>(wanted));
    return;
  }
  const std::size_t free_capacity = s.capacity() - s.size();
  if (free_capacity <= s.size()) {
    s.reserve(s.capacity() + std::min<std::size_t>(s.size(), kReserveMaxGrowth));
  }
}

std::size_t UrlEscape(std::string& s, bool /*ignored*/, bool enable) {
  if (!enable) return s.size();
  ReplaceAll(s, '%', kUrlPercentMarker);
  ReplaceAll(s, kUrlPercentMarker, "%25");
  char escaped[8];
  for (unsigned c = 0; c <= kLastControlByte; ++c) {
    std::snprintf(escaped, sizeof escaped, "%%%02x", c);
    ReplaceAll(s, static_cast<char>(c), escaped);
  }
  static constexpr struct {
    char byte;
    const char* escaped;
  } kUpperCaseEscapes[] = {
      {static_cast<char>(kDelete), "%7F"},
      {'<', "%3C"},
      {'>', "%3E"},
      {'"', "%22"},
      {'#', "%23"},
      {'{', "%7B"},
      {'}', "%7D"},
      {'|', "%7C"},
      {'\\', "%5C"},
      {'^', "%5E"},
      {'~', "%7E"},
      {'[', "%5B"},
      {']', "%5D"},
      {'`', "%60"},
      {';', "%3B"},
      {'/', "%2F"},
      {'?', "%3F"},
      {':', "%3A"},
      {'@', "%40"},
      {'=', "%3D"},
      {'&', "%26"},
  };
  for (const auto& escape : kUpperCaseEscapes) ReplaceAll(s, escape.byte, escape.escaped);
  return s.size();
}

std::size_t UrlUnescape(std::string& s, bool /*ignored*/, bool enable) {
  if (!enable) return s.size();
  std::replace(s.begin(), s.end(), '+', ' ');
  if (s.size() < 3) return s.size();
  DecodePercentSequences(s);
  ReplaceAll(s, kUrlDecodedPercentMarker, "%");
  return s.size();
}

std::string XmlEscape(std::string& s) {
  ReplaceAll(s, "&lt;", "<");
  ReplaceAll(s, "&gt;", ">");
  ReplaceAll(s, "&apos;", "'");
  ReplaceAll(s, "&quot;", "\"");
  ReplaceAll(s, "&amp;", "&");
  ReplaceAll(s, '&', kXmlAmpMarker);
  ReplaceAll(s, '<', "&lt;");
  ReplaceAll(s, '>', "&gt;");
  ReplaceAll(s, '\'', "&apos;");
  ReplaceAll(s, '"', "&quot;");
  ReplaceAll(s, kXmlAmpMarkerPrefix, "&");
  return s;
}

void UndoubleChar(std::string& s, char c) {
  std::string result;
  std::size_t rest = 0;  // start of the text still to scan
  while (true) {
    std::size_t pos = s.find(c, rest);
    if (pos == std::string::npos) break;
    result.append(s, rest, pos + 1 - rest);
    // A `c` at the very end leaves the remaining text in place, so the final append
    // below repeats it: "ab'" -> "ab'ab'" (Strings.UndoubleCharRepeatsTheTailAfterAFinalChar).
    if (pos == s.size() - 1) break;
    rest = pos + 1;
    if (s[rest] == c) ++rest;
  }
  result.append(s, rest, std::string::npos);
  s.swap(result);
}

void UndoubleQuotes(std::string& s) { UndoubleChar(s, '\''); }

}  // namespace tk
