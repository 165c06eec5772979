// tkpack install: TkPackage::InstallPackage behind a command line.
#include <unistd.h>

#include <string>

#include "package/package.h"
#include "support/strings.h"
#include "tkpack/commands.h"
#include "tkpack/file_watcher.h"
#include "tkpack/output_relay.h"
#include "tkpack/tool.h"

namespace tk {

namespace {

constexpr const char* kQuietOption = "--quiet";

// Where InstallPackage decodes the package: the normalised destination, the package's
// base name and ".tk_temp". Only the progress display follows it; a wrong guess would
// merely hide the second stage.
std::string InstallTempPath(const std::string& packagePath, const std::string& destination) {
  std::string path = destination;
  NormalizeWhitespace(path);
  RemoveTrailingSlash(path);
  AddTrailingSlash(path);
  std::size_t cut = packagePath.rfind('/');
  if (cut == std::string::npos) cut = packagePath.rfind('\\');
  return path + (cut == std::string::npos ? packagePath : packagePath.substr(cut + 1)) + ".tk_temp";
}

}  // namespace

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
    FileProgressWatcher watcher(
        display,
        {{"decoding", packagePath, WatchedFile::Access::kReading},
         {"installing", InstallTempPath(packagePath, destination), WatchedFile::Access::kReading}},
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
