// Byte-range copies between streams, descriptors and files, in 16384-byte blocks or by
// the kernel where it can. Offsets and lengths are signed 64-bit. Nothing here prints or
// throws; results say what happened.
//
// Thread-safe as long as two calls do not share a stream or descriptor.
#ifndef TAVIK_SUPPORT_COPIES_H_
#define TAVIK_SUPPORT_COPIES_H_

#include <cstdint>
#include <cstdio>

namespace tk {

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

}  // namespace tk

#endif  // TAVIK_SUPPORT_COPIES_H_
