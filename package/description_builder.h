// The description-file language of the package builder, one line at a time: comments,
// section lines ([HEADER] copied as typed, any other name a target directory) and the
// commands of a directory section, which queue records per section. At every section
// line, and once at the end, the queues are flushed to the record stream in a fixed
// order, whatever the order of the commands:
//   remove-dir, remove-dir-tree, remove-file, copy-file, copy-perl-file, copy-dir,
//   copy-dir-tree, exec, text-file, text-dir
// (the exclude-file and exclude-dir queues only steer the directory captures).
//
// Without an output stream it only validates: every command is parsed and its sources
// checked, nothing is queued or written.
//
// Not thread-safe: one builder per description file.
#ifndef TAVIK_PACKAGE_DESCRIPTION_BUILDER_H_
#define TAVIK_PACKAGE_DESCRIPTION_BUILDER_H_

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "package/record_writer.h"

namespace tk {

class TkPackage;

class DescriptionBuilder {
 public:
  // `baseDirectory` is trimmed and ends with "/" (or is empty: the working directory).
  // `out` is the open temporary record stream, or null to validate only. Failures set
  // `error`; captures go through `package`.
  DescriptionBuilder(TkPackage& package, std::string& error, std::string baseDirectory, FILE* out);
  DescriptionBuilder(const DescriptionBuilder&) = delete;
  DescriptionBuilder& operator=(const DescriptionBuilder&) = delete;

  // Processes one line of the description file. False at the first failure.
  bool ProcessLine(const std::string& rawLine);

  // Writes the queued records of the current section and clears the queues. False at
  // the first queue that fails; the remaining ones are then not written.
  bool FlushSection();

 private:
  enum class Mode { kNone, kHeader, kDirectory };
  enum class Command {
    kCopyFile,
    kCopyPerlFile,
    kPerlEncode,
    kCopyDir,
    kCopyDirSub,
    kRemoveDir,
    kRemoveDirSub,
    kExcludeFile,
    kExcludeDir,
    kExec,
    kRemoveFile,
    kTextFile,
    kTextDir
  };

  // One list per kind of record, in the order FlushSection writes them.
  struct Queues {
    std::vector<std::string> removeDir, removeDirTree, removeFile, copyFile, copyPerlFile, copyDir,
        copyDirTree, exec, textFile, textDir, excludeFile, excludeDir;
  };

  bool StartSection(const std::string& line, const std::string& name);
  bool StartDirectorySection(std::string name);
  bool ProcessCommandLine(const std::string& line);
  bool RunCommand(Command command, const std::string& argument);
  bool QueueCopyFile(const std::string& argument, bool perl);
  bool QueueDirectory(const std::string& argument, std::vector<std::string>& queue);
  void QueueArgument(const std::string& argument, std::vector<std::string>& queue);
  void Queue(std::vector<std::string>& queue, std::string entry);
  std::string RewriteSource(const std::string& source) const;

  bool FlushRemoveDirs(const std::vector<std::string>& queue, bool withSubdirectories);
  bool FlushActions(const std::vector<std::string>& queue,
                    bool (PackageRecordWriter::*write)(const std::string&));
  bool FlushCopyFiles(const std::vector<std::string>& queue, bool perl);
  bool FlushCopyDirs(const std::vector<std::string>& queue, bool withSubdirectories);
  bool FlushTextDirs(const std::vector<std::string>& queue);
  bool Fail(std::string message);

  TkPackage& package_;
  std::string& error_;
  std::string base_;
  FILE* out_;
  std::unique_ptr<PackageRecordWriter> writer_;
  Mode mode_ = Mode::kNone;
  bool perl_ = false;
  std::string sectionName_;
  std::string sectionDirectory_;
  Queues queues_;
};

}  // namespace tk

#endif  // TAVIK_PACKAGE_DESCRIPTION_BUILDER_H_
