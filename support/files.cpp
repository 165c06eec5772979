// Opening, existence of files, line and pattern reading, sizes and temporary names
// of the file-system utilities; directories are in directories.cpp, copies in copies.cpp.
//
// MakeTempFileName locks and unlocks gTempNameMutex by hand, not through TkLockGuard:
// its way out when the name buffer cannot be allocated leaves the mutex locked, which
// a guard would undo. No other code of the support library takes a lock.
#include "support/files.h"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "runtime/sync.h"
#include "support/strings.h"

namespace tk {

namespace {

constexpr int kOpenRetrySeconds = 10;
constexpr long kOpenRetryPauseMicros = 500000;

// FindInStream reads the text's length plus this much less one byte at a time.
constexpr size_t kSearchWindow = 1024;
constexpr uint32_t kNotFound = 0xFFFFFFFF;

// MakeTempFileName: room for the counter, pid, rand() and the dots on top of the
// inputs, and the number of failed creations it accepts.
constexpr size_t kTempNameSlack = 512;
constexpr int kTempNameAttempts = 10;

// Counter of MakeTempFileName, guarded by gTempNameMutex.
uint32_t gTempNameCounter = 0;

bool IsResourceShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

// select() with no descriptors is the sleep; an interrupted wait is tried once more.
void PauseMicros(long micros) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    timeval tv{micros / 1000000, micros % 1000000};
    if (select(0, nullptr, nullptr, nullptr, &tv) == 0) return;
  }
}

// The candidate name: directory (with its "/"), prefix, counter, pid, rand(),
// suffix, then "." and the extension without one leading dot, if anything is left.
void ComposeTempName(char* name, size_t capacity, const std::string& directory,
                     const std::string& extension, const std::string& prefix,
                     const std::string& suffix) {
  int used = snprintf(name, capacity, "%s%s%08x%04x%04x%s", directory.c_str(), prefix.c_str(),
                      gTempNameCounter, static_cast<unsigned>(getpid()),
                      static_cast<unsigned>(rand()), suffix.c_str());
  const char* ext = extension.c_str();
  if (*ext == '.') ++ext;
  if (*ext != '\0' && used > 0 && static_cast<size_t>(used) < capacity) {
    snprintf(name + used, capacity - used, ".%s", ext);
  }
}

// Tries names until one is created (1) or ten creations failed (0). A name that
// already exists costs no attempt.
int CreateUniqueFile(char* name, size_t capacity, const std::string& directory,
                     const std::string& extension, const std::string& prefix,
                     const std::string& suffix) {
  for (int failures = 0;;) {
    ComposeTempName(name, capacity, directory, extension, prefix, suffix);
    if (UniqueFile existing{OpenFile(name, "r")}) {
      ++gTempNameCounter;
      continue;
    }
    if (UniqueFile created{OpenFile(name, "w")}) return 1;
    if (++failures >= kTempNameAttempts) return 0;
    ++gTempNameCounter;
  }
}

// Calls `open` until it gives something other than `failed`. Once an open has failed
// for want of descriptors or memory, it is tried again every 0.5 s until more than
// kOpenRetrySeconds have passed; any other first failure is final.
template <typename Result, typename Open>
Result OpenWithRetry(Open open, Result failed) {
  Result result = open();
  if (result == failed && IsResourceShortage(errno)) {
    const time_t first_failure = time(nullptr);
    while (result == failed) {
      PauseMicros(kOpenRetryPauseMicros);
      result = open();
      if (time(nullptr) - first_failure > kOpenRetrySeconds) break;
    }
  }
  return result;
}

}  // namespace

FILE* OpenFile(const char* path, const char* mode) {
  // The "e" flag opens the descriptor close-on-exec in the same call, so programs
  // started later never inherit it and no second system call is spent per file.
  const std::string closeOnExec = std::string(mode) + "e";
  return OpenWithRetry([&] { return fopen64(path, closeOnExec.c_str()); },
                       static_cast<FILE*>(nullptr));
}

int OpenDescriptor(const char* path, int flags, mode_t mode) {
  return OpenWithRetry([&] { return open(path, flags | O_CLOEXEC, mode); }, -1);
}

UniqueDescriptor::~UniqueDescriptor() {
  if (fd_ >= 0) close(fd_);
}

