// Opening paths below a directory without ever leaving it. Symbolic links are followed
// only while they stay below the directory, ".." never climbs out of it and absolute
// links are refused. On Linux 5.6 and later the kernel keeps the path below by itself
// (openat2 with RESOLVE_BENEATH); where openat2 is missing, the path is walked one
// component at a time with O_NOFOLLOW, which refuses every symbolic link on the way.
//
// Thread-safe, but the choice of the component walk (UseComponentWalk) is process-wide.
#ifndef TAVIK_TKPACK_BENEATH_H_
#define TAVIK_TKPACK_BENEATH_H_

#include <sys/types.h>

#include <string>

namespace tk {

// openat(root, relative, flags, mode) with the path kept below the directory `root`
// ("" or "." is `root` itself; "/" separates components, empty ones are skipped). The
// descriptor (close-on-exec), or -1 with errno: EXDEV when the path would leave `root`
// (a ".." that climbs out, an absolute link, a link that leads outside), ELOOP for a
// symbolic link that the component walk refuses, else what open(2) says.
int OpenBeneath(int root, const std::string& relative, int flags, mode_t mode = 0);

// True when errno, after a failed OpenBeneath, says that the path would have left the
// directory (EXDEV, or ELOOP where the component walk refused a link).
bool LeftBeneath(int error);

// Makes OpenBeneath walk component by component even where openat2 exists, so that the
// fallback can be tested; false goes back to openat2 where the kernel has it.
void UseComponentWalk(bool on);

// The directory part and the last component of `relative`: "a/b/c" -> "a/b", "c";
// "c" -> "", "c". Trailing "/" are ignored.
void SplitLast(const std::string& relative, std::string& directory, std::string& last);

}  // namespace tk

#endif  // TAVIK_TKPACK_BENEATH_H_
