// Writer of the plain record stream that the builder compresses into a package: the
// magic and version lines, header lines and every record kind, byte for byte in the
// layout the record reader expects (record_reader.h). Every function returns false on a
// short write; the stream is never closed here.
//
// Not thread-safe: one writer per stream, used from one thread.
#ifndef TAVIK_PACKAGE_RECORD_WRITER_H_
#define TAVIK_PACKAGE_RECORD_WRITER_H_

#include <cstdint>
#include <cstdio>
#include <string>

namespace tk {

// The "Size = " value that a [File] record carries for a file of `size` bytes: the size
// cut to 32 bits, sign-extended and printed unsigned. Files of 2 GiB and more therefore
// get a size that is not theirs: 2 GiB gives 18446744071562067968, 4 GiB + 3 gives 3
// (pinned by RecordWriter.FileSizesKeepThirtyTwoBitsSignExtended).
unsigned long RecordedFileSize(int64_t size);

class PackageRecordWriter {
 public:
  // Writes to `out`, opened for writing; the stream is not owned.
  explicit PackageRecordWriter(FILE* out) : out_(out) {}

  FILE* stream() const { return out_; }

  // "TAVIK PACKAGE FILE\n1\n".
  bool WriteMagic();

  // `line` + "\n": header section lines, copied as typed.
  bool WriteLine(const std::string& line);

  // "[Dir]\nName = X\n\n".
  bool WriteDir(const std::string& name);

  // The three pieces of a [File] record: "[File]\n"; then "Name = X\nSize = N\n" in one
  // write; then, after the content, "\n\n". N is printed as unsigned decimal.
  bool WriteFileHead();
  bool WriteFileKeys(const std::string& name, unsigned long size);
  bool WriteFileEnd();

  // "[RmDir]\nName = X\nWithsubdir = YES\n\n" (or NO).
  bool WriteRmDir(const std::string& name, bool withSubdirs);

  // "[RemoveFile]\n", "[Exec]\n" or "[TextFile]\n", then "Name = X\n", then "\n\n": these
  // three records end in three line feeds.
  bool WriteRemoveFile(const std::string& name);
  bool WriteExec(const std::string& name);
  bool WriteTextFile(const std::string& name);

  // "[TextDir]\nName = X\nName = X\n\n\n": the name line stands twice.
  bool WriteTextDir(const std::string& name);

 private:
  bool Write(const std::string& text);
  bool WriteAction(const char* sectionLine, const std::string& name);

  FILE* out_;
};

}  // namespace tk

#endif  // TAVIK_PACKAGE_RECORD_WRITER_H_
