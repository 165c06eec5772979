// Test helper: runs a program as a child process with a chosen argument vector
// (argument 0 included), working directory, environment changes and scripted
// standard input, and collects its standard output, standard error and exit status.
// The child is killed when it outlives its time limit or writes more than a chosen
// amount, so a program that loops on end of input cannot hang a test.
//
// For tests only (uses gtest-free POSIX calls, header-only). Not thread-safe: it
// ignores SIGPIPE for the whole process so that a child ending before it has read
// all its input does not kill the test.
#ifndef TAVIK_INSTALLER_TEST_PROCESS_H_
#define TAVIK_INSTALLER_TEST_PROCESS_H_

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace tk::test {

struct ChildRun {
  std::string program;                 // file executed
  std::vector<std::string> arguments;  // the whole argument vector, argument 0 first
  std::string input;                   // written to standard input, which is then closed
  std::string workDirectory;           // "" keeps the caller's
  // Environment changes: a value sets the variable, nullopt removes it.
  std::map<std::string, std::optional<std::string>> environment;
  int timeoutSeconds = 60;
  size_t stopAfterBytes = 16 << 20;  // standard output beyond this kills the child
};

struct ChildResult {
  std::string out;
  std::string err;
  int exitStatus = -1;  // 0..255 after a normal end, else -1
  int signal = 0;       // the signal that ended the child, else 0
  bool killed = false;  // killed by the helper (time-out or output limit)
};

namespace detail {

inline std::vector<std::string> ChildEnvironment(const ChildRun& run) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text(*entry);
    if (!run.environment.contains(text.substr(0, text.find('=')))) result.push_back(text);
  }
  for (const auto& [name, value] : run.environment) {
    if (value) result.push_back(name + "=" + *value);
  }
  return result;
}

inline std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

// In the child: only async-signal-safe calls between fork and exec.
[[noreturn]] inline void StartChild(const ChildRun& run, const int in[2], const int out[2],
                                    const int err[2], char* const* argv, char* const* envp) {
  if (!run.workDirectory.empty() && chdir(run.workDirectory.c_str()) != 0) _exit(126);
  dup2(in[0], 0);
  dup2(out[1], 1);
  dup2(err[1], 2);
  execve(run.program.c_str(), argv, envp);
  _exit(127);
}

inline void Close(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

// Moves whatever is readable from `fd` into `sink`; closes `fd` at end of file.
inline void Drain(int& fd, std::string& sink) {
  char block[65536];
  const ssize_t n = read(fd, block, sizeof block);
  if (n > 0) {
    sink.append(block, static_cast<size_t>(n));
  } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
    Close(fd);
  }
}

// Writes the next part of the input; closes `fd` when all is written or the child
// no longer reads.
inline void Feed(int& fd, const std::string& input, size_t& written) {
  if (written < input.size()) {
    const ssize_t n = write(fd, input.data() + written, input.size() - written);
    if (n > 0) written += static_cast<size_t>(n);
    if (n < 0 && errno != EINTR && errno != EAGAIN) Close(fd);
  }
  if (written >= input.size()) Close(fd);
}

inline void Decode(int status, ChildResult& result) {
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
}

}  // namespace detail

namespace detail {

using Clock = std::chrono::steady_clock;

// Our ends of the three pipes of a running child.
struct ChildPipes {
  int input = -1;
  int output = -1;
  int errors = -1;
};

// Forks and execs the child with its pipes; returns its pid, or -1.
inline pid_t Spawn(const ChildRun& run, ChildPipes& pipes) {
  std::vector<std::string> arguments = run.arguments;
  std::vector<std::string> environment = ChildEnvironment(run);
  std::vector<char*> argv = Pointers(arguments);
  std::vector<char*> envp = Pointers(environment);
  int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1};
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
    for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) Close(fd);
    return -1;
  }
  const pid_t pid = fork();
  if (pid == 0) StartChild(run, in, out, err, argv.data(), envp.data());
  for (int fd : {in[0], out[1], err[1]}) Close(fd);
  pipes = {in[1], out[0], err[0]};
  if (pid < 0) {
    Close(pipes.input);
    Close(pipes.output);
    Close(pipes.errors);
  }
  fcntl(pipes.input, F_SETFL, O_NONBLOCK);
  return pid;
}

// Feeds the input and collects both outputs until the child closes them. False
// when the deadline or the output limit came first.
inline bool Exchange(const ChildRun& run, ChildPipes& pipes, Clock::time_point deadline,
                     ChildResult& result) {
  size_t written = 0;
  Feed(pipes.input, run.input, written);
  while (pipes.output >= 0 || pipes.errors >= 0) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0 || result.out.size() >= run.stopAfterBytes) return false;
    pollfd fds[3] = {
        {pipes.output, POLLIN, 0}, {pipes.errors, POLLIN, 0}, {pipes.input, POLLOUT, 0}};
    if (poll(fds, 3, static_cast<int>(left.count())) <= 0) continue;
    if (fds[0].revents != 0) Drain(pipes.output, result.out);
    if (fds[1].revents != 0) Drain(pipes.errors, result.err);
    if (fds[2].revents != 0) Feed(pipes.input, run.input, written);
  }
  return true;
}

// Waits for the child until the deadline, then kills it; records how it ended.
inline void Reap(pid_t pid, Clock::time_point deadline, ChildResult& result) {
  int status = 0;
  pid_t ended = 0;
  while ((ended = waitpid(pid, &status, WNOHANG)) == 0 && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (ended == 0) {
    result.killed = true;
    kill(pid, SIGKILL);
    ended = waitpid(pid, &status, 0);
  }
  if (ended == pid) Decode(status, result);
}

}  // namespace detail

// Runs the child to its end (or kills it, see ChildRun) and returns what it did.
// A child that could not be started gives exit status -1 and no output.
inline ChildResult RunChild(const ChildRun& run) {
  signal(SIGPIPE, SIG_IGN);
  ChildResult result;
  detail::ChildPipes pipes;
  const pid_t pid = detail::Spawn(run, pipes);
  if (pid < 0) return result;
  const auto deadline = detail::Clock::now() + std::chrono::seconds(run.timeoutSeconds);
  if (!detail::Exchange(run, pipes, deadline, result)) {
    result.killed = true;
    kill(pid, SIGKILL);
  }
  detail::Close(pipes.input);
  detail::Close(pipes.output);
  detail::Close(pipes.errors);
  detail::Reap(pid, deadline, result);
  return result;
}

}  // namespace tk::test

#endif  // TAVIK_INSTALLER_TEST_PROCESS_H_
