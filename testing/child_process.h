// Runs a program as a child process with a chosen argument vector (argument 0
// included), working directory, environment changes and scripted standard input, and
// collects its standard output, standard error and exit status. The child is killed
// when it outlives its time limit or writes more than a chosen amount, so a program
// that loops on end of input cannot hang a test.
//
// Test code only. Thread-safe: nothing is shared between calls.
#ifndef TAVIK_TESTING_CHILD_PROCESS_H_
#define TAVIK_TESTING_CHILD_PROCESS_H_

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tk::test {

struct ChildRun {
  std::string program;                 // file executed
  std::vector<std::string> arguments;  // the whole argument vector, argument 0 first
  std::string input;                   // standard input, then end of file
  std::string workDirectory;           // "" keeps the caller's
  // Environment changes: a value sets the variable, nullopt removes it.
  std::map<std::string, std::optional<std::string>> environment;
  int timeoutSeconds = 60;
  std::size_t stopAfterBytes = 16 << 20;  // standard output beyond this kills the child
};

struct ChildResult {
  std::string out;
  std::string err;
  int exitStatus = -1;  // 0..255 after a normal end, else -1
  int signal = 0;       // the signal that ended the child, else 0
  bool killed = false;  // killed here (time-out or output limit)
};

// Runs the child to its end (or kills it, see ChildRun) and returns what it did.
// A child that could not be started gives exit status -1 and no output.
ChildResult RunChild(const ChildRun& run);

}  // namespace tk::test

#endif  // TAVIK_TESTING_CHILD_PROCESS_H_
