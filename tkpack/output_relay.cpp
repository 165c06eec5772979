#include "tkpack/output_relay.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace tk {

namespace {

constexpr size_t kRelayBlock = 4096;

void CloseDescriptor(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}

}  // namespace

bool OutputRelay::Start() {
  if (running()) return true;
  std::fflush(stdout);
  int ends[2];
  if (pipe(ends) != 0) return false;
  saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  if (saved_ < 0 || dup2(ends[1], STDOUT_FILENO) < 0) {
    CloseDescriptor(saved_);
    close(ends[0]);
    close(ends[1]);
    return false;
  }
  close(ends[1]);
  readEnd_ = ends[0];
  fcntl(readEnd_, F_SETFD, FD_CLOEXEC);
  fcntl(readEnd_, F_SETFL, O_NONBLOCK);
  return true;
}

std::string OutputRelay::Take() {
  std::string text;
  if (readEnd_ < 0) return text;
  char block[kRelayBlock];
  for (;;) {
    const ssize_t count = read(readEnd_, block, sizeof block);
    if (count > 0) {
      text.append(block, static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return text;  // end of the pipe, or nothing more for now
    }
  }
}

void OutputRelay::Pass(const std::string& text) const {
  const int target = saved_ >= 0 ? saved_ : STDOUT_FILENO;
  size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = write(target, text.data() + written, text.size() - written);
    if (count > 0) {
      written += static_cast<size_t>(count);
    } else if (count < 0 && errno != EINTR) {
      return;
    }
  }
}

void OutputRelay::Finish() {
  if (!running()) return;
  std::fflush(stdout);
  dup2(saved_, STDOUT_FILENO);  // closes the last write end of the pipe
  Pass(Take());
  CloseDescriptor(saved_);
  CloseDescriptor(readEnd_);
}

}  // namespace tk
