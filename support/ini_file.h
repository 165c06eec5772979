// Reading one value from an INI-style file ("[Section]" headers, "key=value" lines),
// and the case-insensitive helpers on NUL-terminated strings that the reader and the
// parsing of day and month names share. The reader keeps no state: every call opens
// the file, scans it from the top and closes it. There is no writer and no cache.
//
// Letter case is folded with tolower(), byte by byte. Thread-safe: no shared state.
#ifndef TAVIK_SUPPORT_INI_FILE_H_
#define TAVIK_SUPPORT_INI_FILE_H_

namespace tk {

// Puts into `out` the value of `key` in `section` of the file `path`, or
// `defaultValue` (copied unbounded first: `out` must hold it) when the file, the
// section or the key is missing. Names match without regard to case (the texts
// "[section]" and "key=" are cut to 99 bytes); values keep their case. Lines are
// read 254 bytes at a time and cleaned: tabs become spaces; leading spaces, spaces
// after a space, "=" or "[", spaces before "=", "[" or "]" (further blanks skipped)
// and one trailing space go, so "a [b]" reads as "a[b]". A header is matched by its
// beginning ("[Main] x" opens "Main"); the search stops at the first "[" line after
// the first matching header. There is no comment syntax. The value is copied with
// at most `outSize` bytes and gets no terminator when it fills them.
void ReadIniValue(const char* path, char* out, unsigned outSize, const char* section,
                  const char* key, const char* defaultValue);

// Compares at most `n` bytes of `a` and `b` ignoring case: -1, 0 or 1, like
// strncmp on lower-cased copies (n below 1 compares nothing). 0 when either is null.
int StrNICmp(const char* a, const char* b, int n);

// As StrNICmp without a bound. 0 when either is null.
int StrICmp(const char* a, const char* b);

// First occurrence of `pattern` in `text` ignoring case, as a pointer into `text`
// itself; `text` for an empty pattern. Null when either is null or there is none.
const char* StrIStr(const char* text, const char* pattern);

// Tries the null-terminated list `words` in order against the text at `*cursor`,
// over `n` bytes when n >= 1 and over each word's whole length otherwise. On the
// first match (StrNICmp) moves the cursor past the compared bytes, never past the
// text's terminator, and returns the word's index; else returns -1 and leaves the
// cursor. Put a longer word before a shorter one with the same beginning.
int MatchWordList(const char** cursor, const char* const* words, int n);

}  // namespace tk

#endif  // TAVIK_SUPPORT_INI_FILE_H_