int UniqueDescriptor::Close() {
  const int fd = fd_;
  fd_ = -1;
  return close(fd);
}

TempFileGuard::~TempFileGuard() { DeleteFile(path_.c_str()); }

int SeekFile(FILE* stream, int64_t offset, int whence) { return fseeko64(stream, offset, whence); }

int64_t TellFile(FILE* stream) { return ftello64(stream); }

void DeleteFile(const char* path) {
  if (path != nullptr && *path != '\0') unlink(path);
}

int FileExists(const char* path) {
  if (path == nullptr || *path == '\0') return 0;
  UniqueFile f(OpenFile(path, "rb"));
  return f != nullptr ? 1 : 0;
}

int SamePath(std::string& a, std::string& b) {
  for (std::string* s : {&a, &b}) {
    NormalizeWhitespace(*s);
    std::erase_if(*s, [](char c) { return c == '/' || c == '\\'; });
  }
  if (a.empty() || b.empty()) return 0;
  return a == b ? 1 : 0;
}

int ReadTextLine(char* buffer, int size, FILE* stream) {
  // fgets is given size - 1, so at most size - 2 characters come back at a time:
  // "abcdef\n" with size 5 reads as "abc", "def", "" (FilesTest.ReadTextLineStripsOneLineEnd).
  const int limit = size > 0 ? size - 1 : 0;
  if (limit <= 0 || fgets(buffer, limit, stream) == nullptr) return 0;
  size_t length = std::strlen(buffer);
  const int read = static_cast<int>(length);
  if (length > 0 && buffer[length - 1] == '\n') buffer[--length] = '\0';
  if (length > 0 && buffer[length - 1] == '\r') buffer[--length] = '\0';
  return read;
}

uint32_t FindInStream(FILE* stream, const char* text) {
  if (text == nullptr || *text == '\0') return kNotFound;
  const size_t length = std::strlen(text);
  const size_t chunk = length + kSearchWindow - 1;
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[chunk + 1]);
  if (buffer == nullptr) return kNotFound;
  for (;;) {
    const size_t got = fread(buffer.get(), 1, chunk, stream);
    buffer[got] = '\0';
    if (const char* hit = std::strstr(buffer.get(), text)) {
      const int64_t at = TellFile(stream) - static_cast<int64_t>(got) + (hit - buffer.get());
      SeekFile(stream, at, SEEK_SET);
      return static_cast<uint32_t>(at);
    }
    if (got < chunk) return kNotFound;
    // Step back so that an occurrence split between two reads is found whole.
    SeekFile(stream, -static_cast<int64_t>(length), SEEK_CUR);
  }
}

int64_t StreamSize(FILE* stream) {
  const int64_t position = TellFile(stream);
  SeekFile(stream, 0, SEEK_END);
  const int64_t size = TellFile(stream);
  SeekFile(stream, position, SEEK_SET);
  return size;
}

int64_t FileSize(const char* path) {
  if (path == nullptr) return 0;
  UniqueFile f(OpenFile(path, "rb"));
  if (f == nullptr) return 0;
  SeekFile(f.get(), 0, SEEK_END);
  return TellFile(f.get());
}

int MakeTempFileName(std::string& result, std::string& directory, std::string& extension,
                     std::string& prefix, std::string& suffix) {
  for (std::string* s : {&directory, &extension, &prefix, &suffix}) {
    NormalizeWhitespace(*s);
  }
  gTempNameMutex.Lock();
  AddTrailingSlash(directory);
  result.clear();
  const size_t capacity =
      directory.size() + extension.size() + prefix.size() + suffix.size() + kTempNameSlack;
  std::unique_ptr<char[]> name(new (std::nothrow) char[capacity]);
  // Without a name buffer the result is 0 and gTempNameMutex stays locked, so every
  // later call blocks (FilesTest.MakeTempFileNameKeepsTheMutexLockedWithoutANameBuffer).
  if (name == nullptr) return 0;
  const int created = CreateUniqueFile(name.get(), capacity, directory, extension, prefix, suffix);
  ++gTempNameCounter;
  if (created) result = name.get();
  gTempNameMutex.Unlock();
  return created;
}

}  // namespace tk
