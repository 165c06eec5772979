#include "tkpack/tree_compare.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "package/install_tree.h"
#include "support/copies.h"
#include "support/files.h"
#include "tkpack/beneath.h"

namespace tk {

namespace {

using Kind = TreeDifference::Kind;

// Contents are compared in blocks of this size.
constexpr std::size_t kCompareBlock = 65536;
// The mode [Exec] gives, and the execute bits.
constexpr unsigned kExecutableMode = 0755;
constexpr unsigned kExecuteBits = 0111;

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};

std::string Join(const std::string& directory, const std::string& name) {
  return directory.empty() ? name : directory + "/" + name;
}

std::string Octal(unsigned mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%o", mode & 07777);
  return text;
}

// Reads exactly `size` bytes at `offset`, going on after short reads.
bool ReadAt(int fd, char* bytes, std::size_t size, int64_t offset) {
  while (size > 0) {
    const ssize_t got = pread(fd, bytes, size, offset);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    bytes += got;
    size -= static_cast<std::size_t>(got);
    offset += got;
  }
  return true;
}

// Rewrites the file `from` with LF line ends into the file `to`, as SetTextFile does.
bool ConvertInto(const std::string& from, const std::string& to) {
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[kTextLineBufferSize]);
  UniqueFile in(OpenFile(from.c_str(), "r"));
  UniqueFile out(OpenFile(to.c_str(), "w"));
  if (buffer == nullptr || in == nullptr || out == nullptr) return false;
  return CopyTextLines(in.get(), out.get(), buffer.get()) && std::fclose(out.release()) == 0;
}

}  // namespace

const char* DifferenceTag(Kind kind) {
  switch (kind) {
    case Kind::kMissing:
      return "missing";
    case Kind::kNotDirectory:
      return "notdir";
    case Kind::kNotFile:
      return "notfile";
    case Kind::kSize:
      return "size";
    case Kind::kContent:
      return "content";
    case Kind::kMode:
      return "mode";
    case Kind::kRemoved:
      return "removed";
    case Kind::kOutside:
      return "outside";
    case Kind::kExtra:
      break;
  }
  return "extra";
}

std::string DifferenceLine(const TreeDifference& difference) {
  std::string line = DifferenceTag(difference.kind);
  line.resize(std::max<std::size_t>(line.size() + 1, 9), ' ');
  line += difference.path;
  if (!difference.detail.empty()) line += "  (" + difference.detail + ")";
  return line;
}

TreeComparer::TreeComparer(int root, FILE* stream, std::string scratch, ProgressDisplay* display)
    : root_(root), stream_(stream), scratch_(std::move(scratch)), display_(display) {}

std::vector<TreeDifference> TreeComparer::Compare(const TreeModel& model, bool extra) {
  total_ = 0;
  for (const auto& [path, file] : model.files()) total_ += file.size;
  std::vector<TreeDifference> differences;
  CompareDirectories(model, differences);
  CompareFiles(model, differences);
  CompareRemoved(model, differences);
  if (extra) {
    UniqueDescriptor top(OpenBeneath(root_, "", O_RDONLY | O_DIRECTORY));
    std::vector<TreeDifference> extras;
    if (top.get() >= 0) FindExtras(model, top.get(), "", extras);
    std::sort(extras.begin(), extras.end(),
              [](const TreeDifference& a, const TreeDifference& b) { return a.path < b.path; });
    differences.insert(differences.end(), extras.begin(), extras.end());
  }
  return differences;
}

void TreeComparer::CompareDirectories(const TreeModel& model, std::vector<TreeDifference>& out) {
  for (const std::string& path : model.directories()) {
    UniqueDescriptor fd(OpenBeneath(root_, path, O_PATH | O_DIRECTORY));
    if (fd.get() >= 0) continue;
    const int error = errno;
    const Kind kind = LeftBeneath(error) ? Kind::kOutside
                      : error == ENOTDIR ? Kind::kNotDirectory
                      : error == ENOENT  ? Kind::kMissing
                                         : Kind::kNotDirectory;
    out.push_back({kind, path + "/", kind == Kind::kNotDirectory ? std::strerror(error) : ""});
  }
}

void TreeComparer::CompareFiles(const TreeModel& model, std::vector<TreeDifference>& out) {
  for (const auto& [path, file] : model.files()) {
    std::string detail;
    unsigned mode = 0;
    switch (CompareFile(path, file, detail, mode)) {
      case FileMatch::kMissing:
        out.push_back({Kind::kMissing, path, ""});
        continue;
      case FileMatch::kNotFile:
        out.push_back({Kind::kNotFile, path, detail});
        continue;
      case FileMatch::kOutside:
        out.push_back({Kind::kOutside, path, ""});
        continue;
      case FileMatch::kSize:
        out.push_back({Kind::kSize, path, detail});
        break;
      case FileMatch::kContent:
        out.push_back({Kind::kContent, path, ""});
        break;
      case FileMatch::kSame:
        break;
    }
    if (file.executable ? (mode & 0777) != kExecutableMode : (mode & kExecuteBits) != 0) {
      out.push_back({Kind::kMode, path,
                     Octal(mode) + ", the package's " +
                         (file.executable ? Octal(kExecutableMode) : "without execute bits")});
    }
  }
}

