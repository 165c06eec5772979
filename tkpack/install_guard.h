// What `tkpack install` checks before it writes anything, so that a hostile or damaged
// package is refused whole instead of half installed. Every problem that `tkpack verify`
// finds counts (a name with a ".." component or an absolute one, a record that would act
// on the working directory because no [Dir] came before it, a malformed record, a bad
// magic line); and against the destination as it stands now:
//   - a path that runs through a symbolic link leading outside the destination (a link
//     to a directory on the way, or a link in place of the file itself);
//   - a file that [File], [Exec] or [TextFile] would change, or one that [TextDir] would
//     rewrite, that has other hard links (they may stand outside the destination).
// [RemoveFile] removes a link in place of a file as a link, so only the directory it
// removes from is checked. Each hazard reads like verify's problems: "record N at byte
// B: [Kind] target: what".
//
// Not thread-safe: one walk per reader.
#ifndef TAVIK_TKPACK_INSTALL_GUARD_H_
#define TAVIK_TKPACK_INSTALL_GUARD_H_

#include <cstdio>
#include <string>
#include <vector>

#include "package/package.h"
#include "package/record_reader.h"
#include "tkpack/record_report.h"

namespace tk {

// Walks every record of `reader` (at the stream's start) as verify does, checking the
// paths against `destination` (the directory the records install into; it may not
// exist yet, and then only the records themselves are checked). The report's problems
// are the hazards, in stream order.
VerifyReport FindInstallHazards(PackageRecordReader& reader, const std::string& destination);

// The checked installation of a decoded package: FindInstallHazards over `stream` (open
// for reading at its start); with no hazard, TkPackage::InstallStream of the stream into
// `destination` through a BeneathInstallTree, its progress lines printed when `verbose`.
// True when installed; false with `hazards` holding why it was refused (nothing was
// written then), or with no hazard and `package`'s error text saying what failed.
bool InstallChecked(FILE* stream, const std::string& packagePath, const std::string& destination,
                    bool verbose, TkPackage& package, VerifyReport& hazards);

}  // namespace tk

#endif  // TAVIK_TKPACK_INSTALL_GUARD_H_
