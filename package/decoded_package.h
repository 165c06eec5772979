// A package file decompressed into a plain temporary file and opened for reading, so
// that a PackageRecordReader can walk its records. The temporary file is closed and
// deleted when the object goes out of scope, whatever happened, once Open() was called.
//
// Not thread-safe: one object per decompression. Two objects must not share a
// temporary path.
#ifndef TAVIK_PACKAGE_DECODED_PACKAGE_H_
#define TAVIK_PACKAGE_DECODED_PACKAGE_H_

#include <cstdint>
#include <cstdio>
#include <string>

#include "support/files.h"

namespace tk {

class DecodedPackage {
 public:
  enum class Result { kOk, kDecodeFailed, kOpenFailed };

  // The decompressed stream will live in `tempPath` (one of temp_paths.h).
  explicit DecodedPackage(std::string tempPath) : guard_(std::move(tempPath)) {}
  DecodedPackage(const DecodedPackage&) = delete;
  DecodedPackage& operator=(const DecodedPackage&) = delete;

  // Decompresses `packagePath` into the temporary path with a fresh codec (`limit` 0:
  // everything; else stop at about that many bytes) and opens the result with mode "r".
  // kDecodeFailed: the codec returned non-zero (see codecResult()); kOpenFailed: the
  // decompressed file could not be opened.
  Result Open(const char* packagePath, uint64_t limit);

  FILE* stream() const { return stream_.get(); }
  const std::string& tempPath() const { return guard_.path(); }
  int codecResult() const { return codecResult_; }

 private:
  TempFileGuard guard_;  // declared first: the stream is closed before the file goes
  UniqueFile stream_;
  int codecResult_ = 0;
};

}  // namespace tk

#endif  // TAVIK_PACKAGE_DECODED_PACKAGE_H_
