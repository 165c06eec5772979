// What a package makes of its installation directory, worked out from its records
// alone: the directories it creates, the files it leaves there (where each one's bytes
// lie in the decoded stream, how often text conversion rewrites them, whether [Exec]
// made them executable) and the paths its [RmDir] and [RemoveFile] records take away.
// It follows the installer record by record, as if every record succeeded, over a tree
// that held nothing else: what `tkpack diff` compares a directory with and what `tkpack
// uninstall` takes out again.
//
// One thing of the installer it does not follow: InstallPackage decodes the package into
// the installation directory, so a [TextDir] of that directory (or a [TextFile] of that
// copy) rewrites the very stream it is reading, and files after it may then differ from
// the model. tkpack install decodes elsewhere and installs what the model says.
//
// Paths are relative to the installation directory, "/"-separated, without empty or
// "." components ("" is the directory itself). Memory grows with the number of paths,
// never with the contents.
//
// Not thread-safe: one model per package.
#ifndef TAVIK_TKPACK_TREE_MODEL_H_
#define TAVIK_TKPACK_TREE_MODEL_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "package/record_reader.h"

namespace tk {

// A file as the package leaves it.
struct ModelFile {
  int64_t contentOffset = 0;  // where its bytes begin in the decoded stream
  int64_t size = 0;           // how many there are (what the stream really holds)
  int conversions = 0;        // [TextFile] and [TextDir] rewrites after it was written
  bool executable = false;    // [Exec] made it rwxr-xr-x (a later [File] keeps the mode)
};

class TreeModel {
 public:
  // Follows every record of `reader` (at the stream's start). False with `error` when
  // the stream cannot be followed: a bad magic line, a malformed record, or a record
  // that would act outside the installation directory (the problems verify reports).
  bool Replay(PackageRecordReader& reader, std::string& error);

  const std::map<std::string, ModelFile>& files() const { return files_; }
  const std::set<std::string>& directories() const { return directories_; }
  // Paths a record removes that no later record makes again.
  const std::set<std::string>& removed() const { return removed_; }

  // `path` cleaned as model paths are: "a//b/./c/" -> "a/b/c".
  static std::string Normalize(const std::string& path);

 private:
  void Apply(const PackageRecord& record);
  void MakeDirectory(const std::string& path);
  void WriteFile(const std::string& path, const PackageRecord& record);
  void RemoveDirectoryContents(const std::string& path, bool withSubdirectories);
  void RemoveFiles(const std::string& pattern);
  void Remove(const std::string& path);
  template <typename Change>
  void ForFilesIn(const std::string& directory, Change change);

  std::map<std::string, ModelFile> files_;
  std::set<std::string> directories_;
  std::set<std::string> removed_;
  std::string current_;  // the latest [Dir]
};

}  // namespace tk

#endif  // TAVIK_TKPACK_TREE_MODEL_H_
