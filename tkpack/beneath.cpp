#include "tkpack/beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <vector>

namespace tk {

namespace {

// openat2 may ask to try again when a rename raced with the lookup.
constexpr int kRaceRetries = 8;

std::atomic<bool> gComponentWalk{false};

std::vector<std::string> Components(const std::string& relative) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (start <= relative.size()) {
    std::size_t end = relative.find('/', start);
    if (end == std::string::npos) end = relative.size();
    const std::string part = relative.substr(start, end - start);
    if (!part.empty() && part != ".") parts.push_back(part);
    start = end + 1;
  }
  return parts;
}

// -1 with errno ENOSYS where the kernel has no openat2.
int OpenWithKernel(int root, const std::string& relative, int flags, mode_t mode) {
  open_how how{};
  how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
  how.mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? mode : 0;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  const std::string path = relative.empty() ? "." : relative;
  for (int attempt = 0;; ++attempt) {
    const long fd = syscall(SYS_openat2, root, path.c_str(), &how, sizeof how);
    if (fd >= 0 || errno != EAGAIN || attempt == kRaceRetries) return static_cast<int>(fd);
  }
}

// Every directory on the way is opened with O_NOFOLLOW, so a link there fails (ELOOP
// or ENOTDIR, reported as ELOOP); so does a link as the last component; ".." is never
// taken.
int OpenByComponents(int root, const std::string& relative, int flags, mode_t mode) {
  const std::vector<std::string> parts = Components(relative);
  int current = dup(root);
  for (std::size_t i = 0; current >= 0 && i < parts.size(); ++i) {
    if (parts[i] == "..") {
      close(current);
      errno = EXDEV;
      return -1;
    }
    const bool last = i + 1 == parts.size();
    const int next =
        last ? openat(current, parts[i].c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode)
             : openat(current, parts[i].c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const int error = errno;
    close(current);
    errno = !last && error == ENOTDIR ? ELOOP : error;
    current = next;
  }
  if (current >= 0 && parts.empty()) {
    const int reopened = openat(current, ".", flags | O_CLOEXEC, mode);
    close(current);
    return reopened;
  }
  return current;
}

}  // namespace

int OpenBeneath(int root, const std::string& relative, int flags, mode_t mode) {
  if (!gComponentWalk.load(std::memory_order_relaxed)) {
    const int fd = OpenWithKernel(root, relative, flags, mode);
    if (fd >= 0 || errno != ENOSYS) return fd;
    gComponentWalk.store(true, std::memory_order_relaxed);
  }
  return OpenByComponents(root, relative, flags, mode);
}

bool LeftBeneath(int error) { return error == EXDEV || error == ELOOP; }

void UseComponentWalk(bool on) { gComponentWalk.store(on, std::memory_order_relaxed); }

void SplitLast(const std::string& relative, std::string& directory, std::string& last) {
  std::string path = relative;
  while (!path.empty() && path.back() == '/') path.pop_back();
  const std::size_t slash = path.rfind('/');
  directory = slash == std::string::npos ? "" : path.substr(0, slash);
  last = slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace tk
