// Directory tests, walks, removal and creation of the file-system utilities.
#include "support/directories.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "support/strings.h"

namespace tk {

namespace {

// Directory paths are taken into a buffer of this size, so at most 2047 characters
// of a longer path are used.
constexpr size_t kPathBufferSize = 2048;
constexpr mode_t kDirectoryMode = 0777;

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

// `path` cut to the buffer size, nothing else done to it.
std::string BoundedPath(const char* path) {
  return std::string(path, strnlen(path, kPathBufferSize - 1));
}

// The form in which a walk opens a directory: bounded, one trailing "/" removed,
// "" meaning the current directory.
std::string WalkPath(const char* path) {
  std::string p = BoundedPath(path);
  if (!p.empty() && p.back() == '/') p.pop_back();
  return p.empty() ? std::string(".") : p;
}

UniqueDir OpenDir(const std::string& path) { return UniqueDir(opendir(path.c_str())); }

// An entry is a directory exactly when it can be opened as one.
bool OpensAsDirectory(const std::string& path) { return OpenDir(path) != nullptr; }

bool IsHidden(const char* name) { return name[0] == '.'; }

// Null, "" and "*" match every name; anything else is a prefix.
bool MatchesPrefix(const char* name, const char* pattern) {
  if (pattern == nullptr || *pattern == '\0' || std::strcmp(pattern, "*") == 0) return true;
  return std::strncmp(name, pattern, std::strlen(pattern)) == 0;
}

// `directory` + "/" (unless it already ends with one) + `name`.
std::string JoinPath(const std::string& directory, const char* name) {
  std::string full = directory;
  if (full.empty() || full.back() != '/') full += '/';
  return full + name;
}

// Appends the matching non-hidden entries of `directory` whose directory-ness is
// `wantDirectories`. A null directory gives 0, anything else 1.
int ListEntries(const char* directory, const char* pattern, bool wantDirectories,
                std::vector<std::string>& list) {
  if (directory == nullptr) return 0;
  const std::string dir = WalkPath(directory);
  UniqueDir d = OpenDir(dir);
  if (d == nullptr) return 1;
  while (const dirent* entry = readdir(d.get())) {
    if (IsHidden(entry->d_name) || !MatchesPrefix(entry->d_name, pattern)) continue;
    if (OpensAsDirectory(JoinPath(dir, entry->d_name)) == wantDirectories) {
      list.emplace_back(entry->d_name);
    }
  }
  return 1;
}

// What one RemoveDirectory call removes: for each kind, whether at all and which
// names (null = all).
struct RemovalFilter {
  bool files = true;
  bool directories = true;
  const char* filePattern = nullptr;
  const char* dirPattern = nullptr;
};

// Null or "*" = all of that kind, "" = none of that kind, else a prefix.
void ApplyPattern(const char* pattern, bool& wanted, const char*& prefix) {
  wanted = pattern == nullptr || *pattern != '\0';
  prefix = (pattern == nullptr || std::strcmp(pattern, "*") == 0) ? nullptr : pattern;
}

RemovalFilter MakeRemovalFilter(bool removeItself, const char* filePattern,
                                const char* dirPattern) {
  RemovalFilter filter;
  if (removeItself) return filter;
  ApplyPattern(filePattern, filter.files, filter.filePattern);
  ApplyPattern(dirPattern, filter.directories, filter.dirPattern);
  return filter;
}

bool IsSymbolicLink(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

// Removes one entry of a walk; false when it should have gone and could not.
bool RemoveEntry(const std::string& dir, const char* name, const RemovalFilter& filter) {
  const std::string full = JoinPath(dir, name);
  // A link is removed as a link: following one to a directory would empty a tree
  // that lies outside the one being removed.
  if (!IsSymbolicLink(full) && OpensAsDirectory(full)) {
    // Hidden subdirectories are never entered, so a tree holding one stays and the
    // result is 0 (DirectoriesTest.RemoveDirectoryNeverEntersHiddenDirectories).
    if (!filter.directories || IsHidden(name)) return true;
    if (!MatchesPrefix(name, filter.dirPattern)) return true;
    return RemoveDirectory(full.c_str(), true, "*", "*") == 1;
  }
  if (!filter.files || !MatchesPrefix(name, filter.filePattern)) return true;
  return unlink(full.c_str()) == 0;
}

// True when `path` exists in any form. Components on the way of CreateDirectoryPath
// are only tested for existence, so a file in the way shows at the next mkdir.
bool PathExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

// Appends `component` to `built` and creates it when missing; false on a failed mkdir.
bool AddComponent(std::string& built, const std::string& component) {
  built += component;
  if (!PathExists(built) && mkdir(built.c_str(), kDirectoryMode) != 0) return false;
  AddTrailingSlash(built);
  return true;
}

}  // namespace

int DirectoryExists(const char* path) {
  if (path == nullptr) return 0;
  std::string p = BoundedPath(path);
  if (!p.empty() && p.back() == '/') p.pop_back();
  if (!p.empty() && p.back() == '\\') p.pop_back();
  // Nothing left means "/" (or ""), which is reported as no directory
  // (DirectoriesTest.ExistenceAndEmptiness).
  if (p.empty()) return 0;
  return OpensAsDirectory(p) ? 1 : 0;
}

int FileExistsNoCase(std::string& path) {
  size_t cut = path.rfind('/');
  if (cut == std::string::npos) cut = path.rfind('\\');
  const std::string dirPart = cut == std::string::npos ? "." : path.substr(0, cut);
  std::string wanted = cut == std::string::npos ? path : path.substr(cut + 1);
  StrToLower(wanted);
  UniqueDir d = OpenDir(BoundedPath(dirPart.c_str()));
  if (d == nullptr) return 0;
  while (const dirent* entry = readdir(d.get())) {
    if (IsHidden(entry->d_name)) continue;
    std::string name = entry->d_name;
    StrToLower(name);
    if (name != wanted) continue;
    std::string prefix = dirPart;
    AddTrailingSlash(prefix);
    if (OpensAsDirectory(prefix + entry->d_name)) continue;
    path = dirPart + "/" + entry->d_name;
    return 1;
  }
  return 0;
}

int DirectoryIsEmpty(const char* path) {
  if (path == nullptr) return 1;
  UniqueDir d = OpenDir(WalkPath(path));
  if (d == nullptr) return 1;
  while (const dirent* entry = readdir(d.get())) {
    if (!IsHidden(entry->d_name)) return 0;
  }
  return 1;
}

void DeleteFilesByPrefix(const char* directory, const char* pattern) {
  if (directory == nullptr) return;
  UniqueDir d = OpenDir(WalkPath(directory));
  if (d == nullptr) return;
  while (const dirent* entry = readdir(d.get())) {
    if (!MatchesPrefix(entry->d_name, pattern)) continue;
    unlink((std::string(directory) + entry->d_name).c_str());
  }
}

int RemoveDirectory(const char* path, bool removeItself, const char* filePattern,
                    const char* dirPattern) {
  if (path == nullptr || !DirectoryExists(path)) return 1;
  const RemovalFilter filter = MakeRemovalFilter(removeItself, filePattern, dirPattern);
  const std::string dir = WalkPath(path);
  bool ok = true;
  {
    UniqueDir d = OpenDir(dir);
    if (d == nullptr) return 0;
    while (const dirent* entry = readdir(d.get())) {
      if (!RemoveEntry(dir, entry->d_name, filter)) ok = false;
    }
  }
  if (removeItself && rmdir(dir.c_str()) != 0) ok = false;
  return ok ? 1 : 0;
}

int CreateDirectoryPath(const char* path, bool singleLevel) {
  if (path == nullptr) return 0;
  if (DirectoryExists(path)) return 1;
  if (singleLevel) return mkdir(path, kDirectoryMode) == 0 ? 1 : 0;
  std::string rest = path;
  NormalizeWhitespace(rest);
  std::replace(rest.begin(), rest.end(), '\\', '/');
  std::string built;
  if (!rest.empty() && rest.front() == '/') {
    built = "/";
    rest.erase(0, 1);
  }
  if (rest.empty()) return 1;
  size_t start = 0;
  for (size_t slash; (slash = rest.find('/', start)) != std::string::npos; start = slash + 1) {
    if (!AddComponent(built, rest.substr(start, slash - start))) return 0;
  }
  if (start < rest.size() && !AddComponent(built, rest.substr(start))) return 0;
  return 1;
}

int ListFiles(const char* directory, const char* pattern, std::vector<std::string>& list) {
  return ListEntries(directory, pattern, false, list);
}

int ListDirectories(const char* directory, const char* pattern, std::vector<std::string>& list) {
  return ListEntries(directory, pattern, true, list);
}

std::string FindFileByPrefix(const char* directory, const char* pattern) {
  if (directory == nullptr) return "";
  UniqueDir d = OpenDir(WalkPath(directory));
  if (d == nullptr) return "";
  while (const dirent* entry = readdir(d.get())) {
    if (MatchesPrefix(entry->d_name, pattern)) return directory + std::string(entry->d_name);
  }
  return "";
}

}  // namespace tk
