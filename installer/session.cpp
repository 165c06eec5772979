#include "installer/session.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "package/package.h"
#include "support/files.h"
#include "support/process.h"
#include "support/strings.h"

namespace tk {

namespace {

// One scratch buffer serves the whole session: the copy of the program path, every
// composed prompt or message, and every console line. A read at end of input leaves
// it untouched, so the last prompt's own text is then taken as the answer.
constexpr int kConsoleBufferSize = 2048;

constexpr int kSuccess = 0;
constexpr int kFailure = -1;  // exit status 255

constexpr char kProgramName[] = "tkinstall";
constexpr char kCorePackage[] = "tavik_core.pkg";
// Looked for relative to the working directory, not to the installer directory: a
// distribution may keep the core package one level above the platform folders.
constexpr char kCoreFallback[] = "../tavik_core.pkg";
// The platform package follows the build's word size, with no test at run time.
constexpr const char* kPlatformPackage =
    sizeof(void*) == 8 ? "tavik_linux64.pkg" : "tavik_linux.pkg";
constexpr char kDefaultDirectory[] = "/usr/tavik";
constexpr char kPostInstallScript[] = "Java/tkinstall";

// The raw value of the TAVIK environment variable when it is set, else "".
std::string tavikText;

struct PackagePaths {
  std::string core;
  std::string platform;
};

void Write(const char* text) { std::printf("%s", text); }

// The two texts that end with a line feed of their own.
void WriteLine(const char* text) { std::puts(text); }

// Composes `format` into the line buffer (cut to its size) and writes the result.
[[gnu::format(printf, 2, 3)]] void ComposeAndWrite(char* buffer, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, kConsoleBufferSize, format, args);
  va_end(args);
  Write(buffer);
}

// Everything written so far must be on the screen before the administrator types.
void AwaitLine(char* buffer) {
  std::fflush(stdout);
  ReadConsoleLine(buffer, kConsoleBufferSize);
}

int FailureEnding(char* buffer) {
  WriteLine("\n\nInstallation failed");
  Write("\n\nPress enter to continue");
  AwaitLine(buffer);
  return kFailure;
}

void CopyToBuffer(char* buffer, const char* text) {
  std::snprintf(buffer, kConsoleBufferSize, "%s", text);
}

// The part of the program path before the last "tkinstall" (ignoring case), kept in
// its own case and ending in "/"; "" when the word is missing. The cut may fall inside
// a file name (/opt/setuptkinstall gives /opt/setup/): the name itself is not checked.
std::string FindInstallerDirectory(char* buffer, const char* programPath) {
  if (programPath == nullptr) programPath = "";
  CopyToBuffer(buffer, programPath);
  CStrToLower(buffer);
  const char* lastHit = nullptr;
  for (const char* hit = std::strstr(buffer, kProgramName); hit != nullptr;
       hit = std::strstr(hit + 1, kProgramName)) {
    lastHit = hit;
  }
  std::string directory;
  if (lastHit != nullptr) {
    const size_t cut = static_cast<size_t>(lastHit - buffer);
    CopyToBuffer(buffer, programPath);
    directory.assign(buffer, cut);
  }
  if (!directory.empty() && directory.back() != '/') directory += '/';
  return directory;
}

// Settles the two package paths; writes the message and returns false when either
// package cannot be found.
bool LocatePackages(char* buffer, const std::string& installerDirectory, PackagePaths& packages) {
  packages.core = installerDirectory + kCorePackage;
  packages.platform = installerDirectory + kPlatformPackage;
  if (!FileExists(packages.core.c_str())) packages.core = kCoreFallback;
  for (const std::string* path : {&packages.core, &packages.platform}) {
    if (!FileExists(path->c_str())) {
      ComposeAndWrite(buffer, "\nCannot find %s package", path->c_str());
      return false;
    }
  }
  return true;
}

// Notes the raw TAVIK text and returns the proposed destination: that text cleaned,
// or /usr/tavik when it is unset or blank.
std::string DefaultDirectory() {
  std::string directory;
  if (const char* value = std::getenv("TAVIK")) {
    tavikText = value;
    directory = value;
    NormalizeWhitespace(directory);
    RemoveTrailingSlash(directory);
  }
  if (directory.empty()) directory = kDefaultDirectory;
  BackslashesToSlashes(directory);
  return directory;
}

// The console line cleaned and upper-cased, for the Q/Y tests.
std::string CleanAnswer(const char* line) {
  std::string answer(line);
  NormalizeWhitespace(answer);
  StrToUpper(answer);
  return answer;
}

std::string CleanDirectory(const char* line, const std::string& defaultDirectory) {
  std::string directory(line);
  NormalizeWhitespace(directory);
  RemoveTrailingSlash(directory);
  if (directory.empty()) directory = defaultDirectory;
  BackslashesToSlashes(directory);
  return directory;
}

// Only the first character is tested, so a directory typed with a leading q quits.
bool IsQuit(const std::string& answer) { return !answer.empty() && answer[0] == 'Q'; }

// Asks for the destination until it is confirmed. False when the administrator quits.
// A refused directory is not remembered: the next prompt proposes the same default.
bool AskDestination(char* buffer, const std::string& defaultDirectory, std::string& destination) {
  for (;;) {
    ComposeAndWrite(buffer, "\n\nPlease enter TAVIK destination directory (%s) => ",
                    defaultDirectory.c_str());
    AwaitLine(buffer);
    if (IsQuit(CleanAnswer(buffer))) return false;
    destination = CleanDirectory(buffer, defaultDirectory);

    ComposeAndWrite(buffer, "\n\nConfirm destination directory %s (y/n/q) => ",
                    destination.c_str());
    AwaitLine(buffer);
    std::string answer = CleanAnswer(buffer);
    if (answer.empty()) answer = "Y";
    if (IsQuit(answer)) return false;
    if (answer[0] == 'Y') return true;
  }
}

// The profile needs changing unless the destination is the TAVIK directory, compared
// ignoring case. The TAVIK text keeps its backslashes here, so C:\tavik never matches.
bool ProfileChangesNeeded(const std::string& destination) {
  std::string current = tavikText;
  NormalizeWhitespace(current);
  RemoveTrailingSlash(current);
  std::string chosen = destination;
  StrToUpper(current);
  StrToUpper(chosen);
  return current != chosen;
}

// Core first, then platform; writes the engine's error text on the first failure.
bool InstallPackages(TkPackage& package, const PackagePaths& packages,
                     const std::string& destination) {
  constexpr int kVerbose = 1;
  for (const std::string* path : {&packages.core, &packages.platform}) {
    if (!package.InstallPackage(path->c_str(), destination.c_str(), kVerbose)) {
      Write("\nError: ");
      Write(package.ErrorText().c_str());
      return false;
    }
  }
  return true;
}

// Runs destination/Java/tkinstall once through the shell and deletes it. Its result
// is ignored: a failing script does not fail the installation.
void RunPostInstallScript(const std::string& destination) {
  std::string directory = destination;
  RemoveTrailingSlash(directory);
  std::string script = directory;
  AddTrailingSlash(script);
  script += kPostInstallScript;
  if (!FileExists(script.c_str())) return;

  const std::string command = "/bin/sh " + script + " " + directory;
  // The script writes straight to our standard output: what we wrote must come first.
  std::fflush(stdout);
  int32_t exitStatus = 0;
  RunCommand(command.c_str(), &exitStatus, kRunWaitForever);
  DeleteFile(script.c_str());
}

void WriteProfileChanges(char* buffer, const std::string& destination) {
  Write("\n\nPLEASE DO THE FOLLOWING CHANGES TO THE PROFILE OF THE USER RUNNING TAVIK:");
  const char* directory = destination.c_str();
  ComposeAndWrite(buffer, "\n\n  Set the environment variable TAVIK=%s", directory);
  ComposeAndWrite(buffer, "\n  Add %s/Bin to the PATH environment variable", directory);
  ComposeAndWrite(buffer, "\n  Add %s/Bin to the LD_LIBRARY_PATH environment variable", directory);
}

}  // namespace

