// The tkpack commands, one function each, and what they share: the streams they
// report on. Every command takes its parsed command line (operands and options as
// declared in tool.cpp's command table) and returns the exit status of tool.h.
//
// Not thread-safe: a command runs on the caller's thread and prints to its streams.
#ifndef TAVIK_TKPACK_COMMANDS_H_
#define TAVIK_TKPACK_COMMANDS_H_

#include <cstdio>
#include <string>
#include <vector>

#include "tkpack/command_line.h"
#include "tkpack/file_watcher.h"
#include "tkpack/package_signature.h"

namespace tk {

// Where a command reports: results to `out`, errors and the progress display to `err`,
// which is drawn on only when `errIsTerminal`.
struct ToolIo {
  FILE* out = stdout;
  FILE* err = stderr;
  bool errIsTerminal = false;
};

// The option of build and check that lists every directory capture in byte order of its
// names, for packages that depend only on the tree's names and contents. (A check
// captures nothing, so there it only keeps the two command lines alike.)
inline constexpr const char* kSortOption = "--sort";

// The option of the reports (list, verify, header, diff) that prints one JSON document
// instead of lines (json_report.h).
inline constexpr const char* kJsonOption = "--json";

// The option that names the public key a package's signature must match.
inline constexpr const char* kPubkeyOption = "--pubkey";

// The option of build and compress that sets how many threads compress (the output is
// the same bytes whatever the number).
inline constexpr const char* kThreadsOption = "--threads";

// The encoder's threads for `line`: N of kThreadsOption, at most kLzhufMaxThreads;
// without the option, or with 0, the processors available (LzhufAvailableThreads).
int ThreadsOption(const CommandLine& line);

// How a command reports: lines, nothing but failures, or a JSON document.
enum class Reporting { kLines, kQuiet, kJson };

// With kPubkeyOption on `line`: CheckPackageSignature of `packagePath` against that key.
// kLines prints its report on io.out; a failure is printed on io.err (and with kJson
// also as a JSON document on io.out), and the result is false (the command then ends
// with kExitFailure). True without the option. `facts`, when not null, receives what
// the signature says.
bool CheckSignatureOption(const CommandLine& line, const std::string& packagePath, ToolIo& io,
                          Reporting reporting, SignatureFacts* facts = nullptr);

// Prints "tkpack: " + `message` and a LF to io.err; returns kExitFailure.
int ReportFailure(ToolIo& io, const std::string& message);

// build DESCRIPTION PACKAGE [--base DIR] [--digest] [--sort] [--threads N]:
// TkPackage::BuildPackage; the base directory defaults to the description file's own
// directory. --digest builds with DigestBuildOptions (digest.h).
int RunBuild(const CommandLine& line, ToolIo& io);

// The stages that build's progress display follows: the record stream that
// BuildPackage writes beside `packagePath`, then its compression.
std::vector<WatchedFile> BuildStages(const std::string& packagePath);

// check DESCRIPTION [--base DIR]: TkPackage::CheckDescription, nothing written.
int RunCheck(const CommandLine& line, ToolIo& io);

// install PACKAGE DESTDIR [--quiet]: TkPackage::InstallPackage with its progress lines
// unless --quiet.
int RunInstall(const CommandLine& line, ToolIo& io);

// The stages that install's progress display follows: the package being decoded, then
// the decoded stream that InstallPackage walks.
std::vector<WatchedFile> InstallStages(const std::string& packagePath,
                                       const std::string& destination);

// header PACKAGE: the header lines, one a line.
int RunHeader(const CommandLine& line, ToolIo& io);

// list PACKAGE [--long]: one line per record in file order; --long adds sizes and a
// summary line.
int RunList(const CommandLine& line, ToolIo& io);

// verify PACKAGE [--pubkey FILE]: with --pubkey, first CheckPackageSignature (a bad
// or missing signature fails at once); then decodes the whole package and walks every
// record, reporting each problem, then checks its digest (digest.h): a wrong one is one
// more problem, else the line before the summary says "digest ok (...)" or "no digest".
// kExitFailure when there is any problem.
int RunVerify(const CommandLine& line, ToolIo& io);

// sign PACKAGE --key FILE [--password-file FILE]: SignPackage, then one line; a
// missing --key is a usage error.
int RunSign(const CommandLine& line, ToolIo& io);

// diff PACKAGE DIR [--extra] [--quiet]: DIR against what the package makes of it
// (tree_model.h): one line per difference (tree_compare.h), kExitSuccess when there is
// none, kExitFailure when there is any or the package cannot be followed.
int RunDiff(const CommandLine& line, ToolIo& io);

// uninstall PACKAGE DIR [--force] [--dry-run] [--quiet]: removes the files the package
// installed whose content is still what it put there (changed ones only with --force),
// then the directories it makes that are left empty, deepest first; never DIR itself,
// never a file the package does not know, never through a link leading outside.
// kExitFailure when anything was kept.
int RunUninstall(const CommandLine& line, ToolIo& io);

// compress IN OUT [--threads N] and decompress IN OUT [--limit N]: the codec on single
// files.
int RunCompress(const CommandLine& line, ToolIo& io);
int RunDecompress(const CommandLine& line, ToolIo& io);

}  // namespace tk

#endif  // TAVIK_TKPACK_COMMANDS_H_