void TreeComparer::CompareRemoved(const TreeModel& model, std::vector<TreeDifference>& out) {
  for (const std::string& path : model.removed()) {
    std::string directory, last;
    SplitLast(path, directory, last);
    UniqueDescriptor parent(OpenBeneath(root_, directory, O_PATH | O_DIRECTORY));
    struct stat info {};
    if (parent.get() >= 0 && fstatat(parent.get(), last.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
      out.push_back({Kind::kRemoved, S_ISDIR(info.st_mode) ? path + "/" : path, ""});
    }
  }
}

// Entries of the open directory `directory` (model path `path`) that the package does
// not know; a directory it does not know is one extra, not entered.
void TreeComparer::FindExtras(const TreeModel& model, int directory, const std::string& path,
                              std::vector<TreeDifference>& out) {
  std::unique_ptr<DIR, DirCloser> dir(fdopendir(dup(directory)));
  if (dir == nullptr) return;
  while (const dirent* entry = readdir(dir.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    const std::string child = Join(path, name);
    struct stat info {};
    if (fstatat(directory, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
    const bool isDirectory = S_ISDIR(info.st_mode);
    if (isDirectory && model.directories().contains(child)) {
      UniqueDescriptor sub(
          openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      if (sub.get() >= 0) FindExtras(model, sub.get(), child, out);
    } else if (!model.files().contains(child) && !model.directories().contains(child) &&
               !model.removed().contains(child)) {
      out.push_back({Kind::kExtra, isDirectory ? child + "/" : child, ""});
    }
  }
}

FileMatch TreeComparer::CompareFile(const std::string& path, const ModelFile& file,
                                    std::string& detail, unsigned& mode) {
  UniqueDescriptor actual(OpenBeneath(root_, path, O_RDONLY | O_NONBLOCK | O_NOCTTY));
  if (actual.get() < 0) {
    if (LeftBeneath(errno)) return FileMatch::kOutside;
    if (errno == ENOENT || errno == ENOTDIR) return FileMatch::kMissing;
    detail = std::strerror(errno);
    return FileMatch::kNotFile;
  }
  struct stat info {};
  if (fstat(actual.get(), &info) != 0 || !S_ISREG(info.st_mode)) return FileMatch::kNotFile;
  mode = info.st_mode & 07777;
  int64_t offset = file.contentOffset, size = file.size;
  int converted = -1;
  if (file.conversions > 0 && !Converted(file, converted, size)) {
    detail = "its converted content cannot be made";
    return FileMatch::kNotFile;
  }
  const UniqueDescriptor owner(converted);
  const int expected = converted >= 0 ? converted : fileno(stream_);
  if (converted >= 0) offset = 0;
  if (info.st_size != size) {
    detail = std::to_string(info.st_size) + " bytes, the package's " + std::to_string(size);
    done_ += file.size;
    return FileMatch::kSize;
  }
  return SameBytes(expected, offset, actual.get(), size) ? FileMatch::kSame : FileMatch::kContent;
}

// The content of `file` after its text conversions, in a scratch file: open for reading
// in `content`, `size` bytes long.
bool TreeComparer::Converted(const ModelFile& file, int& content, int64_t& size) {
  std::string from = scratch_ + "/text.0", to = scratch_ + "/text.1";
  {
    UniqueDescriptor first(open(from.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (first.get() < 0 ||
        CopyDescriptorRange(fileno(stream_), file.contentOffset, first.get(), file.size) == 0) {
      return false;
    }
  }
  for (int i = 0; i < file.conversions; ++i) {
    if (!ConvertInto(from, to)) return false;
    std::swap(from, to);
  }
  content = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  size = FileSize(from.c_str());
  return content >= 0;
}

bool TreeComparer::SameBytes(int expected, int64_t expectedOffset, int actual, int64_t size) {
  std::unique_ptr<char[]> mine(new char[kCompareBlock]), theirs(new char[kCompareBlock]);
  for (int64_t at = 0; at < size;) {
    const std::size_t chunk = static_cast<std::size_t>(std::min<int64_t>(size - at, kCompareBlock));
    if (!ReadAt(expected, mine.get(), chunk, expectedOffset + at) ||
        !ReadAt(actual, theirs.get(), chunk, at) ||
        std::memcmp(mine.get(), theirs.get(), chunk) != 0) {
      done_ += size - at;
      return false;
    }
    at += static_cast<int64_t>(chunk);
    done_ += static_cast<int64_t>(chunk);
    if (display_ != nullptr) display_->Update("comparing", done_, total_);
  }
  return true;
}

}  // namespace tk
