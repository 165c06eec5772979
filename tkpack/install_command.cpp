// tkpack install: TkPackage::InstallPackage behind a command line.
#include <unistd.h>

#include <string>

#include "package/package.h"
#include "package/temp_paths.h"
#include "tkpack/commands.h"
#include "tkpack/file_watcher.h"
#include "tkpack/output_relay.h"
#include "tkpack/tool.h"

namespace tk {

namespace {

constexpr const char* kQuietOption = "--quiet";

}  // namespace

std::vector<WatchedFile> InstallStages(const std::string& packagePath,
                                       const std::string& destination) {
  return {{"decoding", packagePath, WatchedFile::Access::kReading},
          {"installing", InstallTempPath(packagePath, destination), WatchedFile::Access::kReading}};
}

int RunInstall(const CommandLine& line, ToolIo& io) {
  const std::string& packagePath = line.operands[0];
  const std::string& destination = line.operands[1];
  const bool verbose = !line.Has(kQuietOption);
  TkPackage package;
  bool installed = false;
  {
    OutputRelay relay;  // outlives the watcher that uses it
    ProgressDisplay display(io.err, io.errIsTerminal);
    // The engine's progress lines and the display share a terminal: relay the lines.
    const bool shared = verbose && display.enabled() && isatty(STDOUT_FILENO) != 0;
    FileProgressWatcher watcher(display, InstallStages(packagePath, destination),
                                shared && relay.Start() ? &relay : nullptr);
    installed = package.InstallPackage(packagePath.c_str(), destination.c_str(), verbose ? 1 : 0);
    watcher.Stop();
    relay.Finish();
  }
  if (verbose) {
    // The engine's progress lines begin with their LF; end the last one.
    std::fputs("\n", stdout);
    std::fflush(stdout);
  }
  if (!installed) return ReportFailure(io, package.ErrorText());
  return kExitSuccess;
}

}  // namespace tk
