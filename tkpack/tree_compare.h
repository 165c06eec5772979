// How a directory differs from what a package makes of it (tree_model.h): directories
// that should be there, files missing or with other sizes, contents or execute bits,
// paths the package removes that are there, and with `extra` what the package does not
// know. Every path is opened below the directory (beneath.h), so a symbolic link never
// leads the comparison outside it. Contents are compared as they are read, never held:
// memory grows with the number of paths only.
//
// Not thread-safe: one comparer per directory.
#ifndef TAVIK_TKPACK_TREE_COMPARE_H_
#define TAVIK_TKPACK_TREE_COMPARE_H_

#include <cstdio>
#include <string>
#include <vector>

#include "tkpack/progress.h"
#include "tkpack/tree_model.h"

namespace tk {

struct TreeDifference {
  enum class Kind {
    kMissing,       // a file or directory of the package is not there
    kNotDirectory,  // something else stands where a directory should
    kNotFile,       // something else than a regular file stands where a file should
    kSize,          // a file of another size
    kContent,       // a file of the same size with other bytes
    kMode,          // execute bits other than the package gives
    kRemoved,       // the package removes this path, and it is there
    kOutside,       // the path runs through a symbolic link that leads outside
    kExtra,         // not the package's (reported only when asked for)
  };
  Kind kind;
  std::string path;    // relative to the directory; directories end with "/"
  std::string detail;  // e.g. "120 bytes, the package's 96"; may be ""
};

// "missing", "notdir", "notfile", "size", "content", "mode", "removed", "outside",
// "extra".
const char* DifferenceTag(TreeDifference::Kind kind);

// One line without its LF: the tag padded to 8 columns, the path, and the detail in
// parentheses when there is one: "size     Doc/readme.txt  (120 bytes, the package's 96)".
std::string DifferenceLine(const TreeDifference& difference);

// Whether the file at a model path holds what the package put there.
enum class FileMatch { kSame, kMissing, kNotFile, kOutside, kSize, kContent };

class TreeComparer {
 public:
  // `root`: the directory, open (O_PATH is enough). `stream`: the decoded package the
  // model was made from. `scratch`: a private directory for the contents of converted
  // files. `display`: shows the bytes compared (may be null).
  TreeComparer(int root, FILE* stream, std::string scratch, ProgressDisplay* display);

  // Every difference between the directory and `model`, in path order within each kind
  // of entry (directories, files, removed paths, extras).
  std::vector<TreeDifference> Compare(const TreeModel& model, bool extra);

  // Compares the file at `path` with `file`; `detail` says sizes for kSize. Fills
  // `mode` with the file's mode bits when it is there.
  FileMatch CompareFile(const std::string& path, const ModelFile& file, std::string& detail,
                        unsigned& mode);

 private:
  bool Converted(const ModelFile& file, int& content, int64_t& size);
  bool SameBytes(int expected, int64_t expectedOffset, int actual, int64_t size);
  void CompareDirectories(const TreeModel& model, std::vector<TreeDifference>& out);
  void CompareFiles(const TreeModel& model, std::vector<TreeDifference>& out);
  void CompareRemoved(const TreeModel& model, std::vector<TreeDifference>& out);
  void FindExtras(const TreeModel& model, int directory, const std::string& path,
                  std::vector<TreeDifference>& out);

  int root_;
  FILE* stream_;
  std::string scratch_;
  ProgressDisplay* display_;
  int64_t done_ = 0;
  int64_t total_ = 0;
};

}  // namespace tk

#endif  // TAVIK_TKPACK_TREE_COMPARE_H_
