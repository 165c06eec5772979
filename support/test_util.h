// What the support tests share: a fixture with a fresh directory under /tmp per test,
// removed afterwards (directories a test made read-only are opened up first), with
// small verbs for its files. Brings GoogleTest, <string>, <vector> and <filesystem>
// along. Test code only; not thread-safe.
#ifndef TAVIK_SUPPORT_TEST_UTIL_H_
#define TAVIK_SUPPORT_TEST_UTIL_H_

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tk::test {

inline double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class TempDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tk_support_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    chmod(dir_.c_str(), 0700);
    std::error_code ignored;
    std::filesystem::recursive_directory_iterator it(dir_, ignored), end;
    for (; it != end; it.increment(ignored)) {
      if (it->is_directory() && !it->is_symlink()) chmod(it->path().c_str(), 0700);
    }
    std::filesystem::remove_all(dir_, ignored);
  }

  std::string P(const std::string& name) const { return dir_ + "/" + name; }
  void Write(const std::string& name, const std::string& bytes) const {
    std::ofstream(P(name), std::ios::binary | std::ios::trunc) << bytes;
  }
  std::string Read(const std::string& name) const {
    std::ifstream in(P(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  // Everything below the directory, sorted, directories with a trailing "/".
  std::vector<std::string> Remaining() const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir_)) {
      const std::string name = std::filesystem::relative(e.path(), dir_).string();
      names.push_back(e.is_directory() ? name + "/" : name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string dir_;
};

}  // namespace tk::test

#endif  // TAVIK_SUPPORT_TEST_UTIL_H_
