#include "support/ini_file.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "support/files.h"
#include "support/strings.h"

namespace tk {

namespace {

// "[section]" and "key=" are built in buffers of this size; longer names are cut.
constexpr std::size_t kNameBufferSize = 100;
// Each read takes at most this many bytes; a longer line reads as several lines.
constexpr int kMaxLineRead = 254;
constexpr std::size_t kIniLineBufferSize = kMaxLineRead + 2;

int LowerByte(const char* p) { return std::tolower(static_cast<unsigned char>(*p)); }

int Sign(int value) { return (value > 0) - (value < 0); }

// Removes one trailing LF and after it one trailing CR.
void StripLineEnd(char* line) {
  std::size_t length = std::strlen(line);
  if (length > 0 && line[length - 1] == '\n') line[--length] = '\0';
  if (length > 0 && line[length - 1] == '\r') line[--length] = '\0';
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// True when the first non-blank character after `p` is "=", "[" or "]".
bool NextNonBlankIsDelimiter(const char* p) {
  while (IsBlank(*p)) ++p;
  return *p == '=' || *p == '[' || *p == ']';
}

// Copies `line` into `cleaned` (at least as large) without the spaces that carry no
// meaning around names, "=" and brackets, and without one trailing space.
void CleanLine(char* line, char* cleaned) {
  for (char* p = line; *p != '\0'; ++p) {
    if (*p == '\t') *p = ' ';
  }
  std::size_t count = 0;
  for (const char* p = line; *p != '\0'; ++p) {
    if (*p == ' ') {
      const bool after_delimiter = p > line && (p[-1] == ' ' || p[-1] == '=' || p[-1] == '[');
      if (after_delimiter || count == 0 || NextNonBlankIsDelimiter(p + 1)) continue;
    }
    cleaned[count++] = *p;
  }
  if (count > 0 && cleaned[count - 1] == ' ') --count;
  cleaned[count] = '\0';
}

bool StartsWith(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// Builds `before` + `name` + `after` in `buffer`, cut to the buffer, lower-cased.
void BuildLowerName(char (&buffer)[kNameBufferSize], const char* before, const char* name,
                    const char* after) {
  std::snprintf(buffer, sizeof buffer, "%s%s%s", before, name != nullptr ? name : "", after);
  CStrToLower(buffer);
}

// Scans `in` for the key line of the section. Returns the cleaned line's value
// text in `cleaned`, or null when the section or the key is not found.
const char* FindValue(FILE* in, const char* header, const char* keyPrefix,
                      char (&cleaned)[kIniLineBufferSize]) {
  char line[kIniLineBufferSize];
  char lower[kIniLineBufferSize];
  bool in_section = false;
  while (std::fgets(line, kMaxLineRead + 1, in) != nullptr) {
    StripLineEnd(line);
    CleanLine(line, cleaned);
    std::strcpy(lower, cleaned);
    CStrToLower(lower);
    if (lower[0] == '\0') continue;
    if (!in_section) {
      in_section = StartsWith(lower, header);
    } else if (lower[0] == '[') {
      return nullptr;  // the first matching section ended without the key
    } else if (StartsWith(lower, keyPrefix)) {
      return cleaned + std::strlen(keyPrefix);
    }
  }
  return nullptr;
}

}  // namespace

void ReadIniValue(const char* path, char* out, unsigned outSize, const char* section,
                  const char* key, const char* defaultValue) {
  if (out == nullptr) return;
  std::strcpy(out, defaultValue != nullptr ? defaultValue : "");
  char header[kNameBufferSize];
  char key_prefix[kNameBufferSize];
  BuildLowerName(header, "[", section, "]");
  BuildLowerName(key_prefix, "", key, "=");
  if (path == nullptr) return;
  UniqueFile in(OpenFile(path, "r"));
  if (in == nullptr) return;
  char cleaned[kIniLineBufferSize];
  const char* value = FindValue(in.get(), header, key_prefix, cleaned);
  // strncpy: a value of `outSize` bytes or more is left without a terminator
  // (IniFileTest.BoundedCopyAddsNoTerminatorWhenFull).
  if (value != nullptr) std::strncpy(out, value, outSize);
}

int StrNICmp(const char* a, const char* b, int n) {
  if (a == nullptr || b == nullptr) return 0;
  for (int i = 0; i < n; ++i) {
    const int ca = LowerByte(a + i);
    const int cb = LowerByte(b + i);
    if (ca != cb) return Sign(ca - cb);
    if (ca == '\0') break;
  }
  return 0;
}

int StrICmp(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) return 0;
  for (;; ++a, ++b) {
    const int ca = LowerByte(a);
    const int cb = LowerByte(b);
    if (ca != cb) return Sign(ca - cb);
    if (ca == '\0') return 0;
  }
}

const char* StrIStr(const char* text, const char* pattern) {
  if (text == nullptr || pattern == nullptr) return nullptr;
  const int length = static_cast<int>(std::strlen(pattern));
  for (const char* p = text;; ++p) {
    if (StrNICmp(p, pattern, length) == 0) return p;
    if (*p == '\0') return nullptr;
  }
}

int MatchWordList(const char** cursor, const char* const* words, int n) {
  if (cursor == nullptr || *cursor == nullptr || words == nullptr) return -1;
  for (int i = 0; words[i] != nullptr; ++i) {
    const int length = n >= 1 ? n : static_cast<int>(std::strlen(words[i]));
    if (StrNICmp(*cursor, words[i], length) == 0) {
      // A text that ends inside the compared bytes matched up to its terminator.
      *cursor += strnlen(*cursor, static_cast<std::size_t>(length));
      return i;
    }
  }
  return -1;
}

}  // namespace tk
