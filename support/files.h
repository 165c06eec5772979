// File utilities over POSIX: opening with a retry when the process runs out of
// descriptors, owners that close and delete on every way out, 64-bit offsets, existence
// tests, line and pattern reading, sizes and unique temporary names. Directories are in
// directories.h, byte-range copies in copies.h.
//
// Offsets and sizes are signed 64-bit. Nothing here prints or throws; results say what
// happened and errno is left as the last system call set it.
//
// Thread-safe except for errno; MakeTempFileName serialises on its own mutex.
#ifndef TAVIK_SUPPORT_FILES_H_
#define TAVIK_SUPPORT_FILES_H_

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace tk {

// ---- Opening and closing -------------------------------------------------------

// fopen64 with `mode`. When the open fails for want of descriptors or memory
// (EMFILE, ENFILE, ENOMEM) it retries every 0.5 s for up to 10 s; other errors fail
// at once. The descriptor is marked close-on-exec. Returns the stream or null.
FILE* OpenFile(const char* path, const char* mode);

// open(2) of `path` with `flags` (O_WRONLY | O_CREAT | O_TRUNC, ...) plus O_CLOEXEC, and
// `mode` for a file it creates (less the umask); retries as OpenFile does when
// descriptors or memory run out. Returns the descriptor, or -1 with errno set.
int OpenDescriptor(const char* path, int flags, mode_t mode);

// Owner of an open descriptor: closes it when it goes out of scope. Close() closes it
// at once and returns close's result, so that a late write error is not lost.
class UniqueDescriptor {
 public:
  explicit UniqueDescriptor(int fd) : fd_(fd) {}
  ~UniqueDescriptor();
  UniqueDescriptor(const UniqueDescriptor&) = delete;
  UniqueDescriptor& operator=(const UniqueDescriptor&) = delete;
  int get() const { return fd_; }
  int Close();

 private:
  int fd_;
};

// Owner of an open stream: closes it when it goes out of scope.
struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

// Owner of a temporary file path: deletes the file when it goes out of scope. Lets
// "deleted on every exit" hold by construction.
class TempFileGuard {
 public:
  explicit TempFileGuard(std::string path) : path_(std::move(path)) {}
  ~TempFileGuard();
  TempFileGuard(const TempFileGuard&) = delete;
  TempFileGuard& operator=(const TempFileGuard&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// ---- 64-bit offsets ------------------------------------------------------------

// fseeko64 / ftello64, arguments and results passed through unchanged.
int SeekFile(FILE* stream, int64_t offset, int whence);
int64_t TellFile(FILE* stream);

// ---- Tests ----------------------------------------------------------------------

// 1 when `path` can be opened with mode "rb", else 0 (also for null or ""). A
// directory opens too, so it counts as existing here.
int FileExists(const char* path);

// 1 when `a` and `b` are equal, byte for byte, after TrimWhitespace and removal of
// every "/" and "\" (both are modified); 0 when they differ or either ends empty.
int SamePath(std::string& a, std::string& b);

// ---- Removal --------------------------------------------------------------------

// Unlinks `path` unless it is null or ""; failure is ignored.
void DeleteFile(const char* path);

// ---- Reading -------------------------------------------------------------------

// fgets with a limit of size - 1 (so at most size - 2 characters), then one trailing
// LF and after it one trailing CR are removed: "abc\r\n" and "abc\n" both give
// "abc", "\n" gives "". Returns the length read before stripping, 0 at end of file
// or error; a longer line comes back in pieces.
int ReadTextLine(char* buffer, int size, FILE* stream);

// Offset of the first occurrence of `text` from the stream's position, leaving the
// stream there; 0xFFFFFFFF when not found or `text` is empty. A NUL byte in the data
// hides the rest of the block it was read in.
uint32_t FindInStream(FILE* stream, const char* text);

// ---- Sizes ----------------------------------------------------------------------

// Size of the stream in bytes; the position is kept.
int64_t StreamSize(FILE* stream);

// Size of the file in bytes, 0 when it cannot be opened.
int64_t FileSize(const char* path);

// ---- Temporary names -----------------------------------------------------------

// Creates a new empty file named directory/prefix + counter (8 hex) + pid (4 hex) +
// rand() (4 hex) + suffix [+ "." + extension] and stores its name in `result`
// (widths are minimums; one leading "." of the extension is dropped, so "txt" and
// ".txt" give the same kind of name). All four inputs are trimmed in place and the
// directory gets its trailing "/". An empty directory means the current one.
// Returns 1 on success, 0 after ten failed creations (`result` is then "").
// Serialised on gTempNameMutex, which stays locked (every later call then blocks) if
// the name buffer cannot be allocated
// (FilesTest.MakeTempFileNameKeepsTheMutexLockedWithoutANameBuffer).
int MakeTempFileName(std::string& result, std::string& directory, std::string& extension,
                     std::string& prefix, std::string& suffix);

}  // namespace tk

#endif  // TAVIK_SUPPORT_FILES_H_
