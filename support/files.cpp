#include "support/files.h"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace tk {

namespace {

constexpr int kOpenRetrySeconds = 10;
constexpr long kOpenRetryPauseMicros = 500000;

bool IsResourceShortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// select() with no descriptors is the sleep; an interrupted wait is tried once more.
void PauseMicros(long micros) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    timeval tv{micros / 1000000, micros % 1000000};
    if (select(0, nullptr, nullptr, nullptr, &tv) == 0) return;
  }
}

}  // namespace

FILE* OpenFile(const char* path, const char* mode) {
  FILE* f = fopen64(path, mode);
  if (f == nullptr && IsResourceShortage(errno)) {
    const time_t first_failure = time(nullptr);
    while (f == nullptr) {
      PauseMicros(kOpenRetryPauseMicros);
      f = fopen64(path, mode);
      if (time(nullptr) - first_failure > kOpenRetrySeconds) break;
    }
  }
  if (f != nullptr) fcntl(fileno(f), F_SETFD, FD_CLOEXEC);
  return f;
}

TempFileGuard::~TempFileGuard() {
  if (!keep_) DeleteFile(path_.c_str());
}

int SeekFile(FILE* stream, int64_t offset, int whence) { return fseeko64(stream, offset, whence); }

int64_t TellFile(FILE* stream) { return ftello64(stream); }

int64_t ParseInt64(const char* text) { return atoll(text); }

void DeleteFile(const char* path) {
  if (path != nullptr && *path != '\0') unlink(path);
}

}  // namespace tk
