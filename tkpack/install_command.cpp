// tkpack install: by default the package is decoded privately, its digest (when it has
// one) and its records are checked whole before anything is written (digest.h,
// install_guard.h), then it is installed through a tree that never leaves the
// destination (beneath_tree.h); with --trust, TkPackage::InstallPackage installs it
// exactly as tkinstall does.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "package/package.h"
#include "package/temp_paths.h"
#include "tkpack/commands.h"
#include "tkpack/digest.h"
#include "tkpack/file_watcher.h"
#include "tkpack/install_guard.h"
#include "tkpack/opened_package.h"
#include "tkpack/output_relay.h"
#include "tkpack/tool.h"

namespace tk {

namespace {

constexpr const char* kQuietOption = "--quiet";
constexpr const char* kTrustOption = "--trust";

// What one installation came to.
struct Attempt {
  bool engineRan = false;  // the engine printed progress lines, which want a last LF
  bool installed = false;
  std::string error;     // why it failed, when it was not refused
  VerifyReport hazards;  // why it was refused
};

// Where the engine's progress goes: the display, and the relay of its lines when both
// share a terminal.
struct Screen {
  ProgressDisplay& display;
  OutputRelay* relay;
};

void TrustedInstall(const std::string& packagePath, const std::string& destination, bool verbose,
                    Screen screen, Attempt& attempt) {
  FileProgressWatcher watcher(screen.display, InstallStages(packagePath, destination),
                              screen.relay);
  TkPackage package;
  attempt.engineRan = verbose;
  attempt.installed =
      package.InstallPackage(packagePath.c_str(), destination.c_str(), verbose ? 1 : 0);
  attempt.error = package.ErrorText();
}

// The destination is taken as the engine creates it (outer blanks and a trailing "/"
// gone), for the records as well as for the directory itself.
void GuardedInstall(const std::string& packagePath, const std::string& destination, bool verbose,
                    Screen screen, Attempt& attempt) {
  OpenedPackage opened;
  FileProgressWatcher watcher(screen.display,
                              {{"decoding", packagePath, WatchedFile::Access::kReading},
                               {"installing", opened.decodedPath(), WatchedFile::Access::kReading}},
                              screen.relay);
  if (!opened.Open(packagePath, attempt.error)) return;
  const DigestCheck digest = CheckPackageDigest(packagePath, opened.stream());
  if (IsDigestProblem(digest)) {
    attempt.hazards.problems.push_back(StreamProblem(DigestCheckText(digest)));
    return;
  }
  TkPackage package;
  attempt.installed = InstallChecked(opened.stream(), packagePath, InstallDirectory(destination),
                                     verbose, package, attempt.hazards);
  attempt.engineRan = verbose && attempt.hazards.problems.empty();
  attempt.error = package.ErrorText();
}

int ReportRefusal(ToolIo& io, const std::string& packagePath, const VerifyReport& hazards) {
  for (const Problem& hazard : hazards.problems) {
    std::fprintf(io.err, "tkpack: %s: %s\n", packagePath.c_str(), hazard.Text().c_str());
  }
  const std::size_t count = hazards.problems.size();
  std::fprintf(io.err,
               "tkpack: refused %s: %zu problem%s, nothing installed (--trust installs it "
               "anyway)\n",
               packagePath.c_str(), count, count == 1 ? "" : "s");
  return kExitFailure;
}

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
  if (!CheckSignatureOption(line, packagePath, io,
                            verbose ? Reporting::kLines : Reporting::kQuiet)) {
    return kExitFailure;
  }
  Attempt attempt;
  {
    OutputRelay relay;  // outlives the watcher that uses it
    ProgressDisplay display(io.err, io.errIsTerminal);
    // The engine's progress lines and the display share a terminal: relay the lines.
    const bool shared = verbose && display.enabled() && isatty(STDOUT_FILENO) != 0;
    const Screen screen{display, shared && relay.Start() ? &relay : nullptr};
    if (line.Has(kTrustOption)) {
      TrustedInstall(packagePath, destination, verbose, screen, attempt);
    } else {
      GuardedInstall(packagePath, destination, verbose, screen, attempt);
    }
    relay.Finish();
  }
  if (attempt.engineRan) {
    // The engine's progress lines begin with their LF; end the last one.
    std::fputs("\n", stdout);
    std::fflush(stdout);
  }
  if (!attempt.hazards.problems.empty()) return ReportRefusal(io, packagePath, attempt.hazards);
  if (!attempt.installed) return ReportFailure(io, attempt.error);
  return kExitSuccess;
}

}  // namespace tk
