// The InstallTree of `tkpack install`: the same changes as the engine's plain tree, but
// every path is opened below the destination (beneath.h), so that no record can act
// through a symbolic link, or a ".." that climbs, on anything outside it. A path that
// would leave the destination fails like a path that cannot be opened, and the record
// then fails with the engine's error text.
//
// Not thread-safe: one tree per installation.
#ifndef TAVIK_TKPACK_BENEATH_TREE_H_
#define TAVIK_TKPACK_BENEATH_TREE_H_

#include <string>
#include <vector>

#include "package/install_tree.h"

namespace tk {

class BeneathInstallTree : public InstallTree {
 public:
  // `destination` is the directory exactly as the installation is given it; the tree
  // opens it when first used (the installation creates it first).
  explicit BeneathInstallTree(std::string destination);
  ~BeneathInstallTree() override;
  BeneathInstallTree(const BeneathInstallTree&) = delete;
  BeneathInstallTree& operator=(const BeneathInstallTree&) = delete;

  bool MakeDirectory(const std::string& path, bool singleLevel) override;
  int CreateFile(const std::string& path) override;
  bool RemoveContents(const std::string& path, bool withSubdirectories) override;
  void RemoveFile(const std::string& path) override;
  bool ListFiles(const std::string& directory, std::vector<std::string>& names) override;
  bool MakeExecutable(const std::string& path) override;
  bool ConvertToText(const std::string& path) override;

 private:
  bool Relative(const std::string& path, std::string& relative);
  int Open(const std::string& path, int flags, mode_t mode = 0);
  int OpenParent(const std::string& path, std::string& last);
  bool MakeOneDirectory(const std::string& relative);

  std::string destination_;  // without trailing "/"
  int root_ = -1;
};

}  // namespace tk

#endif  // TAVIK_TKPACK_BENEATH_TREE_H_
