#include "tkpack/install_guard.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "package/name_pattern.h"
#include "support/files.h"
#include "tkpack/beneath.h"
#include "tkpack/beneath_tree.h"

namespace tk {

namespace {

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};

std::string Join(const std::string& directory, const std::string& name) {
  return directory.empty() ? name : directory + "/" + name;
}

// The first prefix of `relative` that cannot be opened below `root` because it would
// leave it, with where that link points: "Bin -> /etc". "" when there is none.
std::string EscapingLink(int root, const std::string& relative) {
  std::string prefix;
  std::size_t start = 0;
  while (start <= relative.size()) {
    std::size_t end = relative.find('/', start);
    if (end == std::string::npos) end = relative.size();
    prefix = relative.substr(0, end);
    UniqueDescriptor fd(OpenBeneath(root, prefix, O_PATH));
    if (fd.get() < 0 && LeftBeneath(errno)) {
      char target[4096];
      const ssize_t length = readlinkat(root, prefix.c_str(), target, sizeof target - 1);
      return prefix + " -> " + (length > 0 ? std::string(target, length) : std::string("?"));
    }
    if (fd.get() < 0) return "";  // missing from here on: nothing to pass through
    start = end + 1;
  }
  return "";
}

class HazardFinder {
 public:
  explicit HazardFinder(int root) : root_(root) {}

  void Check(const PackageRecord& record, std::vector<Problem>& problems) {
    problems_ = &problems;
    record_ = &record;
    const std::string inDirectory = Join(record.directory, record.name);
    switch (record.kind) {
      case RecordKind::kDir:
      case RecordKind::kRmDir:
        CheckPath(record.name);
        break;
      case RecordKind::kTextDir:
        if (CheckPath(record.name)) CheckFilesOf(record.name);
        break;
      case RecordKind::kFile:
      case RecordKind::kExec:
      case RecordKind::kTextFile:
        if (CheckPath(inDirectory)) CheckLinkCount(inDirectory);
        break;
      case RecordKind::kRemoveFile:
        CheckPath(IsWildcardPattern(record.name) ? record.directory : Parent(inDirectory));
        break;
      case RecordKind::kOther:
        break;
    }
  }

 private:
  static std::string Parent(const std::string& relative) {
    std::string directory, last;
    SplitLast(relative, directory, last);
    return directory;
  }

  void Add(const std::string& what) { problems_->push_back(RecordProblem(*record_, what)); }

  // False (and a hazard) when `relative` runs through a link that leads outside.
  bool CheckPath(const std::string& relative) {
    const std::string link = EscapingLink(root_, relative);
    if (link.empty()) return true;
    Add("runs through the symbolic link " + link + ", which leads outside the destination");
    return false;
  }

  void CheckLinkCount(const std::string& relative) {
    UniqueDescriptor fd(OpenBeneath(root_, relative, O_PATH));
    struct stat info {};
    if (fd.get() < 0 || fstat(fd.get(), &info) != 0) return;
    if (S_ISREG(info.st_mode) && info.st_nlink > 1) {
      Add(relative + " has " + std::to_string(info.st_nlink) +
          " hard links, and changing it would change them all");
    }
  }

  // The files that [TextDir] would rewrite.
  void CheckFilesOf(const std::string& relative) {
    const int fd = OpenBeneath(root_, relative, O_RDONLY | O_DIRECTORY);
    if (fd < 0) return;
    std::unique_ptr<DIR, DirCloser> dir(fdopendir(fd));
    if (dir == nullptr) {
      close(fd);
      return;
    }
    while (const dirent* entry = readdir(dir.get())) {
      if (entry->d_name[0] == '.') continue;
      const std::string file = Join(relative, entry->d_name);
      if (CheckPath(file)) CheckLinkCount(file);
    }
  }

  int root_;
  std::vector<Problem>* problems_ = nullptr;
  const PackageRecord* record_ = nullptr;
};

}  // namespace

VerifyReport FindInstallHazards(PackageRecordReader& reader, const std::string& destination) {
  UniqueDescriptor root(open(destination.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (root.get() < 0) return VerifyRecordStream(reader);
  HazardFinder finder(root.get());
  return VerifyRecordStream(reader,
                            [&](const PackageRecord& record, std::vector<Problem>& problems) {
                              finder.Check(record, problems);
                            });
}

bool InstallChecked(FILE* stream, const std::string& packagePath, const std::string& destination,
                    bool verbose, TkPackage& package, VerifyReport& hazards) {
  PackageRecordReader reader(stream);
  hazards = FindInstallHazards(reader, destination);
  if (!hazards.problems.empty()) return false;
  std::rewind(stream);
  BeneathInstallTree tree(destination);
  return package.InstallStream(stream, packagePath.c_str(), destination.c_str(), verbose ? 1 : 0,
                               tree);
}

}  // namespace tk
