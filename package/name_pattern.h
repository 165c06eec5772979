// The name patterns of packages: [RemoveFile] names at installation and the exclusion
// lists of a directory capture. A pattern is tested against a bare name, never a path:
//   "*"        every name;
//   "*suffix"  names ending with suffix (a leading "*" wins, so "*tmp*" means names
//              ending in "tmp*", the last star taken literally);
//   "prefix*"  names beginning with prefix;
//   otherwise  only the identical name; "" matches nothing.
// Comparison is byte for byte and case-sensitive.
//
// Thread-safe: pure functions.
#ifndef TAVIK_PACKAGE_NAME_PATTERN_H_
#define TAVIK_PACKAGE_NAME_PATTERN_H_

#include <string>
#include <vector>

namespace tk {

// True when `pattern` is a wildcard: "*" alone, or beginning or ending with "*".
bool IsWildcardPattern(const std::string& pattern);

// True when `pattern` matches the bare `name` by the rules above.
bool MatchesNamePattern(const std::string& pattern, const std::string& name);

// True when any pattern of `patterns` matches `name`; false for a null list.
bool MatchesAnyPattern(const std::vector<std::string>* patterns, const std::string& name);

}  // namespace tk

#endif  // TAVIK_PACKAGE_NAME_PATTERN_H_