void ReadConsoleLine(char* buffer, int size) {
  if (buffer == nullptr || size < 1) return;
  // Read into a scratch copy: fgets may leave its buffer undefined after a read error,
  // and the caller's buffer must stay as it was whenever nothing could be read.
  std::string scratch(static_cast<size_t>(size), '\0');
  if (std::fgets(scratch.data(), size, stdin) == nullptr) return;
  size_t length = std::strlen(scratch.c_str());
  if (length > 0 && scratch[length - 1] == '\n') --length;
  std::memcpy(buffer, scratch.data(), length);
  buffer[length] = '\0';
}

bool IsServiceRunning() {
  if (tavikText.empty()) return false;
  std::string marker = tavikText;
  NormalizeWhitespace(marker);
  AddTrailingSlash(marker);
  marker += "Bin";
  AddTrailingSlash(marker);
  marker += "tavik.run";
  return FileExists(marker.c_str()) != 0;
}

int InstallerMain(int argc, char** argv) {
  tavikText.clear();
  char buffer[kConsoleBufferSize] = {};
  const std::string installerDirectory =
      FindInstallerDirectory(buffer, argc > 0 ? argv[0] : nullptr);

  Write("\n\nTAVIK server installation");
  PackagePaths packages;
  if (!LocatePackages(buffer, installerDirectory, packages)) return FailureEnding(buffer);
  const std::string defaultDirectory = DefaultDirectory();

  Write("\nChecking server...");
  if (IsServiceRunning()) {
    Write("\nThe TAVIK service is running (or has not been stopped correctly)");
    Write("\nPlease stop it and restart the installation");
    return FailureEnding(buffer);
  }

  std::string destination;
  if (!AskDestination(buffer, defaultDirectory, destination)) return kFailure;
  const bool showProfileChanges = ProfileChangesNeeded(destination);

  ComposeAndWrite(buffer, "\n\nInstalling TAVIK in %s directory", destination.c_str());
  Write("\nThis may take a few minutes...");
  TkPackage package;
  if (!InstallPackages(package, packages, destination)) return FailureEnding(buffer);

  Write("\nUpdating environment...");
  RunPostInstallScript(destination);
  WriteLine("\n\nInstallation terminated successfully");
  if (showProfileChanges) WriteProfileChanges(buffer, destination);
  Write("\n\nPress enter to continue");
  AwaitLine(buffer);
  return kSuccess;
}

}  // namespace tk
