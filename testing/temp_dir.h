// Scratch directories for tests, fuzz targets and benchmarks: a fresh directory below
// $TMPDIR (or /tmp) that goes away with everything in it, and small verbs for the files
// inside. Every verb takes a path relative to the directory; a path that begins with
// "/" is taken as it stands, so the same verbs serve files elsewhere.
//
// Test code only. Not thread-safe: one object per test, used from the test's thread.
#ifndef TAVIK_TESTING_TEMP_DIR_H_
#define TAVIK_TESTING_TEMP_DIR_H_

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tk::test {

// Relative path -> "dir" for a directory, "->" and the target for a symbolic link (never
// followed), or the octal mode bits, ":" and the bytes of a file ("644:abc").
using Tree = std::map<std::string, std::string>;

// Replaces the file at `path` with `bytes`, creating missing parent directories. False
// when it could not be written whole.
bool WriteWholeFile(const std::string& path, std::string_view bytes);

// The bytes of the file at `path` ("" when it cannot be read).
std::string ReadWholeFile(const std::string& path);

class TempDir {
 public:
  // Makes PARENT/tk_`tag`.XXXXXX, PARENT being `parent` or else $TMPDIR or /tmp (made
  // when missing); path() is "" when that fails.
  explicit TempDir(const std::string& tag = "test", const std::string& parent = "");
  // Removes the directory and everything in it, opening up directories made read-only.
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return root_; }

  // path() + "/" + `relative`, or `relative` itself when it is absolute.
  std::string Path(const std::string& relative) const;

  // WriteWholeFile and ReadWholeFile of Path(relative).
  bool WriteFile(const std::string& relative, std::string_view bytes) const {
    return WriteWholeFile(Path(relative), bytes);
  }
  std::string ReadFile(const std::string& relative) const { return ReadWholeFile(Path(relative)); }

  // True when anything, a dangling link included, stands at the path.
  bool Exists(const std::string& relative) const;

  // Everything below the directory `relative` ("" for the whole scratch directory).
  Tree Snapshot(const std::string& relative = "") const;

  // The paths below `relative`, sorted, directories with a trailing "/".
  std::vector<std::string> Listing(const std::string& relative = "") const;

  // How many files anywhere below the scratch directory have names ending in `suffix`.
  int CountFilesEndingWith(const std::string& suffix) const;

 private:
  std::string root_;
};

}  // namespace tk::test

#endif  // TAVIK_TESTING_TEMP_DIR_H_
