// tkpack, the packager's command-line tool: builds, checks, installs, lists and
// verifies package files and runs the codec on single files, in the style of git
// ("tkpack COMMAND ARGUMENTS"). It drives TkPackage, the record reader and the LZHUF
// codec and adds only reporting around them: results go to standard output, errors to
// standard error as "tkpack: " + the engine's text, and long runs show their progress
// on standard error when it is a terminal.
//
// Exit status: kExitSuccess, kExitFailure, kExitUsage. Not thread-safe: it is a
// program's main and uses the process's standard streams.
#ifndef TAVIK_TKPACK_TOOL_H_
#define TAVIK_TKPACK_TOOL_H_

namespace tk {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;  // the command ran and failed, or found problems
constexpr int kExitUsage = 2;    // the command line was wrong; nothing was done

// Runs the command named by argv[1] with the rest of the arguments and returns the
// exit status.
int TkpackMain(int argc, char** argv);

}  // namespace tk

#endif  // TAVIK_TKPACK_TOOL_H_
