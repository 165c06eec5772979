#include "package/record_applier.h"

#include <vector>

#include "package/name_pattern.h"
#include "support/copies.h"
#include "support/files.h"
#include "support/strings.h"

namespace tk {

RecordApplier::RecordApplier(InstallTree& tree, std::string& error, std::string destination,
                             FILE* stream, bool verbose)
    : tree_(tree),
      error_(error),
      destination_(std::move(destination)),
      stream_(stream),
      verbose_(verbose) {}

bool RecordApplier::Fail(std::string message) {
  error_ = std::move(message);
  return false;
}

bool RecordApplier::Apply(const PackageRecord& record) {
  switch (record.kind) {
    case RecordKind::kDir:
      return ApplyDir(record);
    case RecordKind::kFile:
      return ApplyFile(record);
    case RecordKind::kRmDir:
      return ApplyRmDir(record);
    case RecordKind::kRemoveFile:
      return ApplyRemoveFile(record);
    case RecordKind::kExec:
      return ApplyExec(record);
    case RecordKind::kTextFile:
      return ApplyTextFile(record);
    case RecordKind::kTextDir:
      return ApplyTextDir(record);
    case RecordKind::kOther:
      break;
  }
  return true;
}

// Destination + "/" + name, without a trailing slash: the paths of [RmDir] and [TextDir].
std::string RecordApplier::BelowDestination(const std::string& name) const {
  std::string path = destination_;
  AddTrailingSlash(path);
  path += name;
  RemoveTrailingSlash(path);
  return path;
}

bool RecordApplier::CreateDirectory(const std::string& path, bool singleLevel) {
  if (tree_.MakeDirectory(path, singleLevel)) return true;
  return Fail("cannot create directory: " + path);
}

// The destination (with its missing parents), then each component of the name in turn
// below it, one level at a time, so that the path of a failure names the component that
// could not be made (a file in the way included).
bool RecordApplier::ApplyDir(const PackageRecord& record) {
  const std::string& name = record.name;
  if (verbose_) {
    std::printf("\nDirectory %s", name.c_str());
    std::fflush(stdout);
  }
  std::string path = destination_;
  RemoveTrailingSlash(path);
  if (!CreateDirectory(path, false)) return false;
  path += '/';
  std::size_t start = 0;
  while (start < name.size()) {
    std::size_t end = name.find('/', start);
    if (end == std::string::npos) end = name.size();
    path.append(name, start, end - start);
    if (!CreateDirectory(path, true)) return false;
    path += '/';
    start = end + 1;
  }
  current_ = destination_;
  AddTrailingSlash(current_);
  current_ += name;
  AddTrailingSlash(current_);
  return true;
}

// The reader has already moved past the content; it is copied from where it starts,
// straight between the descriptors: the stream's own position and buffer stay as the
// reader left them. A close that fails may have lost written bytes, so it fails too.
bool RecordApplier::ApplyFile(const PackageRecord& record) {
  const std::string path = current_ + record.name;
  UniqueDescriptor out(tree_.CreateFile(path));
  if (out.get() < 0) return Fail("Cannot create file " + path);
  const int copied =
      CopyDescriptorRange(fileno(stream_), record.contentOffset, out.get(), record.available);
  const bool closed = out.Close() == 0;
  if (copied == 0 || !closed) return Fail("Cannot create file " + path);
  return true;
}

bool RecordApplier::ApplyRmDir(const PackageRecord& record) {
  const std::string path = BelowDestination(record.name);
  if (tree_.RemoveContents(path, record.withSubdirs)) return true;
  return Fail("cannot remove directory: " + path);
}

// Never fails: a missing file or directory, or a failed deletion, is ignored. An empty
// name deletes nothing; a name that is a directory is not unlinked.
bool RecordApplier::ApplyRemoveFile(const PackageRecord& record) {
  const std::string& pattern = record.name;
  if (pattern.empty()) return true;
  if (!IsWildcardPattern(pattern)) {
    tree_.RemoveFile(current_ + pattern);
    return true;
  }
  std::string directory = current_;
  RemoveTrailingSlash(directory);
  std::vector<std::string> names;
  tree_.ListFiles(directory, names);
  for (const std::string& name : names) {
    if (MatchesNamePattern(pattern, name)) tree_.RemoveFile(current_ + name);
  }
  return true;
}

bool RecordApplier::ApplyExec(const PackageRecord& record) {
  const std::string path = current_ + record.name;
  if (tree_.MakeExecutable(path)) return true;
  return Fail("Cannot change file access rigths " + path);
}

bool RecordApplier::ApplyTextFile(const PackageRecord& record) {
  const std::string path = current_ + record.name;
  if (tree_.ConvertToText(path)) return true;
  return Fail("Cannot set text file " + path);
}

// Every file listed in the directory, whatever it holds; subdirectories are left alone.
bool RecordApplier::ApplyTextDir(const PackageRecord& record) {
  const std::string directory = BelowDestination(record.name);
  std::vector<std::string> names;
  if (!tree_.ListFiles(directory, names)) {
    return Fail("cannot list directory: " + directory);
  }
  for (const std::string& name : names) {
    const std::string path = directory + "/" + name;
    if (!tree_.ConvertToText(path)) return Fail("Cannot set text file " + path);
  }
  return true;
}

}  // namespace tk
