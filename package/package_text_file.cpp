// TkPackage::SetTextFile: rewrites a file with LF line ends through a sibling
// temporary file, then copies the result over the original so that it keeps its path.
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "package/install_tree.h"
#include "package/package.h"
#include "package/temp_paths.h"
#include "support/copies.h"
#include "support/files.h"

namespace tk {

bool CopyTextLines(FILE* in, FILE* out, char* buffer) {
  while (ReadTextLine(buffer, kTextLineBufferSize, in) != 0) {
    const std::size_t length = std::strlen(buffer);
    if (std::fwrite(buffer, 1, length, out) != length || std::fputc('\n', out) == EOF) {
      return false;
    }
  }
  return true;
}

bool TkPackage::SetTextFile(const char* path) {
  const std::string original = path != nullptr ? path : "";
  TempFileGuard temp(SiblingTempPath(original));
  UniqueFile out(OpenFile(temp.path().c_str(), "w"));
  if (out == nullptr) return Fail("Cannot open temporary file " + temp.path());
  UniqueFile in(OpenFile(original.c_str(), "r"));
  if (in == nullptr) return Fail("Cannot open file " + original);
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[kTextLineBufferSize]);
  if (buffer == nullptr) return Fail("Not enough memory");
  // A failed final flush is as short a write as a failed fwrite.
  if (!CopyTextLines(in.get(), out.get(), buffer.get()) || std::fclose(out.release()) != 0) {
    return Fail("Cannot write file" + temp.path());
  }
  in.reset();
  if (CopyFile(temp.path().c_str(), original.c_str(), 0, -1) == 0) {
    return Fail("Cannot wricopyte file" + temp.path() + " -> " + original);
  }
  return true;
}

}  // namespace tk
