#include "package/install_tree.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "package/package.h"
#include "support/directories.h"
#include "support/files.h"

namespace tk {

bool PlainInstallTree::MakeDirectory(const std::string& path, bool singleLevel) {
  return CreateDirectoryPath(path.c_str(), singleLevel) == 1;
}

int PlainInstallTree::CreateFile(const std::string& path) {
  return OpenDescriptor(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kNewFileMode);
}

bool PlainInstallTree::RemoveContents(const std::string& path, bool withSubdirectories) {
  return RemoveDirectory(path.c_str(), false, "*", withSubdirectories ? "*" : "") == 1;
}

void PlainInstallTree::RemoveFile(const std::string& path) { DeleteFile(path.c_str()); }

bool PlainInstallTree::ListFiles(const std::string& directory, std::vector<std::string>& names) {
  return tk::ListFiles(directory.c_str(), nullptr, names) == 1;
}

bool PlainInstallTree::MakeExecutable(const std::string& path) {
  return chmod(path.c_str(), kExecMode) == 0;
}

bool PlainInstallTree::ConvertToText(const std::string& path) {
  return package_.SetTextFile(path.c_str());
}

}  // namespace tk
