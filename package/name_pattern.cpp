#include "package/name_pattern.h"

namespace tk {

bool IsWildcardPattern(const std::string& pattern) {
  return !pattern.empty() && (pattern.front() == '*' || pattern.back() == '*');
}

bool MatchesNamePattern(const std::string& pattern, const std::string& name) {
  if (pattern.empty()) return false;
  if (pattern == "*") return true;
  if (pattern.front() == '*') return name.ends_with(pattern.substr(1));
  if (pattern.back() == '*') return name.starts_with(pattern.substr(0, pattern.size() - 1));
  return name == pattern;
}

bool MatchesAnyPattern(const std::vector<std::string>* patterns, const std::string& name) {
  if (patterns == nullptr) return false;
  for (const std::string& pattern : *patterns) {
    if (MatchesNamePattern(pattern, name)) return true;
  }
  return false;
}

}  // namespace tk
