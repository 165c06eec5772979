#include "tkpack/tree_model.h"

#include <vector>

#include "package/name_pattern.h"
#include "tkpack/record_report.h"

namespace tk {

namespace {

std::string Join(const std::string& directory, const std::string& name) {
  return TreeModel::Normalize(directory.empty() ? name : directory + "/" + name);
}

// The directory that holds `path` ("" for a top-level one) and its last component.
std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash);
}

std::string LastOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// True when `path` lies below `directory` ("" holds everything).
bool IsBelow(const std::string& path, const std::string& directory) {
  if (directory.empty()) return !path.empty();
  return path.size() > directory.size() && path.starts_with(directory) &&
         path[directory.size()] == '/';
}

// Where the paths below `directory` begin in a sorted set: they all begin with it.
std::string PrefixOf(const std::string& directory) {
  return directory.empty() ? "" : directory + "/";
}

// The first component of `path` below `directory`, which `path` lies below.
std::string FirstBelow(const std::string& path, const std::string& directory) {
  const std::string rest = directory.empty() ? path : path.substr(directory.size() + 1);
  return rest.substr(0, rest.find('/'));
}

}  // namespace

std::string TreeModel::Normalize(const std::string& path) {
  std::string clean;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    const std::string part = path.substr(start, end - start);
    if (!part.empty() && part != ".") clean += (clean.empty() ? "" : "/") + part;
    start = end + 1;
  }
  return clean;
}

bool TreeModel::Replay(PackageRecordReader& reader, std::string& error) {
  std::vector<Problem> problems;
  if (!reader.ReadMagic()) problems.push_back(BadMagicProblem());
  PackageRecord record;
  for (PackageRecordReader::Status status;
       problems.empty() && (status = reader.Next(record)) != PackageRecordReader::Status::kEnd;) {
    if (status == PackageRecordReader::Status::kMalformed) {
      problems.push_back(MalformedRecordProblem(record));
    } else {
      FindRecordProblems(record, problems);
      if (problems.empty()) Apply(record);
    }
  }
  if (problems.empty()) return true;
  error = problems.front().Text();
  return false;
}

void TreeModel::Apply(const PackageRecord& record) {
  const std::string name = Normalize(record.name);
  const std::string inCurrent = Join(current_, record.name);
  switch (record.kind) {
    case RecordKind::kDir:
      MakeDirectory(name);
      current_ = name;
      break;
    case RecordKind::kFile:
      WriteFile(inCurrent, record);
      break;
    case RecordKind::kRmDir:
      RemoveDirectoryContents(name, record.withSubdirs);
      break;
    case RecordKind::kRemoveFile:
      if (IsWildcardPattern(record.name)) {
        RemoveFiles(record.name);
      } else if (files_.contains(inCurrent) || !directories_.contains(inCurrent)) {
        Remove(inCurrent);  // unlink takes a file (or whatever else), never a directory
      }
      break;
    case RecordKind::kExec:
      if (auto file = files_.find(inCurrent); file != files_.end()) file->second.executable = true;
      break;
    case RecordKind::kTextFile:
      if (auto file = files_.find(inCurrent); file != files_.end()) ++file->second.conversions;
      break;
    case RecordKind::kTextDir:
      ForFilesIn(name, [](const std::string&, ModelFile& file) { ++file.conversions; });
      break;
    case RecordKind::kOther:
      break;
  }
}

// The directory and each missing component on the way to it.
void TreeModel::MakeDirectory(const std::string& path) {
  for (std::string at = path; !at.empty(); at = ParentOf(at)) {
    directories_.insert(at);
    removed_.erase(at);
  }
}

// Opened with O_TRUNC: an existing file keeps its mode, so an executable stays one.
void TreeModel::WriteFile(const std::string& path, const PackageRecord& record) {
  ModelFile& file = files_[path];
  file.contentOffset = record.contentOffset;
  file.size = record.available;
  file.conversions = 0;
  removed_.erase(path);
}

// Every file directly in the directory, hidden ones included; with subdirectories every
// subdirectory tree whose name does not begin with ".", which the removal never enters.
void TreeModel::RemoveDirectoryContents(const std::string& path, bool withSubdirectories) {
  if (!directories_.contains(path) && !path.empty()) return;
  std::vector<std::string> gone;
  for (auto it = files_.lower_bound(PrefixOf(path)); it != files_.end(); ++it) {
    if (!IsBelow(it->first, path)) break;
    const bool direct = ParentOf(it->first) == path;
    if (direct || (withSubdirectories && FirstBelow(it->first, path)[0] != '.')) {
      gone.push_back(it->first);
    }
  }
  for (auto it = directories_.lower_bound(PrefixOf(path));
       withSubdirectories && it != directories_.end() && IsBelow(*it, path); ++it) {
    if (FirstBelow(*it, path)[0] != '.') gone.push_back(*it);
  }
  for (const std::string& entry : gone) Remove(entry);
}

// The files of the current directory whose names match, as the installer lists them:
// names beginning with "." are never listed.
void TreeModel::RemoveFiles(const std::string& pattern) {
  std::vector<std::string> gone;
  ForFilesIn(current_, [&](const std::string& path, ModelFile&) {
    if (MatchesNamePattern(pattern, LastOf(path))) gone.push_back(path);
  });
  for (const std::string& path : gone) Remove(path);
}

void TreeModel::Remove(const std::string& path) {
  files_.erase(path);
  directories_.erase(path);
  removed_.insert(path);
}

// `change` for each file directly in `directory` whose name does not begin with ".".
template <typename Change>
void TreeModel::ForFilesIn(const std::string& directory, Change change) {
  for (auto it = files_.lower_bound(PrefixOf(directory));
       it != files_.end() && IsBelow(it->first, directory); ++it) {
    if (ParentOf(it->first) == directory && LastOf(it->first)[0] != '.') {
      change(it->first, it->second);
    }
  }
}

}  // namespace tk
