// String utilities: case conversion, whitespace clean-up, path ends, percent and
// XML escaping, quote undoubling. Byte strings are std::string; everything works
// byte by byte, in place unless said otherwise, and nothing here fails or prints.
// Only the 7-bit ASCII range is ever changed by the case functions.
//
// Several functions run "find from the start, replace, find again" passes with
// marker texts protecting intermediate results. The markers are not escaped in the
// input, so input that already holds one is changed by the final marker pass:
// "$$@@##" escapes to "%25", "$$##pourcent##$$" unescapes to "%", "$$@@##%%x"
// XML-escapes to "&x" (Strings.UrlEscapeAndUnescape, Strings.XmlEscapeDoesNotEscapeTwice).
//
// Thread-safe: no shared state.
#ifndef TAVIK_SUPPORT_STRINGS_H_
#define TAVIK_SUPPORT_STRINGS_H_

#include <cstddef>
#include <string>

namespace tk {

// Lower-cases the bytes "A".."Z" of `s`; bytes of 128 and above are left alone.
void StrToLower(std::string& s);

// Upper-cases the bytes "a".."z" of `s`; bytes of 128 and above are left alone.
void StrToUpper(std::string& s);

// Runs every byte of the NUL-terminated `s` through tolower(). Returns `s`.
char* CStrToLower(char* s);

// Runs every byte of the NUL-terminated `s` through toupper(). Returns `s`.
char* CStrToUpper(char* s);

// Cleans tabs, CR, LF and spaces. With only spaces present: removes all of them
// (`removeAllSpaces`) or the leading and trailing ones, collapsing inner runs when
// `collapseSpaces`. With a tab, CR or LF present: tabs become spaces, CR and LF are
// deleted, runs collapse when `collapseSpaces`, then only one space goes at each
// end, then all spaces go when `removeAllSpaces`. So "  a" loses both spaces but
// "\t  a" keeps two (Strings.TrimWhitespaceKeepsBothBranches).
void TrimWhitespace(std::string& s, bool removeAllSpaces, bool collapseSpaces);

// The whitespace normalisation that every path, answer and record line goes through:
// NormalizeWhitespace(s), so "\ta  b\r\n" -> "a b" and "  " -> "".
inline void NormalizeWhitespace(std::string& s) {
  TrimWhitespace(s, /*removeAllSpaces=*/false, /*collapseSpaces=*/true);
}

// Removes all leading and trailing 0x20 spaces (tabs and line ends are kept).
void TrimSpaces(std::string& s);

// Removes one trailing "/" and then one trailing "\": "a//" -> "a/", "x\/" -> "x".
void RemoveTrailingSlash(std::string& s);

// Appends "/" unless `s` is empty or already ends with "/". "" stays "".
void AddTrailingSlash(std::string& s);

// Appends one line feed.
void AppendNewline(std::string& s);

// Turns every backslash into "/".
void BackslashesToSlashes(std::string& s);

// True when every byte is a digit, an ASCII letter or "_" (true for "").
bool IsIdentifier(const std::string& s);

// First position in [0, length) where all of `pattern` matches, or -1; -1 also for
// an empty pattern or one longer than `length`. A match may run past `length`, so
// the caller must own the bytes there.
int FindBytes(const char* buffer, int length, const char* pattern);

// Up to four hexadecimal digits, most significant first. Characters 42..63 count
// as their low four bits (so "*".."/" and ":".."?" are digits too: ":0" is 160); a-f
// and A-F count 10..15. Stops at the first other character; no digit gives 0
// (Strings.HexToIntAcceptsPunctuationAndStopsAfterFourDigits).
unsigned HexToInt(const char* text);

// Nothing for an empty `s`. `wanted` >= 1 reserves that capacity; otherwise grows
// by min(size, 1000) when the free capacity is not greater than the size.
void StrReserve(std::string& s, int wanted);

// Percent-escapes "%", control bytes (lower-case hex), byte 127 and
// < > " # { } | \ ^ ~ [ ] ` ; / ? : @ = & (upper-case hex), in that pass order.
// Unchanged when `enable` is false. Returns the new length.
std::size_t UrlEscape(std::string& s, bool ignored, bool enable);

// Turns "+" into a space, then decodes "%xx" from the left; a decoded "%" is
// protected by a marker until the end; "%00" decodes to nothing; a "%" in the last
// two bytes ends decoding; a "%" followed by two non-hex bytes is left as it is.
// Unchanged when `enable` is false. Returns the new length.
std::size_t UrlUnescape(std::string& s, bool ignored, bool enable);

// Decodes the five XML entities, then encodes & < > ' " again, so escaped text is
// not escaped twice. Modifies `s` and returns a copy of the result.
std::string XmlEscape(std::string& s);

// Collapses each doubled `c` into one ("it''s" -> "it's"). When the last `c` stands
// at the very end of the remaining text, that text is appended a second time:
// "ab'" -> "ab'ab'", "x''y'" -> "x'y'y'" (Strings.UndoubleCharRepeatsTheTailAfterAFinalChar).
void UndoubleChar(std::string& s, char c);

// UndoubleChar with the apostrophe.
void UndoubleQuotes(std::string& s);

}  // namespace tk

#endif  // TAVIK_SUPPORT_STRINGS_H_
