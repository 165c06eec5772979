#include "package/description_builder.h"

#include <utility>

#include "package/package.h"
#include "support/directories.h"
#include "support/strings.h"

namespace tk {

namespace {

const std::string kWriteFailed = "Cannot write package file";

bool IsComment(const std::string& line) {
  return line.starts_with("\\\\") || line.starts_with("//") || line.starts_with(";");
}

}  // namespace

DescriptionBuilder::DescriptionBuilder(TkPackage& package, std::string& error,
                                       std::string baseDirectory, FILE* out)
    : package_(package), error_(error), base_(std::move(baseDirectory)), out_(out) {
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
      return out_ == nullptr || writer_->WriteLine(line) || Fail(kWriteFailed);
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
  return out_ == nullptr || writer_->WriteLine(line) || Fail(kWriteFailed);
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
  return out_ == nullptr || writer_->WriteDir(sectionName_) || Fail(kWriteFailed);
}

// "word: argument" when the word is a command; anything else copies the file it names.
bool DescriptionBuilder::ProcessCommandLine(const std::string& line) {
  struct Entry {
    const char* word;
    Command command;
  };
  static constexpr Entry kCommands[] = {
      {"copyfile", Command::kCopyFile},         {"copyperlfile", Command::kCopyPerlFile},
      {"perlencode", Command::kPerlEncode},     {"copydir", Command::kCopyDir},
      {"copydirsub", Command::kCopyDirSub},     {"removedir", Command::kRemoveDir},
      {"removedirsub", Command::kRemoveDirSub}, {"excludefile", Command::kExcludeFile},
      {"excludedir", Command::kExcludeDir},     {"exec", Command::kExec},
      {"removefile", Command::kRemoveFile},     {"textfile", Command::kTextFile},
      {"textdir", Command::kTextDir},
  };
  const std::size_t colon = line.find(':');
  if (colon != std::string::npos) {
    std::string word = line.substr(0, colon);
    NormalizeWhitespace(word);
    StrToLower(word);
    for (const Entry& entry : kCommands) {
      if (word != entry.word) continue;
      std::string argument = line.substr(colon + 1);
      NormalizeWhitespace(argument);
      return RunCommand(entry.command, argument);
    }
  }
  return QueueCopyFile(line, false);
}

bool DescriptionBuilder::RunCommand(Command command, const std::string& argument) {
  switch (command) {
    case Command::kCopyFile:
      return QueueCopyFile(argument, false);
    case Command::kCopyPerlFile:
      return QueueCopyFile(argument, true);
    case Command::kPerlEncode:
      perl_ = true;
      return true;
    case Command::kCopyDir:
      return QueueDirectory(argument, queues_.copyDir);
    case Command::kCopyDirSub:
      return QueueDirectory(argument, queues_.copyDirTree);
    case Command::kRemoveDir:
      Queue(queues_.removeDir, sectionName_);
      return true;
    case Command::kRemoveDirSub:
      Queue(queues_.removeDirTree, sectionName_);
      return true;
    case Command::kTextDir:
      Queue(queues_.textDir, sectionName_);
      return true;
    case Command::kExcludeFile:
      QueueArgument(argument, queues_.excludeFile);
      return true;
    case Command::kExcludeDir:
      QueueArgument(argument, queues_.excludeDir);
      return true;
    case Command::kExec:
      QueueArgument(argument, queues_.exec);
      return true;
    case Command::kRemoveFile:
      QueueArgument(argument, queues_.removeFile);
      return true;
    case Command::kTextFile:
      QueueArgument(argument, queues_.textFile);
      return true;
  }
  return true;
}

// Validation runs every check but keeps nothing.
void DescriptionBuilder::Queue(std::vector<std::string>& queue, std::string entry) {
  if (out_ != nullptr) queue.push_back(std::move(entry));
}

void DescriptionBuilder::QueueArgument(const std::string& argument,
                                       std::vector<std::string>& queue) {
  if (!argument.empty()) Queue(queue, argument);
}

bool DescriptionBuilder::QueueDirectory(const std::string& argument,
                                        std::vector<std::string>& queue) {
  std::string path = argument.empty() ? sectionDirectory_ : argument;
  BackslashesToSlashes(path);
  RemoveTrailingSlash(path);
  if (path.find("..") != std::string::npos || DirectoryExists(path.c_str()) == 0) {
    return Fail("Bad directory: " + path);
  }
  Queue(queue, std::move(path));
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
bool DescriptionBuilder::QueueCopyFile(const std::string& argument, bool perl) {
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
  Queue(perl ? queues_.copyPerlFile : queues_.copyFile, target + "=" + source);
  return true;
}

bool DescriptionBuilder::FlushSection() {
  const Queues& q = queues_;
  const bool flushed =
      FlushRemoveDirs(q.removeDir, false) && FlushRemoveDirs(q.removeDirTree, true) &&
      FlushActions(q.removeFile, &PackageRecordWriter::WriteRemoveFile) &&
      FlushCopyFiles(q.copyFile, perl_) && FlushCopyFiles(q.copyPerlFile, true) &&
      FlushCopyDirs(q.copyDir, false) && FlushCopyDirs(q.copyDirTree, true) &&
      FlushActions(q.exec, &PackageRecordWriter::WriteExec) &&
      FlushActions(q.textFile, &PackageRecordWriter::WriteTextFile) && FlushTextDirs(q.textDir);
  queues_ = Queues();
  return flushed;
}

bool DescriptionBuilder::FlushRemoveDirs(const std::vector<std::string>& queue,
                                         bool withSubdirectories) {
  for (const std::string& name : queue) {
    if (!package_.AddPackageEntry("", name, out_, true, withSubdirectories, true, false, "",
                                  nullptr, nullptr, false)) {
      return false;
    }
  }
  return true;
}

bool DescriptionBuilder::FlushActions(const std::vector<std::string>& queue,
                                      bool (PackageRecordWriter::*write)(const std::string&)) {
  for (const std::string& name : queue) {
    if (!(writer_.get()->*write)(name)) return Fail(kWriteFailed);
  }
  return true;
}

bool DescriptionBuilder::FlushCopyFiles(const std::vector<std::string>& queue, bool perl) {
  for (const std::string& entry : queue) {
    const std::size_t equals = entry.find('=');
    if (!package_.AddPackageEntry(entry.substr(0, equals), entry.substr(equals + 1), out_, false,
                                  false, false, false, "", nullptr, nullptr, perl)) {
      return false;
    }
  }
  return true;
}

bool DescriptionBuilder::FlushCopyDirs(const std::vector<std::string>& queue,
                                       bool withSubdirectories) {
  const std::vector<std::string>* excludeDirs = withSubdirectories ? &queues_.excludeDir : nullptr;
  for (const std::string& directory : queue) {
    if (!package_.AddPackageEntry("", directory, out_, true, withSubdirectories, false, false,
                                  sectionName_, &queues_.excludeFile, excludeDirs, perl_)) {
      return false;
    }
  }
  return true;
}

bool DescriptionBuilder::FlushTextDirs(const std::vector<std::string>& queue) {
  for (const std::string& name : queue) {
    if (!package_.AddPackageEntry("", name, out_, true, false, false, true, "", nullptr, nullptr,
                                  false)) {
      return false;
    }
  }
  return true;
}

}  // namespace tk
