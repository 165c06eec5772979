// Shared pieces of the libFuzzer targets and of their seed generator: scratch
// directories that go away with their owner (testing/temp_dir.h), the small
// source tree and description that the description fuzzer and the seeds are made from,
// and the way a target stops when one of its expectations does not hold.
//
// Scratch directories live below $TMPDIR (fuzz/run points it into the build tree) or
// /tmp, so a run that dies leaves its files where the next run cleans them up.
//
// Not thread-safe: libFuzzer calls a target from one thread.
#ifndef TAVIK_FUZZ_FUZZ_SUPPORT_H_
#define TAVIK_FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "testing/temp_dir.h"

namespace tk::fuzz {

// A fresh directory, $TMPDIR/tk_fuzz_TAG.XXXXXX, removed with its content when the
// object goes out of scope; a directory that cannot be made stops the run.
class ScratchDirectory : public test::TempDir {
 public:
  explicit ScratchDirectory(const std::string& tag);
};

using test::ReadWholeFile;
using test::WriteWholeFile;

// Removes everything below `path` and `path` itself; a missing path is fine.
void RemoveTree(const std::string& path);

// Number of entries (files and directories) below `path`, recursively; -1 on error.
int CountEntries(const std::string& path);

// The input bytes as a string (the bytes are copied).
inline std::string AsString(const uint8_t* data, size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// Builds below `base` the fixed source tree that kSeedDescription and the description
// fuzzer name: Bin/, Conf/, Doc/, Lib/ (with a subdirectory), Scripts/ and top.txt.
// A file in Conf holds text that looks like records, so that a package built from the
// tree carries a [File] whose content must not be taken for records.
void MakeSourceTree(const std::string& base);

// A description that uses every command of the description language over the tree of
// MakeSourceTree and builds into an installable package.
extern const char* const kSeedDescription;

// A description whose package the installer rejects: a perl script to be encoded is
// written as a [File] record without name or size.
extern const char* const kPerlSeedDescription;

// True when `text` begins with one of `prefixes`.
bool StartsWithAny(const std::string& text, std::initializer_list<const char*> prefixes);

// When `ok` is false: prints "fuzz expectation failed: " + what + detail to standard
// error and aborts, which libFuzzer reports as a crash and saves the input for.
void Expect(bool ok, const char* what, const std::string& detail = "");

}  // namespace tk::fuzz

#endif  // TAVIK_FUZZ_FUZZ_SUPPORT_H_
