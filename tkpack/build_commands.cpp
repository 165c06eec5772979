// tkpack build and tkpack check: the package builder behind a command line.
#include <optional>
#include <string>

#include "package/package.h"
#include "package/temp_paths.h"
#include "support/files.h"
#include "tkpack/commands.h"
#include "tkpack/digest.h"
#include "tkpack/file_watcher.h"
#include "tkpack/tool.h"

namespace tk {

namespace {

constexpr const char* kBaseOption = "--base";
constexpr const char* kDigestOption = "--digest";

// The directory of the description file: sources resolve against it by default.
// None (the working directory) for a bare file name.
std::optional<std::string> DescriptionDirectory(const std::string& description) {
  const std::size_t slash = description.rfind('/');
  if (slash == std::string::npos) return std::nullopt;
  return slash == 0 ? "/" : description.substr(0, slash);
}

std::optional<std::string> BaseDirectory(const CommandLine& line) {
  if (line.Has(kBaseOption)) return line.Value(kBaseOption, "");
  return DescriptionDirectory(line.operands[0]);
}

const char* OrNull(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}

}  // namespace

// The builder writes the record stream beside the package, then compresses it into
// the package.
std::vector<WatchedFile> BuildStages(const std::string& packagePath) {
  const std::string stream = SiblingTempPath(packagePath);
  return {{"writing records", stream, WatchedFile::Access::kWriting},
          {"compressing", stream, WatchedFile::Access::kReading}};
}

int RunBuild(const CommandLine& line, ToolIo& io) {
  const std::string& description = line.operands[0];
  const std::string& packagePath = line.operands[1];
  const std::optional<std::string> base = BaseDirectory(line);
  BuildOptions options = line.Has(kDigestOption) ? DigestBuildOptions() : BuildOptions();
  options.sortNames = line.Has(kSortOption);
  options.threads = ThreadsOption(line);
  TkPackage package;
  bool built = false;
  {
    ProgressDisplay display(io.err, io.errIsTerminal);
    FileProgressWatcher watcher(display, BuildStages(packagePath));
    built = package.BuildPackage(description.c_str(), OrNull(base), packagePath.c_str(), options);
  }
  if (!built) return ReportFailure(io, package.ErrorText());
  std::fprintf(io.out, "built %s (%lld bytes)\n", packagePath.c_str(),
               static_cast<long long>(FileSize(packagePath.c_str())));
  return kExitSuccess;
}

int RunCheck(const CommandLine& line, ToolIo& io) {
  const std::string& description = line.operands[0];
  const std::optional<std::string> base = BaseDirectory(line);
  TkPackage package;
  if (!package.CheckDescription(description.c_str(), OrNull(base))) {
    return ReportFailure(io, package.ErrorText());
  }
  std::fprintf(io.out, "%s: ok\n", description.c_str());
  return kExitSuccess;
}

}  // namespace tk
