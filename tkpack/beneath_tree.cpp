#include "tkpack/beneath_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>

#include "package/temp_paths.h"
#include "support/copies.h"
#include "support/files.h"
#include "tkpack/beneath.h"

namespace tk {

namespace {

constexpr mode_t kDirectoryMode = 0777;

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

bool IsDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// An entry counts as a directory when it opens as one, as the plain listing decides.
bool OpensAsDirectory(int directory, const char* name) {
  UniqueDescriptor fd(openat(directory, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd.get() >= 0;
}

// Removes the entries of the open directory `fd` (owned): files and links always,
// subdirectories when `subdirectories` and their names do not begin with ".", each
// emptied and removed in turn. False when anything that should go stayed.
bool RemoveEntriesAt(int fd, bool subdirectories) {
  UniqueDir dir(fdopendir(fd));
  if (dir == nullptr) {
    close(fd);
    return false;
  }
  bool removed = true;
  while (const dirent* entry = readdir(dir.get())) {
    const char* name = entry->d_name;
    if (IsDotOrDotDot(name)) continue;
    struct stat info {};
    if (fstatat(fd, name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
      removed = false;
    } else if (!S_ISDIR(info.st_mode)) {
      if (unlinkat(fd, name, 0) != 0) removed = false;
    } else if (subdirectories && name[0] != '.') {
      const int sub = openat(fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      const bool emptied = sub >= 0 && RemoveEntriesAt(sub, true);
      if (!emptied || unlinkat(fd, name, AT_REMOVEDIR) != 0) removed = false;
    }
  }
  return removed;
}

// The rewrite of ConvertToText, on descriptors: `file` (read and written) through
// `temp` (empty, read and written). The file keeps its inode, hence its mode.
bool RewriteWithLineFeeds(int file, int temp) {
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[kTextLineBufferSize]);
  UniqueFile in(fdopen(dup(file), "r"));
  UniqueFile out(fdopen(dup(temp), "w"));
  if (buffer == nullptr || in == nullptr || out == nullptr) return false;
  if (!CopyTextLines(in.get(), out.get(), buffer.get()) || std::fclose(out.release()) != 0) {
    return false;
  }
  in.reset();
  const off_t size = lseek(temp, 0, SEEK_END);
  return size >= 0 && ftruncate(file, 0) == 0 && lseek(file, 0, SEEK_SET) == 0 &&
         CopyDescriptorRange(temp, 0, file, size) == 1;
}

}  // namespace

BeneathInstallTree::BeneathInstallTree(std::string destination)
    : destination_(std::move(destination)) {
  while (destination_.size() > 1 && destination_.back() == '/') destination_.pop_back();
}

BeneathInstallTree::~BeneathInstallTree() {
  if (root_ >= 0) close(root_);
}

// The part of `path` below the destination; false for a path that is not below it.
bool BeneathInstallTree::Relative(const std::string& path, std::string& relative) {
  if (path.compare(0, destination_.size(), destination_) != 0) return false;
  relative = path.substr(destination_.size());
  if (!relative.empty() && relative[0] != '/' && destination_ != "/") return false;
  relative.erase(0, relative.find_first_not_of('/'));
  if (relative.find_first_not_of('/') == std::string::npos) relative.clear();
  if (root_ < 0) root_ = open(destination_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  return root_ >= 0;
}

int BeneathInstallTree::Open(const std::string& path, int flags, mode_t mode) {
  std::string relative;
  if (!Relative(path, relative)) {
    errno = EXDEV;
    return -1;
  }
  return OpenBeneath(root_, relative, flags, mode);
}

// The directory holding `path`, opened below the destination, and the last component.
int BeneathInstallTree::OpenParent(const std::string& path, std::string& last) {
  std::string relative, directory;
  if (!Relative(path, relative)) return -1;
  SplitLast(relative, directory, last);
  if (last.empty() || last == "..") return -1;
  return OpenBeneath(root_, directory, O_PATH | O_DIRECTORY);
}

bool BeneathInstallTree::MakeOneDirectory(const std::string& relative) {
  if (UniqueDescriptor(OpenBeneath(root_, relative, O_PATH | O_DIRECTORY)).get() >= 0) return true;
  std::string directory, last;
  SplitLast(relative, directory, last);
  UniqueDescriptor parent(OpenBeneath(root_, directory, O_PATH | O_DIRECTORY));
  return parent.get() >= 0 && last != ".." &&
         mkdirat(parent.get(), last.c_str(), kDirectoryMode) == 0;
}

// One level, or every missing component in turn, as CreateDirectoryPath does; the
// destination itself counts as made.
bool BeneathInstallTree::MakeDirectory(const std::string& path, bool singleLevel) {
  std::string relative;
  if (!Relative(path, relative)) return false;
  if (relative.empty()) return true;
  if (singleLevel) return MakeOneDirectory(relative);
  for (std::size_t slash = relative.find('/'); slash != std::string::npos;
       slash = relative.find('/', slash + 1)) {
    if (slash > 0 && !MakeOneDirectory(relative.substr(0, slash))) return false;
  }
  return MakeOneDirectory(relative);
}

int BeneathInstallTree::CreateFile(const std::string& path) {
  return Open(path, O_WRONLY | O_CREAT | O_TRUNC, kNewFileMode);
}

// Not a directory, or none at all, is nothing to remove, as for the plain tree; a path
// that would leave the destination is a failure.
bool BeneathInstallTree::RemoveContents(const std::string& path, bool withSubdirectories) {
  const int fd = Open(path, O_RDONLY | O_DIRECTORY);
  if (fd < 0) return !LeftBeneath(errno);
  return RemoveEntriesAt(fd, withSubdirectories);
}

void BeneathInstallTree::RemoveFile(const std::string& path) {
  std::string last;
  UniqueDescriptor parent(OpenParent(path, last));
  if (parent.get() >= 0) unlinkat(parent.get(), last.c_str(), 0);
}

// A directory that cannot be opened lists nothing, as for the plain tree; one that
// would leave the destination is a failure.
bool BeneathInstallTree::ListFiles(const std::string& directory, std::vector<std::string>& names) {
  const int fd = Open(directory, O_RDONLY | O_DIRECTORY);
  if (fd < 0) return !LeftBeneath(errno);
  UniqueDir dir(fdopendir(fd));
  if (dir == nullptr) {
    close(fd);
    return true;
  }
  while (const dirent* entry = readdir(dir.get())) {
    if (entry->d_name[0] == '.' || OpensAsDirectory(fd, entry->d_name)) continue;
    names.emplace_back(entry->d_name);
  }
  return true;
}

// chmod through the descriptor's own entry in /proc follows nothing but that file.
bool BeneathInstallTree::MakeExecutable(const std::string& path) {
  UniqueDescriptor fd(Open(path, O_PATH));
  if (fd.get() < 0) return false;
  const std::string self = "/proc/self/fd/" + std::to_string(fd.get());
  if (chmod(self.c_str(), kExecMode) == 0) return true;
  UniqueDescriptor readable(Open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY));
  return readable.get() >= 0 && fchmod(readable.get(), kExecMode) == 0;
}

// The temporary file stands beside the file, under the engine's name for it, and is
// never a link.
bool BeneathInstallTree::ConvertToText(const std::string& path) {
  UniqueDescriptor file(Open(path, O_RDWR));
  std::string last;
  UniqueDescriptor parent(OpenParent(path, last));
  if (file.get() < 0 || parent.get() < 0) return false;
  const std::string tempName = SiblingTempPath(last);
  UniqueDescriptor temp(openat(parent.get(), tempName.c_str(),
                               O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kNewFileMode));
  if (temp.get() < 0) return false;
  const bool rewritten = RewriteWithLineFeeds(file.get(), temp.get());
  unlinkat(parent.get(), tempName.c_str(), 0);
  return rewritten;
}

}  // namespace tk
