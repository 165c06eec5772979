// Applies the records of one package installation, one small function per record kind:
// directories are created, file contents copied out of the decompressed stream, trees
// and files removed, files made executable or rewritten with LF line ends, each through
// an InstallTree. Records are applied in the order given; nothing is undone after a
// failure.
//
// Paths: [Dir], [RmDir] and [TextDir] names are relative to the destination exactly as
// the caller passed it; [File], [RemoveFile], [Exec] and [TextFile] names are relative to
// the current directory, which the latest [Dir] record set ("" before the first one, so
// that such names are used as they stand).
//
// Not thread-safe: one applier per installation.
#ifndef TAVIK_PACKAGE_RECORD_APPLIER_H_
#define TAVIK_PACKAGE_RECORD_APPLIER_H_

#include <cstdio>
#include <string>

#include "package/install_tree.h"
#include "package/record_reader.h"

namespace tk {

class RecordApplier {
 public:
  // `stream` is the decompressed package the records come from (file contents are copied
  // from it); `error` receives the message of a failure; `tree` does the work.
  RecordApplier(InstallTree& tree, std::string& error, std::string destination, FILE* stream,
                bool verbose);
  RecordApplier(const RecordApplier&) = delete;
  RecordApplier& operator=(const RecordApplier&) = delete;

  // Applies one record; sections of kind kOther are skipped. False with the error text
  // set when the record could not be applied.
  bool Apply(const PackageRecord& record);

 private:
  bool ApplyDir(const PackageRecord& record);
  bool ApplyFile(const PackageRecord& record);
  bool ApplyRmDir(const PackageRecord& record);
  bool ApplyRemoveFile(const PackageRecord& record);
  bool ApplyExec(const PackageRecord& record);
  bool ApplyTextFile(const PackageRecord& record);
  bool ApplyTextDir(const PackageRecord& record);
  bool CreateDirectory(const std::string& path, bool singleLevel);
  std::string BelowDestination(const std::string& name) const;
  bool Fail(std::string message);

  InstallTree& tree_;
  std::string& error_;
  std::string destination_;
  FILE* stream_;
  bool verbose_;
  std::string current_;  // where [File]-like names are relative to, with its trailing "/"
};

}  // namespace tk

#endif  // TAVIK_PACKAGE_RECORD_APPLIER_H_
