// File-system utilities over POSIX: opening with a retry when the process runs out
// of descriptors, existence tests, recursive creation and removal of directories,
// prefix-filtered listings, byte-range copies and unique temporary names.
//
// Common rules: directory paths are copied into a 2048-byte buffer (longer paths
// are cut silently) and lose one trailing "/"; an empty directory path means "."
// (so a walk of "/" itself walks "."). Whether an entry is a directory is decided by
// opening it as one, so a link to a directory counts as a directory.
// Listings skip every name beginning with ".". A prefix pattern matches names that
// begin with it; "*" and "" (or null where allowed) match everything. Offsets and
// sizes are signed 64-bit. Nothing here prints or throws; results say what happened
// and errno is left as the last system call set it.
//
// Thread-safe except for errno; MakeTempFileName serialises on its own mutex.
#ifndef TAVIK_SUPPORT_FILES_H_
#define TAVIK_SUPPORT_FILES_H_

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

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

// Owner of a temporary file path: deletes the file when it goes out of scope unless
// Keep() was called. Lets "deleted on every exit" hold by construction.
class TempFileGuard {
 public:
  explicit TempFileGuard(std::string path) : path_(std::move(path)) {}
  ~TempFileGuard();
  TempFileGuard(const TempFileGuard&) = delete;
  TempFileGuard& operator=(const TempFileGuard&) = delete;
  const std::string& path() const { return path_; }
  void Keep() { keep_ = true; }

 private:
  std::string path_;
  bool keep_ = false;
};

// ---- 64-bit offsets ------------------------------------------------------------

// fseeko64 / ftello64 / atoll, arguments and results passed through unchanged.
int SeekFile(FILE* stream, int64_t offset, int whence);
int64_t TellFile(FILE* stream);
int64_t ParseInt64(const char* text);

// ---- Tests ---------------------------------------------------------------------

// 1 when `path` can be opened with mode "rb", else 0 (also for null or ""). A
// directory opens too, so it counts as existing here.
int FileExists(const char* path);

// 1 when `path` opens as a directory, else 0. One trailing "/" and then one trailing
// "\" are ignored; "/" itself (nothing left after that) gives 0.
int DirectoryExists(const char* path);

// 1 when the directory part of `path` holds a file (not a directory) whose name
// equals the file name of `path` ignoring letter case; `path` is then rewritten as
// directory + "/" + the real name ("./NAME" for a bare name). Else 0, `path` as was.
int FileExistsNoCase(std::string& path);

// 1 when the directory holds no entry whose name does not begin with "."; also 1
// for null or a directory that cannot be opened; 0 otherwise.
int DirectoryIsEmpty(const char* path);

// ---- Removal and creation ------------------------------------------------------

// Unlinks `path` unless it is null or ""; failure is ignored.
void DeleteFile(const char* path);

// Unlinks every entry of `directory` that matches the prefix pattern, hidden
// entries included; the path is `directory` exactly as given + the name.
void DeleteFilesByPrefix(const char* directory, const char* pattern);

// Removes the entries of `path` that match the patterns (prefixes; null or "*" =
// all, "" = none of that kind); subdirectories whose names begin with "." are never
// entered, and symbolic links are removed as links, never followed. With
// `removeItself`, removes everything inside and then the directory itself, ignoring
// the patterns. Returns 1 on success (also when `path` is null or
// not a directory) and 0 if anything could not be removed; partial work stays.
int RemoveDirectory(const char* path, bool removeItself, const char* filePattern,
                    const char* dirPattern);

// Creates `path` (mode 0777 less umask). With `singleLevel`, one mkdir; otherwise
// every missing component in turn, after TrimWhitespace and "\" -> "/". Components
// that exist are passed through unchecked: a file in the way fails at the mkdir
// below it, and a file as the last component counts as success. Returns 1 on
// success or when it already exists, 0 on failure (directories made so far stay).
int CreateDirectoryPath(const char* path, bool singleLevel);

// ---- Listings ------------------------------------------------------------------

// Appends to `list` the bare names of the entries of `directory` that match the
// prefix `pattern` (null or "*" = all) and do not open as directories, in the order
// the system returns them. 0 for a null directory; else 1, even when the directory
// cannot be opened (the list is then unchanged).
int ListFiles(const char* directory, const char* pattern, std::vector<std::string>& list);

// As ListFiles, for the entries that do open as directories.
int ListDirectories(const char* directory, const char* pattern, std::vector<std::string>& list);

// `directory` exactly as given + the name of the first entry matching `pattern`
// ("*": the very first entry, "." and ".." included), or "" when none matches.
std::string FindFileByPrefix(const char* directory, const char* pattern);

// 1 when `a` and `b` are equal, byte for byte, after TrimWhitespace and removal of
// every "/" and "\" (both are modified); 0 when they differ or either ends empty.
int SamePath(std::string& a, std::string& b);

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

// ---- Copies --------------------------------------------------------------------

// Copies `length` bytes (-1 or past the end: up to the end) starting at `offset` of
// `source` to the current position of `destination`, in 16384-byte blocks. Returns
// 1, or 0 on a null stream, a failed seek, a short read or a short write; an
// `offset` past the end (nothing to read there) and any other negative `length`
// give 0. Neither stream is closed or rewound.
int CopyStreamRange(FILE* source, FILE* destination, int64_t offset, int64_t length);

// Copies exactly `length` bytes of descriptor `source`, starting at `offset`, to the
// current position of descriptor `destination`; the source's file position does not
// move. The kernel copies (copy_file_range) where it can; where it refuses (another file
// system, a device, a pipe) the rest goes in 16384-byte blocks. Returns 1, or 0 when the
// source ends early, a read or a write fails, or `offset` or `length` is negative; a
// partial copy stays.
int CopyDescriptorRange(int source, int64_t offset, int destination, int64_t length);

// CopyStreamRange from file `source` into file `destination`, created or
// truncated. Returns 1 or 0 (0 also for null or "" paths); a partial copy stays.
int CopyFile(const char* source, const char* destination, int64_t offset, int64_t length);

// As CopyFile, but appends the range to `destination`.
int AppendFileRange(const char* source, const char* destination, int64_t offset, int64_t length);

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
// Serialised on gTempNameMutex, which stays locked if the name buffer cannot be
// allocated.
int MakeTempFileName(std::string& result, std::string& directory, std::string& extension,
                     std::string& prefix, std::string& suffix);

}  // namespace tk

#endif  // TAVIK_SUPPORT_FILES_H_
