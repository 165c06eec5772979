// Directory utilities over POSIX: existence and emptiness, recursive creation and
// removal, prefix-filtered listings and case-insensitive file lookup.
//
// Common rules: directory paths are copied into a 2048-byte buffer (longer paths are cut
// silently) and lose one trailing "/"; an empty directory path means "." (so a walk of
// "/" itself walks "."). Whether an entry is a directory is decided by opening it as
// one, so a link to a directory counts as a directory. Listings skip every name
// beginning with ".". A prefix pattern matches names that begin with it; "*" and ""
// (or null where allowed) match everything. Nothing here prints or throws.
//
// Thread-safe except for errno.
#ifndef TAVIK_SUPPORT_DIRECTORIES_H_
#define TAVIK_SUPPORT_DIRECTORIES_H_

#include <string>
#include <vector>

namespace tk {

// ---- Tests ----------------------------------------------------------------------

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

// ---- Removal and creation -------------------------------------------------------

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

}  // namespace tk

#endif  // TAVIK_SUPPORT_DIRECTORIES_H_
