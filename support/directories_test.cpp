#include "support/directories.h"

#include <algorithm>
#include <filesystem>
#include <tuple>

#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class DirectoriesTest : public test::TempDirTest {
 protected:
  // Makes the scratch directory hold just `entries`: names ending in "/" are directories,
  // "name->target" symbolic links to the directory `target`, the others files holding
  // their own name.
  void MakeTree(const Names& entries) const {
    for (const auto& entry : fs::directory_iterator(path())) fs::remove_all(entry.path());
    for (const std::string& e : entries) {
      const size_t arrow = e.find("->");
      if (arrow != std::string::npos) {
        fs::create_directory_symlink(Path(e.substr(arrow + 2)), Path(e.substr(0, arrow)));
      } else {
        e.ends_with('/') ? fs::create_directories(Path(e)) : WriteFile(e, e);
      }
    }
  }
};

// "/" is no directory: nothing is left once its "/" is taken off.
TEST_F(DirectoriesTest, ExistenceAndEmptiness) {
  MakeTree({"d/.only", "e/x1", "f"});
  const std::tuple<std::string, int, int> cases[] = {{"d", 1, 1},  {"d/", 1, 1}, {"d\\", 1, 1},
                                                     {"e/", 1, 0}, {"f", 0, 1},  {"gone", 0, 1}};
  for (const auto& [name, exists, empty] : cases) {
    EXPECT_EQ(DirectoryExists(Path(name).c_str()), exists) << name;
    EXPECT_EQ(DirectoryIsEmpty(Path(name).c_str()), empty) << name;
  }
  EXPECT_EQ(DirectoryExists(nullptr) + DirectoryExists("") + DirectoryExists("/"), 0);
  EXPECT_EQ(DirectoryIsEmpty(nullptr), 1);
}

// Multi-level paths are trimmed first; a single level is one mkdir of the path as given.
// A file as the last component counts as made.
TEST_F(DirectoriesTest, CreateDirectoryPathMakesMissingComponentsAndStopsAtAFile) {
  const Names ab = {"a/", "a/b"};
  const std::tuple<Names, std::string, bool, int, Names> cases[] = {
      {{}, "/a/b/c", false, 1, {"a/", "a/b/", "a/b/c/"}},
      {{}, "/x\\y", false, 1, {"x/", "x/y/"}},
      {ab, "/a/b/c", false, 0, ab},
      {ab, "/a/b", false, 1, ab},
      {{}, "/a/b", true, 0, {}},
      {{}, "/a", true, 1, {"a/"}}};
  for (const auto& [before, relative, single, result, after] : cases) {
    MakeTree(before);
    const std::string full = (single ? "" : " ") + path() + relative;
    EXPECT_EQ(CreateDirectoryPath(full.c_str(), single), result) << full;
    EXPECT_EQ(Listing(), after) << full;
  }
  EXPECT_EQ(CreateDirectoryPath(nullptr, false), 0);
}

// Hidden directories are never entered, so a tree holding one stays and the result is
// 0; links go as links, never followed; patterns pick files and directories by prefix.
TEST_F(DirectoriesTest, RemoveDirectoryNeverEntersHiddenDirectories) {
  const Names cached = {"d/.cache/x", "d/.profile", "d/f", "d/sub/g"};
  const Names flat = {"f1", "g1", ".h", "s1/x", "t1/", ".c/"};
  const std::tuple<Names, std::string, bool, const char*, const char*, int, Names> cases[] = {
      {cached, "d", true, "", "", 0, {"d/", "d/.cache/", "d/.cache/x"}},
      {{"e/.profile", "e/sub/.g"}, "e/", true, nullptr, nullptr, 1, {}},
      {{"out/keep", "d/f", "d/link->out"}, "d", true, nullptr, nullptr, 1, {"out/", "out/keep"}},
      {flat, "", false, "", "*", 1, {".c/", ".h", "f1", "g1"}},
      {flat, "", false, "f", "", 1, {".c/", ".h", "g1", "s1/", "s1/x", "t1/"}},
      {flat, "", false, nullptr, "s", 1, {".c/", "t1/"}},
      {flat, "", false, "*", nullptr, 1, {".c/"}},
      {{}, "gone", true, nullptr, nullptr, 1, {}}};
  for (const auto& [tree, name, itself, files, dirs, result, after] : cases) {
    MakeTree(tree);
    EXPECT_EQ(RemoveDirectory(Path(name).c_str(), itself, files, dirs), result) << name;
    EXPECT_EQ(Listing(), after) << name << " " << (files ? files : "null");
  }
  EXPECT_EQ(RemoveDirectory(nullptr, true, nullptr, nullptr), 1);
}

// Lists are appended to, in the order of the system (sorted here).
TEST_F(DirectoriesTest, ListingsSkipHiddenNamesAndFilterByPrefix) {
  MakeTree({"a1", "a2", "b1", ".h", "d1/", "ad/", ".c/"});
  const std::string dir = path() + "/";
  const Names all = {"kept", "a1", "a2", "b1"}, subdirs = {"ad", "d1"};
  const std::tuple<const char*, Names, Names> cases[] = {{nullptr, all, subdirs},
                                                         {"*", all, subdirs},
                                                         {"a", {"kept", "a1", "a2"}, {"ad"}},
                                                         {"z", {"kept"}, {}}};
  for (const auto& [pattern, wantFiles, wantDirs] : cases) {
    Names files{"kept"}, dirs;
    EXPECT_EQ(
        ListFiles(dir.c_str(), pattern, files) + ListDirectories(path().c_str(), pattern, dirs), 2);
    std::sort(files.begin() + 1, files.end());
    std::sort(dirs.begin(), dirs.end());
    EXPECT_EQ(files, wantFiles);
    EXPECT_EQ(dirs, wantDirs);
  }
  Names list;
  EXPECT_EQ(
      ListFiles(Path("gone").c_str(), nullptr, list) + ListDirectories(nullptr, nullptr, list), 1);
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(FindFileByPrefix(dir.c_str(), "b"), Path("b1"));
  EXPECT_EQ(FindFileByPrefix(dir.c_str(), "z"), "");
  DeleteFilesByPrefix(dir.c_str(), ".h");
  DeleteFilesByPrefix(dir.c_str(), "a");
  EXPECT_EQ(Listing(), (Names{".c/", "ad/", "b1", "d1/"}));
}

TEST_F(DirectoriesTest, FileExistsNoCaseRewritesThePathToTheRealName) {
  MakeTree({"README.txt", "Docs/README.txt", "Docs/Sub/", "Docs/.Hidden"});
  const fs::path cwd = fs::current_path();
  fs::current_path(path());
  const std::tuple<std::string, int, std::string> cases[] = {
      {"readme.TXT", 1, "./README.txt"},          {"Docs/Readme.TXT", 1, "Docs/README.txt"},
      {"Docs\\readme.txt", 1, "Docs/README.txt"}, {"Docs/sub", 0, "Docs/sub"},
      {"Docs/.hidden", 0, "Docs/.hidden"},        {"Nope/readme.txt", 0, "Nope/readme.txt"}};
  for (auto [name, result, after] : cases) {
    EXPECT_EQ(FileExistsNoCase(name), result) << after;
    EXPECT_EQ(name, after);
  }
  fs::current_path(cwd);
}

}  // namespace
}  // namespace tk
