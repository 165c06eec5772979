// Helpers of the fault-injection tests (support/, lzhuf/ and package/
// fault_injection_test.cpp): they run a piece of a test in a forked child whose machine
// misbehaves in one chosen way — files limited in size, no free descriptors, no
// privileges — and bring its findings back through a pipe, so that the test process
// itself is never left crippled.
//
// The child reports a text, normally the result and error text it saw; the parent
// compares it. The child leaves with _exit, so no destructors, exit handlers or leak
// checks of the parent's state run twice. Call these from the test's own thread: a
// forked child holds only the thread that forked.
#ifndef TAVIK_SUPPORT_FAULT_INJECTION_FIXTURE_H_
#define TAVIK_SUPPORT_FAULT_INJECTION_FIXTURE_H_

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tk::fault {

// The user and group of "nobody": who a root test becomes to meet permissions.
constexpr uid_t kUnprivilegedId = 65534;

// Runs `body` in a forked child and returns the text it returned; nullopt when the child
// could not be started or did not exit normally.
inline std::optional<std::string> RunInChild(const std::function<std::string()>& body) {
  int pipeFds[2];
  if (pipe(pipeFds) != 0) return std::nullopt;
  const pid_t pid = fork();
  if (pid == 0) {
    close(pipeFds[0]);
    const std::string report = body();
    const bool written =
        write(pipeFds[1], report.data(), report.size()) == static_cast<ssize_t>(report.size());
    _exit(written ? 0 : 1);
  }
  close(pipeFds[1]);
  std::string report;
  char chunk[512];
  for (ssize_t n; (n = read(pipeFds[0], chunk, sizeof chunk)) != 0;) {
    if (n > 0) report.append(chunk, static_cast<size_t>(n));
    if (n < 0 && errno != EINTR) break;
  }
  close(pipeFds[0]);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) ||
      WEXITSTATUS(status) != 0) {
    return std::nullopt;
  }
  return report;
}

// In a child: no file may grow beyond `bytes`. SIGXFSZ is ignored, so a write that
// would pass the limit fails with EFBIG (after writing what fits) instead of killing
// the process, which is how a full disk looks to the code.
inline bool LimitFileSize(rlim_t bytes) {
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{bytes, bytes};
  return setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

// In a child: becomes "nobody" when running as root, so that permissions count; a
// process that is not root keeps its identity. False when that cannot be done.
inline bool DropPrivileges() {
  if (geteuid() != 0) return true;
  return setgroups(0, nullptr) == 0 && setgid(kUnprivilegedId) == 0 &&
         setuid(kUnprivilegedId) == 0 && geteuid() == kUnprivilegedId;
}

// True when a child can run without privileges (tests that need it skip otherwise).
inline bool CanDropPrivileges() {
  return RunInChild([] { return std::string(DropPrivileges() ? "yes" : "no"); }) == "yes";
}

// In a child: lowers the descriptor limit a little above the lowest free descriptor
// and opens /dev/null until no descriptor is left. Returns the descriptors taken last
// (up to `keep` of them, so that the caller can free them later), or an empty list
// when the table could not be filled cleanly.
inline std::vector<int> ExhaustDescriptors(size_t keep) {
  std::vector<int> taken;
  const int first = open("/dev/null", O_RDONLY);
  rlimit limit{};
  if (first < 0 || getrlimit(RLIMIT_NOFILE, &limit) != 0) return {};
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, static_cast<rlim_t>(first) + 32);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return {};
  taken.push_back(first);
  for (int fd; (fd = open("/dev/null", O_RDONLY)) >= 0;) taken.push_back(fd);
  if (errno != EMFILE) return {};
  if (taken.size() > keep) taken.erase(taken.begin(), taken.end() - static_cast<long>(keep));
  return taken;
}

}  // namespace tk::fault

#endif  // TAVIK_SUPPORT_FAULT_INJECTION_FIXTURE_H_
