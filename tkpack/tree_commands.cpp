// tkpack diff and tkpack uninstall: a directory against what a package makes of it
// (tree_model.h, tree_compare.h).
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "support/files.h"
#include "tkpack/beneath.h"
#include "tkpack/commands.h"
#include "tkpack/file_watcher.h"
#include "tkpack/json_report.h"
#include "tkpack/opened_package.h"
#include "tkpack/tool.h"
#include "tkpack/tree_compare.h"
#include "tkpack/tree_model.h"

namespace tk {

namespace {

constexpr const char* kQuietOption = "--quiet";
constexpr const char* kExtraOption = "--extra";
constexpr const char* kForceOption = "--force";
constexpr const char* kDryRunOption = "--dry-run";

// The package decoded and followed, and the directory opened: what both commands start
// from.
struct Replayed {
  OpenedPackage opened;
  TreeModel model;
  int root = -1;

  ~Replayed() {
    if (root >= 0) close(root);
  }

  // False with `error` saying what failed.
  bool Open(const std::string& packagePath, const std::string& directory, ProgressDisplay& display,
            std::string& error) {
    {
      FileProgressWatcher watcher(display,
                                  {{"decoding", packagePath, WatchedFile::Access::kReading}});
      if (!opened.Open(packagePath, error)) return false;
    }
    PackageRecordReader reader(opened.stream());
    if (!model.Replay(reader, error)) {
      error = packagePath + ": cannot follow its records: " + error;
      return false;
    }
    root = open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (root < 0) error = "cannot open directory " + directory + ": " + std::strerror(errno);
    return root >= 0;
  }
};

// Takes `path` (a file, or with `directory` an empty directory) out of the tree below
// `root`, never through a link that leads outside. "" on success, else why not.
std::string RemoveBeneath(int root, const std::string& path, bool directory) {
  std::string parentPath, last;
  SplitLast(path, parentPath, last);
  UniqueDescriptor parent(OpenBeneath(root, parentPath, O_PATH | O_DIRECTORY));
  if (parent.get() < 0 || unlinkat(parent.get(), last.c_str(), directory ? AT_REMOVEDIR : 0) != 0) {
    return std::strerror(errno);
  }
  return "";
}

// True when every entry of the directory at `path` is in `gone`.
bool HoldsOnly(int root, const std::string& path, const std::set<std::string>& gone) {
  const int fd = OpenBeneath(root, path, O_RDONLY | O_DIRECTORY);
  if (fd < 0) return false;
  DIR* dir = fdopendir(fd);
  if (dir == nullptr) {
    close(fd);
    return false;
  }
  bool only = true;
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != ".." && !gone.contains(path + "/" + name)) only = false;
  }
  closedir(dir);
  return only;
}

class Uninstaller {
 public:
  Uninstaller(const Replayed& replayed, TreeComparer& comparer, const CommandLine& line)
      : replayed_(replayed),
        comparer_(comparer),
        force_(line.Has(kForceOption)),
        dryRun_(line.Has(kDryRunOption)) {}

  // What was done, a line each, for after the progress display is gone.
  const std::vector<std::string>& lines() const { return lines_; }

  // Files first, then the directories that are left empty, deepest first. The count of
  // files kept.
  int Run() {
    for (const auto& [path, file] : replayed_.model.files()) TakeFile(path, file);
    const std::set<std::string>& directories = replayed_.model.directories();
    for (auto it = directories.rbegin(); it != directories.rend(); ++it) TakeDirectory(*it);
    return kept_;
  }

 private:
  void TakeFile(const std::string& path, const ModelFile& file) {
    std::string detail;
    unsigned mode = 0;
    switch (comparer_.CompareFile(path, file, detail, mode)) {
      case FileMatch::kMissing:
        return;
      case FileMatch::kOutside:
        return Keep(path, "a symbolic link on its way leads outside the directory");
      case FileMatch::kNotFile:
        return Keep(path, detail.empty() ? "not a regular file" : detail);
      case FileMatch::kSize:
      case FileMatch::kContent:
        if (!force_) return Keep(path, "changed since it was installed; --force removes it");
        break;
      case FileMatch::kSame:
        break;
    }
    Take(path, false);
  }

  void TakeDirectory(const std::string& path) {
    if (HoldsOnly(replayed_.root, path, gone_)) Take(path, true);
  }

  void Take(const std::string& path, bool directory) {
    const std::string shown = directory ? path + "/" : path;
    const std::string failure = dryRun_ ? "" : RemoveBeneath(replayed_.root, path, directory);
    if (!failure.empty()) return Keep(shown, failure);
    gone_.insert(path);
    Say(dryRun_ ? "would remove " : "removed ", shown, "");
  }

  void Keep(const std::string& path, const std::string& why) {
    ++kept_;
    Say(dryRun_ ? "would keep " : "kept ", path, why);
  }

  void Say(const char* what, const std::string& path, const std::string& why) {
    lines_.push_back(what + path + (why.empty() ? "" : "  (" + why + ")"));
  }

  const Replayed& replayed_;
  TreeComparer& comparer_;
  bool force_, dryRun_;
  std::vector<std::string> lines_;
  std::set<std::string> gone_;
  int kept_ = 0;
};

}  // namespace

int RunDiff(const CommandLine& line, ToolIo& io) {
  const std::string& packagePath = line.operands[0];
  const bool json = line.Has(kJsonOption), quiet = line.Has(kQuietOption);
  ProgressDisplay display(io.err, io.errIsTerminal);
  Replayed replayed;
  std::string error;
  if (!replayed.Open(packagePath, line.operands[1], display, error)) {
    return json && !quiet ? ReportJsonFailure(io, packagePath, error) : ReportFailure(io, error);
  }
  TreeComparer comparer(replayed.root, replayed.opened.stream(), replayed.opened.scratchDirectory(),
                        &display);
  const std::vector<TreeDifference> differences =
      comparer.Compare(replayed.model, line.Has(kExtraOption));
  display.Clear();
  if (json && !quiet) {
    Json document{{"package", packagePath},
                  {"directory", line.operands[1]},
                  {"matches", differences.empty()},
                  {"differences", Json::array()}};
    for (const TreeDifference& difference : differences) {
      document["differences"].push_back(DifferenceJson(difference));
    }
    PrintJson(io.out, document);
  } else if (!quiet) {
    for (const TreeDifference& difference : differences) {
      std::fprintf(io.out, "%s\n", DifferenceLine(difference).c_str());
    }
  }
  return differences.empty() ? kExitSuccess : kExitFailure;
}

int RunUninstall(const CommandLine& line, ToolIo& io) {
  ProgressDisplay display(io.err, io.errIsTerminal);
  Replayed replayed;
  std::string error;
  if (!replayed.Open(line.operands[0], line.operands[1], display, error)) {
    return ReportFailure(io, error);
  }
  TreeComparer comparer(replayed.root, replayed.opened.stream(), replayed.opened.scratchDirectory(),
                        &display);
  Uninstaller uninstaller(replayed, comparer, line);
  const int kept = uninstaller.Run();
  display.Clear();
  if (!line.Has(kQuietOption)) {
    for (const std::string& text : uninstaller.lines()) std::fprintf(io.out, "%s\n", text.c_str());
  }
  return kept == 0 ? kExitSuccess : kExitFailure;
}

}  // namespace tk
