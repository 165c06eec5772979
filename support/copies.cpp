// Byte-range copies between streams and files of the file-system utilities.
#include "support/copies.h"

#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "support/files.h"

namespace tk {

namespace {

// Copies move data in blocks of this size.
constexpr size_t kCopyBlock = 16384;

using CopyBuffer = std::unique_ptr<char[]>;

CopyBuffer AllocateCopyBuffer() { return CopyBuffer(new (std::nothrow) char[kCopyBlock]); }

// Reads exactly `count` bytes and writes them all; false on any shortfall.
bool MoveBytes(FILE* source, FILE* destination, char* buffer, size_t count) {
  if (fread(buffer, 1, count, source) != count) return false;
  return fwrite(buffer, 1, count, destination) == count;
}

enum class KernelCopy { kDone, kFailed, kUnsupported };

// Lets the kernel move the bytes between the two descriptors, which spares a trip
// through user space for every block (installing a package is mostly such copies).
// kUnsupported when the destination still buffers bytes of its own (they must reach
// the file first, and a failure to write them belongs to whoever wrote them) or when
// the very first attempt is refused (an appending destination, a device, another file
// system on an old kernel): the caller then copies by blocks. Afterwards both streams
// stand where a block copy would leave them.
KernelCopy CopyInKernel(FILE* source, FILE* destination, int64_t offset, int64_t length) {
  if (__fpending(destination) != 0 || __fpending(source) != 0) return KernelCopy::kUnsupported;
  loff_t from = offset;
  for (int64_t left = length; left > 0;) {
    const ssize_t moved = copy_file_range(fileno(source), &from, fileno(destination), nullptr,
                                          static_cast<size_t>(left), 0);
    if (moved < 0 && left == length) return KernelCopy::kUnsupported;
    if (moved <= 0) return KernelCopy::kFailed;  // an error, or the source ended early
    left -= moved;
  }
  const int64_t written = lseek64(fileno(destination), 0, SEEK_CUR);
  if (written < 0 || SeekFile(destination, written, SEEK_SET) != 0) return KernelCopy::kFailed;
  return SeekFile(source, offset + length, SEEK_SET) == 0 ? KernelCopy::kDone : KernelCopy::kFailed;
}

// The copy itself, with the buffer already at hand. A range that starts past the
// end leaves a negative length: nothing can be read there, so the copy fails.
bool CopyRange(FILE* source, FILE* destination, int64_t offset, int64_t length, char* buffer) {
  if (SeekFile(source, 0, SEEK_END) != 0) return false;
  const int64_t size = TellFile(source);
  if (SeekFile(source, offset, SEEK_SET) != 0) return false;
  if (length == -1 || size - offset < length) length = size - offset;
  if (length < 0) return false;
  if (length > 0) {
    const KernelCopy kernel = CopyInKernel(source, destination, offset, length);
    if (kernel != KernelCopy::kUnsupported) return kernel == KernelCopy::kDone;
  }
  const int64_t block = static_cast<int64_t>(kCopyBlock);
  for (int64_t i = 0; i < length / block; ++i) {
    if (!MoveBytes(source, destination, buffer, kCopyBlock)) return false;
  }
  const size_t remainder = static_cast<size_t>(length % block);
  return remainder == 0 || MoveBytes(source, destination, buffer, remainder);
}

// copy_file_range refuses with these when it cannot copy between the two descriptors
// at all (another file system on an older kernel, a device, a pipe, an appending
// destination); the bytes can still travel through user space.
bool KernelRefused(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
         error == EBADF;
}

// Writes all `count` bytes, going on after short writes and interruptions.
bool WriteAll(int fd, const char* bytes, size_t count) {
  while (count > 0) {
    const ssize_t written = write(fd, bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    count -= static_cast<size_t>(written);
  }
  return true;
}

// CopyDescriptorRange through user space: reads at explicit offsets, so that no file
// position but the destination's moves.
bool CopyDescriptorBlocks(int source, int64_t offset, int destination, int64_t length) {
  CopyBuffer buffer = AllocateCopyBuffer();
  if (buffer == nullptr) return false;
  while (length > 0) {
    const size_t want = static_cast<size_t>(std::min(length, static_cast<int64_t>(kCopyBlock)));
    const ssize_t got = pread64(source, buffer.get(), want, offset);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0 || !WriteAll(destination, buffer.get(), static_cast<size_t>(got))) return false;
    offset += got;
    length -= got;
  }
  return true;
}

// CopyFile and AppendFileRange: `destinationMode` decides between replacing and
// appending. The buffer comes first so that a failed allocation touches no file.
int CopyFileRange(const char* source, const char* destination, const char* destinationMode,
                  int64_t offset, int64_t length) {
  if (source == nullptr || *source == '\0' || destination == nullptr || *destination == '\0') {
    return 0;
  }
  CopyBuffer buffer = AllocateCopyBuffer();
  if (buffer == nullptr) return 0;
  UniqueFile in(OpenFile(source, "rb"));
  if (in == nullptr) return 0;
  UniqueFile out(OpenFile(destination, destinationMode));
  if (out == nullptr) return 0;
  const bool copied = CopyRange(in.get(), out.get(), offset, length, buffer.get());
  // The last block may sit in the stream's buffer until the close: a full disk shows
  // only there, and a copy that lost it must not count as done.
  const bool closed = std::fclose(out.release()) == 0;
  return copied && closed ? 1 : 0;
}

}  // namespace

int CopyStreamRange(FILE* source, FILE* destination, int64_t offset, int64_t length) {
  if (source == nullptr || destination == nullptr) return 0;
  CopyBuffer buffer = AllocateCopyBuffer();
  if (buffer == nullptr) return 0;
  return CopyRange(source, destination, offset, length, buffer.get()) ? 1 : 0;
}

int CopyDescriptorRange(int source, int64_t offset, int destination, int64_t length) {
  if (offset < 0 || length < 0) return 0;
  loff_t from = offset;
  for (int64_t left = length; left > 0;) {
    const ssize_t moved =
        copy_file_range(source, &from, destination, nullptr, static_cast<size_t>(left), 0);
    if (moved > 0) {
      left -= moved;
    } else if (moved < 0 && errno == EINTR) {
      continue;
    } else if (moved < 0 && KernelRefused(errno)) {
      return CopyDescriptorBlocks(source, from, destination, left) ? 1 : 0;
    } else {
      return 0;  // an error, or the source ended early
    }
  }
  return 1;
}

int CopyFile(const char* source, const char* destination, int64_t offset, int64_t length) {
  return CopyFileRange(source, destination, "wb", offset, length);
}

int AppendFileRange(const char* source, const char* destination, int64_t offset, int64_t length) {
  return CopyFileRange(source, destination, "a+b", offset, length);
}

}  // namespace tk
