// Where the package engine puts its temporary files. Every decompression, record stream
// under construction and text rewrite goes through a file whose name ends in kTempSuffix,
// deleted on every way out; tools that follow the engine's progress (tkpack) ask here
// for the paths instead of rebuilding them.
//
// Thread-safe: pure functions.
#ifndef TAVIK_PACKAGE_TEMP_PATHS_H_
#define TAVIK_PACKAGE_TEMP_PATHS_H_

#include <string>

namespace tk {

inline constexpr const char* kTempSuffix = ".tk_temp";

// `path` + kTempSuffix: the record stream that BuildPackage writes beside the package,
// the header that ReadPackageHeader decodes beside the package, and the rewrite that
// SetTextFile makes beside the file.
std::string SiblingTempPath(const std::string& path);

// The directory that InstallPackage installs into, from the destination as given:
// NormalizeWhitespace, then RemoveTrailingSlash ("  /opt/t/ " -> "/opt/t").
std::string InstallDirectory(const std::string& destination);

// Where InstallPackage decodes the package: InstallDirectory(destination) + "/" + the
// package's base name (after its last "/", or failing that its last "\") + kTempSuffix.
std::string InstallTempPath(const std::string& packagePath, const std::string& destination);

}  // namespace tk

#endif  // TAVIK_PACKAGE_TEMP_PATHS_H_
