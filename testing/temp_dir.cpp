#include "testing/temp_dir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace tk::test {

namespace fs = std::filesystem;

namespace {

std::string TempRoot() {
  std::error_code error;
  const fs::path root = fs::temp_directory_path(error);
  return error ? std::string("/tmp") : root.string();
}

// Directories a test made unreadable or unwritable would stop the removal.
void OpenUp(const std::string& root) {
  chmod(root.c_str(), 0700);
  std::error_code ignored;
  for (fs::recursive_directory_iterator it(root, ignored), end; it != end; it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) chmod(it->path().c_str(), 0700);
  }
}

std::string ModeAndBytes(const fs::path& path, const std::string& bytes) {
  struct stat info {};
  stat(path.c_str(), &info);
  std::ostringstream text;
  text << std::oct << (info.st_mode & 07777) << ":" << bytes;
  return text.str();
}

}  // namespace

TempDir::TempDir(const std::string& tag, const std::string& parent) {
  const std::string root = parent.empty() ? TempRoot() : parent;
  std::error_code ignored;
  fs::create_directories(root, ignored);
  std::string pattern = root + "/tk_" + tag + ".XXXXXX";
  if (mkdtemp(pattern.data()) != nullptr) root_ = pattern;
}

TempDir::~TempDir() {
  if (root_.empty()) return;
  OpenUp(root_);
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string TempDir::Path(const std::string& relative) const {
  if (relative.starts_with("/")) return relative;
  return relative.empty() ? root_ : root_ + "/" + relative;
}

bool WriteWholeFile(const std::string& file, std::string_view bytes) {
  const fs::path path = file;
  std::error_code ignored;
  fs::create_directories(path.parent_path(), ignored);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  return out.good();
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

bool TempDir::Exists(const std::string& relative) const {
  struct stat info {};
  return lstat(Path(relative).c_str(), &info) == 0;
}

Tree TempDir::Snapshot(const std::string& relative) const {
  Tree tree;
  const fs::path top = Path(relative);
  for (const auto& entry : fs::recursive_directory_iterator(top)) {
    const std::string name = entry.path().lexically_relative(top).string();
    if (entry.is_symlink()) {
      tree[name] = "->" + fs::read_symlink(entry.path()).string();
    } else {
      tree[name] =
          entry.is_directory() ? "dir" : ModeAndBytes(entry.path(), ReadWholeFile(entry.path()));
    }
  }
  return tree;
}

std::vector<std::string> TempDir::Listing(const std::string& relative) const {
  std::vector<std::string> names;
  for (const auto& [name, what] : Snapshot(relative)) {
    names.push_back(what == "dir" ? name + "/" : name);
  }
  return names;
}

int TempDir::CountFilesEndingWith(const std::string& suffix) const {
  int count = 0;
  for (const auto& entry : fs::recursive_directory_iterator(root_)) {
    if (entry.path().filename().string().ends_with(suffix)) ++count;
  }
  return count;
}

}  // namespace tk::test
