// What an installation does to the disk, one operation per kind of change. The record
// applier decides what to do and composes every path (the destination as given, then
// the record's names); an InstallTree carries it out. PlainInstallTree does so with the
// support library's path-based calls, which is what InstallPackage does; a tool may
// hand TkPackage::InstallStream another tree, for instance one that refuses to leave
// the destination.
//
// Not thread-safe: one tree per installation.
#ifndef TAVIK_PACKAGE_INSTALL_TREE_H_
#define TAVIK_PACKAGE_INSTALL_TREE_H_

#include <cstdio>
#include <string>
#include <vector>

namespace tk {

class TkPackage;

class InstallTree {
 public:
  virtual ~InstallTree() = default;

  // Creates the directory `path`, all missing components or (`singleLevel`) only the
  // last one. True when it exists afterwards or was there already.
  virtual bool MakeDirectory(const std::string& path, bool singleLevel) = 0;

  // Opens `path` for writing, created (mode 0666 less the umask) or truncated. The
  // descriptor, or -1 on failure.
  virtual int CreateFile(const std::string& path) = 0;

  // Removes every file of the directory `path`, and with `withSubdirectories` every
  // subdirectory that does not begin with "." (links are removed as links). True when
  // all of that went, also when `path` is no directory.
  virtual bool RemoveContents(const std::string& path, bool withSubdirectories) = 0;

  // Unlinks `path` (a link as a link); a failure is ignored.
  virtual void RemoveFile(const std::string& path) = 0;

  // Appends the names of the entries of `directory` that are not directories and do
  // not begin with ".". False when the directory could not be listed at all.
  virtual bool ListFiles(const std::string& directory, std::vector<std::string>& names) = 0;

  // Gives the file `path` the mode rwxr-xr-x. False on failure.
  virtual bool MakeExecutable(const std::string& path) = 0;

  // Rewrites the file `path` with LF line ends as TkPackage::SetTextFile does. False on
  // failure.
  virtual bool ConvertToText(const std::string& path) = 0;
};

// The tree of InstallPackage: CreateDirectoryPath, open(2), RemoveDirectory,
// DeleteFile, ListFiles, chmod and TkPackage::SetTextFile on the paths as given, so
// symbolic links on the way are followed wherever they lead.
class PlainInstallTree : public InstallTree {
 public:
  // `package` converts text files (its error text is then replaced by the applier's).
  explicit PlainInstallTree(TkPackage& package) : package_(package) {}

  bool MakeDirectory(const std::string& path, bool singleLevel) override;
  int CreateFile(const std::string& path) override;
  bool RemoveContents(const std::string& path, bool withSubdirectories) override;
  void RemoveFile(const std::string& path) override;
  bool ListFiles(const std::string& directory, std::vector<std::string>& names) override;
  bool MakeExecutable(const std::string& path) override;
  bool ConvertToText(const std::string& path) override;

 private:
  TkPackage& package_;
};

// [Exec] makes a file rwxr-xr-x; it never runs anything.
inline constexpr unsigned kExecMode = 0755;

// Installed files get what creation gives (rw for all, less the umask), as fopen would.
inline constexpr unsigned kNewFileMode = 0666;

// The line rewrite of SetTextFile, for trees that hold the two streams themselves:
// copies `in` to `out` line by line, each line (read in pieces of at most
// kTextLineBufferSize - 2 bytes, without one LF and then one CR at its end) followed by
// one LF. `buffer` holds kTextLineBufferSize bytes. False at the first short write.
inline constexpr int kTextLineBufferSize = 65536;
bool CopyTextLines(FILE* in, FILE* out, char* buffer);

}  // namespace tk

#endif  // TAVIK_PACKAGE_INSTALL_TREE_H_
