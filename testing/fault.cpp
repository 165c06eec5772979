#include "testing/fault.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tk::test {

namespace {

// The user and group of "nobody": who a root test becomes to meet permissions.
constexpr uid_t kUnprivilegedId = 65534;

// How many descriptors above the lowest free one the exhausted table keeps.
constexpr rlim_t kDescriptorHeadroom = 32;

std::string ReadAll(int fd) {
  std::string text;
  char chunk[512];
  for (ssize_t n; (n = read(fd, chunk, sizeof chunk)) != 0;) {
    if (n > 0) text.append(chunk, static_cast<std::size_t>(n));
    if (n < 0 && errno != EINTR) break;
  }
  return text;
}

}  // namespace

std::optional<std::string> RunInChild(const std::function<std::string()>& body) {
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
  const std::string report = ReadAll(pipeFds[0]);
  close(pipeFds[0]);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) ||
      WEXITSTATUS(status) != 0) {
    return std::nullopt;
  }
  return report;
}

bool LimitFileSize(rlim_t bytes) {
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{bytes, bytes};
  return setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

bool DropPrivileges() {
  if (geteuid() != 0) return true;
  return setgroups(0, nullptr) == 0 && setgid(kUnprivilegedId) == 0 &&
         setuid(kUnprivilegedId) == 0 && geteuid() == kUnprivilegedId;
}

bool CanDropPrivileges() {
  return RunInChild([] { return std::string(DropPrivileges() ? "yes" : "no"); }) == "yes";
}

std::vector<int> ExhaustDescriptors(std::size_t keep) {
  std::vector<int> taken;
  const int first = open("/dev/null", O_RDONLY);
  rlimit limit{};
  if (first < 0 || getrlimit(RLIMIT_NOFILE, &limit) != 0) return {};
  limit.rlim_cur = std::min(limit.rlim_max, static_cast<rlim_t>(first) + kDescriptorHeadroom);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return {};
  taken.push_back(first);
  for (int fd; (fd = open("/dev/null", O_RDONLY)) >= 0;) taken.push_back(fd);
  if (errno != EMFILE) return {};
  if (taken.size() > keep) taken.erase(taken.begin(), taken.end() - static_cast<long>(keep));
  return taken;
}

}  // namespace tk::test
