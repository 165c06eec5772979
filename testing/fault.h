// Fault injection for tests: runs a piece of a test in a forked child whose machine
// misbehaves in one chosen way (files limited in size, no free descriptors, no
// privileges) and brings its findings back through a pipe, so that the test process
// itself is never left crippled.
//
// The child reports a text, normally the result and error text it saw; the parent
// compares it. The child leaves with _exit, so no destructors, exit handlers or leak
// checks of the parent's state run twice. Call these from the test's own thread: a
// forked child holds only the thread that forked.
#ifndef TAVIK_TESTING_FAULT_H_
#define TAVIK_TESTING_FAULT_H_

#include <sys/resource.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tk::test {

// Runs `body` in a forked child and returns the text it returned; nullopt when the child
// could not be started or did not exit normally.
std::optional<std::string> RunInChild(const std::function<std::string()>& body);

// In a child: no file may grow beyond `bytes`. SIGXFSZ is ignored, so a write that
// would pass the limit fails with EFBIG (after writing what fits) instead of killing
// the process, which is how a full disk looks to the code.
bool LimitFileSize(rlim_t bytes);

// In a child: becomes "nobody" when running as root, so that permissions count; a
// process that is not root keeps its identity. False when that cannot be done.
bool DropPrivileges();

// True when a child can run without privileges (tests that need it skip otherwise).
bool CanDropPrivileges();

// In a child: lowers the descriptor limit a little above the lowest free descriptor
// and opens /dev/null until no descriptor is left. Returns the descriptors taken last
// (up to `keep` of them, so that the caller can free them later), or an empty list
// when the table could not be filled cleanly.
std::vector<int> ExhaustDescriptors(std::size_t keep);

}  // namespace tk::test

#endif  // TAVIK_TESTING_FAULT_H_
