#include "package/temp_paths.h"

#include "support/strings.h"

namespace tk {

namespace {

// Text after the last "/", or when there is none after the last "\", else the whole path.
std::string BaseName(const std::string& path) {
  std::size_t cut = path.rfind('/');
  if (cut == std::string::npos) cut = path.rfind('\\');
  return cut == std::string::npos ? path : path.substr(cut + 1);
}

}  // namespace

std::string SiblingTempPath(const std::string& path) { return path + kTempSuffix; }

std::string InstallDirectory(const std::string& destination) {
  std::string directory = destination;
  NormalizeWhitespace(directory);
  RemoveTrailingSlash(directory);
  return directory;
}

std::string InstallTempPath(const std::string& packagePath, const std::string& destination) {
  std::string path = InstallDirectory(destination);
  AddTrailingSlash(path);
  return path + BaseName(packagePath) + kTempSuffix;
}

}  // namespace tk
