#include "testing/child_process.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

extern char** environ;

namespace tk::test {

namespace {

using Clock = std::chrono::steady_clock;

// How often a running child is looked at.
constexpr auto kPollInterval = std::chrono::milliseconds(1);

// The child's three standard streams live in memory files: the input is there before
// the child starts, and the outputs are read once it has ended, so no pipe can fill
// up or break while the two processes wait for each other.
struct MemoryFile {
  explicit MemoryFile(const std::string& bytes) : fd(memfd_create("child", MFD_CLOEXEC)) {
    if (fd >= 0 && !bytes.empty())
      ok = pwrite(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
  }
  ~MemoryFile() {
    if (fd >= 0) close(fd);
  }
  off_t Size() const {
    struct stat info {};
    return fstat(fd, &info) == 0 ? info.st_size : 0;
  }
  std::string Contents() const {
    std::string bytes(static_cast<std::size_t>(Size()), '\0');
    const ssize_t got = pread(fd, bytes.data(), bytes.size(), 0);
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
  }
  int fd;
  bool ok = true;
};

std::vector<std::string> ChildEnvironment(const ChildRun& run) {
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

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

// Waits for the child, killing it at the deadline or when its output grows too large.
int Reap(pid_t pid, const ChildRun& run, const MemoryFile& out, ChildResult& result) {
  const auto deadline = Clock::now() + std::chrono::seconds(run.timeoutSeconds);
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (Clock::now() >= deadline || static_cast<std::size_t>(out.Size()) > run.stopAfterBytes) {
      result.killed = true;
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      break;
    }
    std::this_thread::sleep_for(kPollInterval);
  }
  return status;
}

}  // namespace

ChildResult RunChild(const ChildRun& run) {
  ChildResult result;
  const MemoryFile in(run.input), out(""), err("");
  if (in.fd < 0 || out.fd < 0 || err.fd < 0 || !in.ok) return result;
  std::vector<std::string> arguments = run.arguments;
  std::vector<std::string> environment = ChildEnvironment(run);
  const std::vector<char*> argv = Pointers(arguments);
  const std::vector<char*> envp = Pointers(environment);
  const pid_t pid = fork();
  if (pid < 0) return result;
  if (pid == 0) {  // only async-signal-safe calls between fork and exec
    if (!run.workDirectory.empty() && chdir(run.workDirectory.c_str()) != 0) _exit(126);
    dup2(in.fd, 0);
    dup2(out.fd, 1);
    dup2(err.fd, 2);
    execve(run.program.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  const int status = Reap(pid, run, out, result);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  result.out = out.Contents();
  result.err = err.Contents();
  return result;
}

}  // namespace tk::test
