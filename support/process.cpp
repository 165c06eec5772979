#include "support/process.h"

#include <dlfcn.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <string>

#include "support/strings.h"

extern char** environ;

namespace tk {

namespace {

constexpr long kFirstPauseMillis = 1;
constexpr long kMaxPauseMillis = 10000;
constexpr long kCheckDelayMicros = 10000;  // fixed wait before every state test
constexpr int kShellNotFoundCode = 127;    // the shell's "command not found"
constexpr int kExecFailedCode = -1;        // exit(-1): status 255 for the parent

// select() with no descriptors is the sleep; a failed wait (usually EINTR) is tried
// once more and then given up, so a signal storm cannot hold the caller here.
void Pause(long micros) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    timeval tv{micros / 1000000, micros % 1000000};
    if (select(0, nullptr, nullptr, nullptr, &tv) == 0) return;
  }
}

// The pause grows by a tenth of itself plus 1 ms: 1, 2, 3 ... ms, then about ten
// per cent a cycle, so short commands are seen quickly and long ones cost little.
long NextPause(long pauseMillis) {
  const long next = pauseMillis + pauseMillis / 10 + 1;
  return next > kMaxPauseMillis ? kMaxPauseMillis : next;
}

// Replaces the child with "/bin/sh -c command". Only async-signal-safe calls run
// here; _exit rather than exit, so that the parent's unflushed stdio buffers and
// exit handlers are not run a second time in the child.
[[noreturn]] void ExecShell(char* command) {
  char shellName[] = "sh";
  char dashC[] = "-c";
  char* args[] = {shellName, dashC, command, nullptr};
  execve("/bin/sh", args, environ);
  _exit(kExecFailedCode);
}

// Result for a child whose state changed: 0 and its code for a normal end, -1 for a
// signal, a stop, or the shell's 127.
int ResultOfEndedChild(int status, int32_t* exitStatus) {
  if (WIFEXITED(status) && WEXITSTATUS(status) != kShellNotFoundCode) {
    *exitStatus = WEXITSTATUS(status);
    return 0;
  }
  return -1;
}

bool TimeoutPassed(uint32_t timeoutSeconds, time_t start) {
  if (timeoutSeconds == kRunWaitForever) return false;
  const int64_t elapsed = static_cast<int64_t>(time(nullptr) - start);
  return elapsed > static_cast<int64_t>(timeoutSeconds);
}

// Polls the child until it ends, the time-out passes, or (time-out 0) at once.
int WaitForChild(pid_t pid, int32_t* exitStatus, uint32_t timeoutSeconds) {
  long pauseMillis = kFirstPauseMillis;
  const time_t start = time(nullptr);
  for (;;) {
    Pause(kCheckDelayMicros);
    int status = 0;
    const pid_t changed = waitpid(pid, &status, WNOHANG | WUNTRACED);
    if (changed < 0) return -1;
    if (changed != 0) return ResultOfEndedChild(status, exitStatus);
    if (timeoutSeconds == kRunNoWait) return 0;
    if (TimeoutPassed(timeoutSeconds, start)) {
      kill(pid, SIGTERM);
      waitpid(pid, &status, 0);
      return -2;
    }
    Pause(pauseMillis * 1000);
    pauseMillis = NextPause(pauseMillis);
  }
}

}  // namespace

int RunCommand(const char* command, int32_t* exitStatus, uint32_t timeoutSeconds) {
  int32_t ignoredStatus = 0;
  if (exitStatus == nullptr) exitStatus = &ignoredStatus;
  *exitStatus = 0;
  if (command == nullptr) return -1;

  std::string cleaned(command);
  NormalizeWhitespace(cleaned);
  if (cleaned.empty()) return -1;
  char line[kMaxCommandLength + 1];
  const size_t length = cleaned.size() < sizeof line ? cleaned.size() : sizeof line - 1;
  std::memcpy(line, cleaned.data(), length);
  line[length] = '\0';

  const pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) ExecShell(line);
  return WaitForChild(pid, exitStatus, timeoutSeconds);
}

void* OpenSharedLibrary(const char* fileName) {
  if (fileName == nullptr || *fileName == '\0') return nullptr;
  return dlopen(fileName, RTLD_LAZY);
}

void* FindSharedSymbol(void* handle, const char* name) {
  if (handle == nullptr || name == nullptr || *name == '\0') return nullptr;
  return dlsym(handle, name);
}

void CloseSharedLibrary(void* handle) {
  if (handle != nullptr) dlclose(handle);
}

}  // namespace tk
