#include "package/description_builder.h"

#include <utility>

#include "package/package.h"
#include "support/directories.h"
#include "support/strings.h"

namespace tk {

namespace {

using B = DescriptionBuilder;

bool IsComment(const std::string& line) {
  return line.starts_with("\\\\") || line.starts_with("//") || line.starts_with(";");
}

}  // namespace

DescriptionBuilder::DescriptionBuilder(TkPackage& package, std::string& error,
                                       std::string baseDirectory, FILE* out)
    : package_(package),
      error_(error),
      base_(std::move(baseDirectory)),
      out_(out),
      queues_(kCommandCount) {
  if (out_ != nullptr) writer_ = std::make_unique<PackageRecordWriter>(out_);
}

bool DescriptionBuilder::Fail(std::string message) {
  error_ = std::move(message);
  return false;
}

bool DescriptionBuilder::ProcessLine(const std::string& rawLine) {
  std::string line = rawLine;
  NormalizeWhitespace(line);
  if (line.empty() || IsComment(line)) return true;
  if (line[0] == '[') {
    const std::size_t close = line.find(']');
    if (close != std::string::npos) return StartSection(line, line.substr(1, close - 1));
  }
  switch (mode_) {
    case Mode::kNone:
      return true;
    case Mode::kHeader:
      return out_ == nullptr || writer_->WriteLine(line) || WriteFailed();
    case Mode::kDirectory:
      return ProcessCommandLine(line);
  }
  return true;
}

// The previous section ends here: its queues go out before anything of the new one.
bool DescriptionBuilder::StartSection(const std::string& line, const std::string& rawName) {
  if (!FlushSection()) return false;
  mode_ = Mode::kNone;
  perl_ = false;
  std::string name = rawName;
  NormalizeWhitespace(name);
  std::string upper = name;
  StrToUpper(upper);
  if (upper != kHeaderSection) return StartDirectorySection(std::move(name));
  mode_ = Mode::kHeader;
  return out_ == nullptr || writer_->WriteLine(line) || WriteFailed();
}

bool DescriptionBuilder::StartDirectorySection(std::string name) {
  name.erase(0, name.find_first_not_of('\\'));
  name.erase(0, name.find_first_not_of('/'));
  BackslashesToSlashes(name);
  RemoveTrailingSlash(name);
  sectionDirectory_ = base_ + name;
  RemoveTrailingSlash(sectionDirectory_);
  BackslashesToSlashes(sectionDirectory_);
  if (sectionDirectory_.find("..") != std::string::npos) {
    return Fail("Bad directory: " + sectionDirectory_);
  }
  sectionName_ = std::move(name);
  mode_ = Mode::kDirectory;
  return out_ == nullptr || writer_->WriteDir(sectionName_) || WriteFailed();
}

// The commands of a directory section, in the order their queues are written.
const B::Command B::kCommands[] = {
    {"removedir", &B::EnqueueSectionName, &B::WriteRemoveDir},
    {"removedirsub", &B::EnqueueSectionName, &B::WriteRemoveDirTree},
    {"removefile", &B::EnqueueArgument, &B::WriteRemoveFile},
    {"copyfile", &B::EnqueueCopyFile, &B::WriteCopyFile},
    {"copyperlfile", &B::EnqueueCopyFile, &B::WriteCopyPerlFile},
    {"copydir", &B::EnqueueDirectory, &B::WriteCopyDir},
    {"copydirsub", &B::EnqueueDirectory, &B::WriteCopyDirTree},
    {"exec", &B::EnqueueArgument, &B::WriteExec},
    {"textfile", &B::EnqueueArgument, &B::WriteTextFile},
    {"textdir", &B::EnqueueSectionName, &B::WriteTextDir},
    {"excludefile", &B::EnqueueArgument, nullptr},
    {"excludedir", &B::EnqueueArgument, nullptr},
    {"perlencode", &B::SetPerlEncode, nullptr},
};
const std::size_t B::kCommandCount = std::size(kCommands);

// The arguments of one TkPackage::AddPackageEntry call, by name.
struct DescriptionBuilder::Entry {
  std::string targetName = "";
  std::string sourcePath = "";
  bool isDirectory = false;
  bool withSubdirectories = false;
  bool isRemoveDir = false;
  bool isTextDir = false;
  std::string relativePath = "";
  const std::vector<std::string>* excludeFiles = nullptr;
  const std::vector<std::string>* excludeDirs = nullptr;
  bool perlEncode = false;
};

// "word: argument" when the word is a command; anything else copies the file it names.
bool DescriptionBuilder::ProcessCommandLine(const std::string& line) {
  const std::size_t colon = line.find(':');
  if (colon != std::string::npos) {
    std::string word = line.substr(0, colon);
    NormalizeWhitespace(word);
    StrToLower(word);
    if (const Command* command = FindCommand(word)) {
      std::string argument = line.substr(colon + 1);
      NormalizeWhitespace(argument);
      return (this->*command->enqueue)(argument, queues_[command - kCommands]);
    }
  }
  return EnqueueCopyFile(line, QueueOf("copyfile"));
}

const DescriptionBuilder::Command* DescriptionBuilder::FindCommand(const std::string& word) const {
  for (const Command& command : kCommands) {
    if (word == command.word) return &command;
  }
  return nullptr;
}

DescriptionBuilder::Queue& DescriptionBuilder::QueueOf(const char* word) {
  return queues_[FindCommand(word) - kCommands];
}

// Validation runs every check but keeps nothing.
void DescriptionBuilder::Keep(Queue& queue, std::string entry) {
  if (out_ != nullptr) queue.push_back(std::move(entry));
}

bool DescriptionBuilder::EnqueueArgument(const std::string& argument, Queue& queue) {
  if (!argument.empty()) Keep(queue, argument);
  return true;
}

// removedir, removedirsub and textdir act on the section's own directory; their argument
// is ignored.
bool DescriptionBuilder::EnqueueSectionName(const std::string& /*argument*/, Queue& queue) {
  Keep(queue, sectionName_);
  return true;
}

bool DescriptionBuilder::SetPerlEncode(const std::string& /*argument*/, Queue& /*queue*/) {
  perl_ = true;
  return true;
}

bool DescriptionBuilder::EnqueueDirectory(const std::string& argument, Queue& queue) {
  std::string path = argument.empty() ? sectionDirectory_ : argument;
  BackslashesToSlashes(path);
  RemoveTrailingSlash(path);
  if (path.find("..") != std::string::npos || DirectoryExists(path.c_str()) == 0) {
    return Fail("Bad directory: " + path);
  }
  Keep(queue, std::move(path));
  return true;
}

// "..x" is below the section directory's "/", "./x" or ".x" glued to the section
// directory, "#x" or "#/x" below the base directory; anything else stays as written.
std::string DescriptionBuilder::RewriteSource(const std::string& source) const {
  if (source.starts_with("..")) return sectionDirectory_ + "/" + source;
  if (source.starts_with(".")) return sectionDirectory_ + source.substr(1);
  if (!source.starts_with("#")) return source;
  std::string rest = source.substr(1);
  if (rest.starts_with("/") || rest.starts_with("\\")) rest.erase(0, 1);
  return base_ + rest;
}

// "target=source", or a bare name found in the section directory. Only the source is
// resolved and checked; the target is the name the record carries.
bool DescriptionBuilder::EnqueueCopyFile(const std::string& argument, Queue& queue) {
  const std::size_t equals = argument.find('=');
  const bool withEquals = equals != std::string::npos;
  std::string target = withEquals ? argument.substr(0, equals) : argument;
  std::string source;
  if (withEquals) {
    source = argument.substr(equals + 1);
    NormalizeWhitespace(source);
    source = RewriteSource(source);
  } else {
    source = sectionDirectory_;
    AddTrailingSlash(source);
    source += argument;
  }
  NormalizeWhitespace(target);
  NormalizeWhitespace(source);
  BackslashesToSlashes(source);
  if (source.empty()) return Fail("No source file");
  if (target.empty()) return Fail("No target file");
  if (FileExistsNoCase(source) == 0) {
    std::string fallback = sectionDirectory_ + "/" + source;
    if (!withEquals || FileExistsNoCase(fallback) == 0) return Fail("Bad file: " + source);
    source = std::move(fallback);
  }
  Keep(queue, target + "=" + source);
  return true;
}

bool DescriptionBuilder::FlushSection() {
  bool flushed = true;
  for (std::size_t i = 0; i < kCommandCount && flushed; ++i) {
    flushed = WriteQueue(kCommands[i], queues_[i]);
  }
  queues_.assign(kCommandCount, Queue());
  return flushed;
}

bool DescriptionBuilder::WriteQueue(const Command& command, const Queue& queue) {
  if (command.write == nullptr) return true;
  for (const std::string& entry : queue) {
    if (!(this->*command.write)(entry)) return false;
  }
  return true;
}

bool DescriptionBuilder::AddEntry(const Entry& e) {
  return package_.AddPackageEntry(e.targetName, e.sourcePath, out_, e.isDirectory,
                                  e.withSubdirectories, e.isRemoveDir, e.isTextDir, e.relativePath,
                                  e.excludeFiles, e.excludeDirs, e.perlEncode);
}

bool DescriptionBuilder::WriteRemoveDir(const std::string& name) {
  return AddEntry({.sourcePath = name, .isDirectory = true, .isRemoveDir = true});
}

bool DescriptionBuilder::WriteRemoveDirTree(const std::string& name) {
  return AddEntry(
      {.sourcePath = name, .isDirectory = true, .withSubdirectories = true, .isRemoveDir = true});
}

bool DescriptionBuilder::WriteRemoveFile(const std::string& name) {
  return writer_->WriteRemoveFile(name) || WriteFailed();
}

// copyfile entries are perl-encoded when the section says perlencode; copyperlfile
// entries always.
bool DescriptionBuilder::WriteCopyFile(const std::string& entry) { return AddFile(entry, perl_); }

bool DescriptionBuilder::WriteCopyPerlFile(const std::string& entry) {
  return AddFile(entry, true);
}

// `entry` is "target=source".
bool DescriptionBuilder::AddFile(const std::string& entry, bool perl) {
  const std::size_t equals = entry.find('=');
  return AddEntry({.targetName = entry.substr(0, equals),
                   .sourcePath = entry.substr(equals + 1),
                   .perlEncode = perl});
}

bool DescriptionBuilder::WriteCopyDir(const std::string& directory) {
  return CaptureDirectory(directory, false);
}

bool DescriptionBuilder::WriteCopyDirTree(const std::string& directory) {
  return CaptureDirectory(directory, true);
}

// The excludedir patterns count only where there are subdirectories to skip.
bool DescriptionBuilder::CaptureDirectory(const std::string& directory, bool withSubdirectories) {
  return AddEntry({.sourcePath = directory,
                   .isDirectory = true,
                   .withSubdirectories = withSubdirectories,
                   .relativePath = sectionName_,
                   .excludeFiles = &QueueOf("excludefile"),
                   .excludeDirs = withSubdirectories ? &QueueOf("excludedir") : nullptr,
                   .perlEncode = perl_});
}

bool DescriptionBuilder::WriteExec(const std::string& name) {
  return writer_->WriteExec(name) || WriteFailed();
}

bool DescriptionBuilder::WriteTextFile(const std::string& name) {
  return writer_->WriteTextFile(name) || WriteFailed();
}

bool DescriptionBuilder::WriteTextDir(const std::string& name) {
  return AddEntry({.sourcePath = name, .isDirectory = true, .isTextDir = true});
}

}  // namespace tk
