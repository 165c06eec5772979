// The description-file language of the package builder, one line at a time: comments,
// section lines ([HEADER] copied as typed, any other name a target directory) and the
// commands of a directory section, which queue records per section. At every section
// line, and once at the end, the queues are flushed to the record stream in a fixed
// order, whatever the order of the commands:
//   removedir, removedirsub, removefile, copyfile (and bare file names), copyperlfile,
//   copydir, copydirsub, exec, textfile, textdir
// (the excludefile and excludedir queues only steer the directory captures). A command
// is one row of the table in description_builder.cpp.
//
// Without an output stream it only validates: every command is parsed and its sources
// checked, nothing is queued or written.
//
// Not thread-safe: one builder per description file.
#ifndef TAVIK_PACKAGE_DESCRIPTION_BUILDER_H_
#define TAVIK_PACKAGE_DESCRIPTION_BUILDER_H_

#include <cstddef>
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

  // A queue of a directory section: its commands' arguments, resolved.
  using Queue = std::vector<std::string>;
  // What a command does with its argument when its line is read.
  using Enqueue = bool (DescriptionBuilder::*)(const std::string& argument, Queue& queue);
  // How one queued entry is written when the section ends.
  using Write = bool (DescriptionBuilder::*)(const std::string& entry);

  // One description command: its word, how its line is queued, and how its queue is
  // written (null: the queue is not written, it only steers other commands). The table
  // of commands is in the order the queues are written.
  struct Command {
    const char* word;
    Enqueue enqueue;
    Write write;
  };
  static const Command kCommands[];
  static const std::size_t kCommandCount;

  bool StartSection(const std::string& line, const std::string& name);
  bool StartDirectorySection(std::string name);
  bool ProcessCommandLine(const std::string& line);
  const Command* FindCommand(const std::string& word) const;
  Queue& QueueOf(const char* word);
  void Keep(Queue& queue, std::string entry);

  // Enqueue functions, one per kind of argument.
  bool EnqueueCopyFile(const std::string& argument, Queue& queue);
  bool EnqueueDirectory(const std::string& argument, Queue& queue);
  bool EnqueueSectionName(const std::string& argument, Queue& queue);
  bool EnqueueArgument(const std::string& argument, Queue& queue);
  bool SetPerlEncode(const std::string& argument, Queue& queue);
  std::string RewriteSource(const std::string& source) const;

  // Writes the entries of `queue` with `command`'s write function; false at the first
  // that fails.
  bool WriteQueue(const Command& command, const Queue& queue);
  // Write functions, one per queue that is written.
  bool WriteRemoveDir(const std::string& name);
  bool WriteRemoveDirTree(const std::string& name);
  bool WriteRemoveFile(const std::string& name);
  bool WriteCopyFile(const std::string& entry);
  bool WriteCopyPerlFile(const std::string& entry);
  bool WriteCopyDir(const std::string& directory);
  bool WriteCopyDirTree(const std::string& directory);
  bool WriteExec(const std::string& name);
  bool WriteTextFile(const std::string& name);
  bool WriteTextDir(const std::string& name);

  struct Entry;
  bool AddEntry(const Entry& entry);
  bool AddFile(const std::string& entry, bool perl);
  bool CaptureDirectory(const std::string& directory, bool withSubdirectories);
  bool WriteFailed() { return Fail(kWriteFailed); }
  bool Fail(std::string message);

  static constexpr const char* kWriteFailed = "Cannot write package file";

  TkPackage& package_;
  std::string& error_;
  std::string base_;
  FILE* out_;
  std::unique_ptr<PackageRecordWriter> writer_;
  Mode mode_ = Mode::kNone;
  bool perl_ = false;
  std::string sectionName_;
  std::string sectionDirectory_;
  std::vector<Queue> queues_;  // one per command, in table order
};

}  // namespace tk

#endif  // TAVIK_PACKAGE_DESCRIPTION_BUILDER_H_
