// A package decoded whole into a private temporary directory (made with mkdtemp, so no
// other process can guess or share the name) and opened for a PackageRecordReader.
// `tkpack list` and `tkpack verify` read packages this way and write nothing else:
// the decoded stream and its directory are removed when the object goes away.
//
// Not thread-safe: one object per package, used from one thread.
#ifndef TAVIK_TKPACK_OPENED_PACKAGE_H_
#define TAVIK_TKPACK_OPENED_PACKAGE_H_

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "package/decoded_package.h"
#include "package/temp_paths.h"

namespace tk {

// A fresh directory under $TMPDIR (or /tmp), removed with its contents when the object
// goes away. path() is "" when the directory could not be made.
class PrivateTempDirectory {
 public:
  PrivateTempDirectory();
  ~PrivateTempDirectory();
  PrivateTempDirectory(const PrivateTempDirectory&) = delete;
  PrivateTempDirectory& operator=(const PrivateTempDirectory&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// False, with `error` saying so, when the length header of the package at `packagePath`
// states a record stream of 2 GiB or more, or more bytes than its compressed bits can
// carry (LzhufLargestDecodedSize): decoding it would write a stream without end. True
// for a package that cannot be read (the decoder says why).
bool CheckStatedLength(const std::string& packagePath, std::string& error);

// "codec result 143: fewer than 4 bytes: no length header"
std::string CodecResultText(int result);

class OpenedPackage {
 public:
  OpenedPackage() = default;
  OpenedPackage(const OpenedPackage&) = delete;
  OpenedPackage& operator=(const OpenedPackage&) = delete;

  // Decodes the whole package at `packagePath` and opens the result. False with
  // `error` saying what failed, e.g. "Cannot decompress package file x.pkg (codec
  // result 1: a file could not be opened)"; a length header that CheckStatedLength
  // refuses is not decoded at all.
  bool Open(const std::string& packagePath, std::string& error);

  FILE* stream() const { return decoded_ ? decoded_->stream() : nullptr; }
  // Where the decoded stream lives while the object exists.
  std::string decodedPath() const {
    return SiblingTempPath(directory_.path() + "/" + kDecodedName);
  }
  // The private directory, for other scratch files of the same run.
  const std::string& scratchDirectory() const { return directory_.path(); }

 private:
  static constexpr const char* kDecodedName = "package";

  PrivateTempDirectory directory_;
  std::optional<DecodedPackage> decoded_;  // declared last: gone before the directory
};

}  // namespace tk

#endif  // TAVIK_TKPACK_OPENED_PACKAGE_H_
