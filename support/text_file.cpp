#include "support/text_file.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "support/copies.h"
#include "support/files.h"

namespace tk {

namespace {

// The line buffer, and the size handed to each read: the gap leaves room for the
// terminator written at kConvertReadSize and the line feed appended after a line.
constexpr int kConvertBufferSize = 65536;
constexpr int kConvertReadSize = 65530;
constexpr const char* kTempSuffix = ".tktmpascii";

using Buffer = std::unique_ptr<char[]>;

Buffer AllocateBuffer(std::size_t size) { return Buffer(new (std::nothrow) char[size]); }

// True when the first line of `path` ends with a line feed within the first read,
// the test that tells a text file from a single line or binary data.
bool FirstLineEndsWithNewline(const char* path, char* buffer) {
  UniqueFile in(OpenFile(path, "r"));
  if (in == nullptr) return false;
  if (std::fgets(buffer, kConvertReadSize, in.get()) == nullptr) return false;
  const std::size_t length = std::strlen(buffer);
  return length > 0 && buffer[length - 1] == '\n';
}

// Writes every line of `in` to `out` ended by a single line feed. False on a short
// write.
bool CopyLinesWithNewlines(FILE* in, FILE* out, char* buffer) {
  while (ReadTextLine(buffer, kConvertReadSize, in) > 0) {
    buffer[kConvertReadSize] = '\0';
    std::size_t length = std::strlen(buffer);
    buffer[length++] = '\n';
    if (std::fwrite(buffer, 1, length, out) != length) return false;
  }
  return true;
}

// Writes the converted text of `path` into `tempPath`. False when a file cannot be
// opened or a write falls short.
bool WriteConvertedCopy(const char* path, const char* tempPath, char* buffer) {
  UniqueFile in(OpenFile(path, "rb"));
  if (in == nullptr) return false;
  UniqueFile out(OpenFile(tempPath, "wb"));
  if (out == nullptr) return false;
  if (!CopyLinesWithNewlines(in.get(), out.get(), buffer)) return false;
  // Buffered bytes that cannot be written show up at the close.
  return std::fclose(out.release()) == 0;
}

}  // namespace

void ConvertTextFile(const char* path) {
  if (path == nullptr) return;
  Buffer buffer = AllocateBuffer(kConvertBufferSize);
  if (buffer == nullptr || !FirstLineEndsWithNewline(path, buffer.get())) return;
  TempFileGuard temp(std::string(path) + kTempSuffix);
  if (!WriteConvertedCopy(path, temp.path().c_str(), buffer.get())) return;
  buffer.reset();
  // The file is overwritten rather than replaced, so it keeps its permissions. The
  // copy's result is not looked at: there is nothing left to fall back on.
  CopyFile(temp.path().c_str(), path, 0, -1);
}

void TrimWhitespaceBuffer(char* buffer, bool removeAllSpaces, bool collapseSpaces) {
  if (buffer == nullptr || *buffer == '\0') return;
  const std::size_t length = std::strlen(buffer);
  Buffer kept = AllocateBuffer(length + 1);
  if (kept == nullptr) return;
  std::size_t count = 0;
  for (std::size_t i = 0; i < length; ++i) {
    if (buffer[i] == '\t' || buffer[i] == '\n') buffer[i] = ' ';
    const char c = buffer[i];
    if (c == '\r') continue;
    if (c == ' ') {
      // The collapse test looks at the input byte before, not at the kept text, so
      // "x \r y" keeps two spaces (TextFileTest.TrimWhitespaceBufferCleansOneLine).
      const bool after_space = i > 0 && buffer[i - 1] == ' ';
      if (removeAllSpaces || (collapseSpaces && after_space) || count == 0) continue;
    }
    kept[count++] = c;
  }
  if (count > 0 && kept[count - 1] == ' ') --count;
  std::memcpy(buffer, kept.get(), count);
  buffer[count] = '\0';
}

}  // namespace tk
