// build --sort: a package that depends only on the tree's names and contents, whatever
// order the files were made in and whatever file system holds them.
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "package/package.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"
#include "tkpack/commands.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

using Names = std::vector<std::string>;

// Files of the tree, in the order they are first made; names of subdirectories and
// files mix upper and lower case, digits, "_" and bytes above 127.
const Names kFiles = {"b/z", "b/B",     "b/_", "b/\xc3\xa9", "b/10",          "b/9",
                      "a/x", "a/sub/y", "top", "Top",        "a/sub/deeper/z"};

// Lays kFiles (each holding its own name) down below root/Pkg in the given order, with a
// description that captures Pkg whole.
void Lay(const test::TempDir& root, bool reverse) {
  std::filesystem::remove_all(root.Path("Pkg"));
  Names order = kFiles;
  if (reverse) std::reverse(order.begin(), order.end());
  for (const std::string& file : order) EXPECT_TRUE(root.WriteFile("Pkg/" + file, file));
  EXPECT_TRUE(root.WriteFile("d.desc", "[HEADER]\nV = 1\n[Pkg]\ncopydirsub:\n"));
}

// tkpack build of root/d.desc into root/p.pkg; the package's bytes.
std::string Build(const test::TempDir& root, bool sort) {
  CommandLine line;
  line.operands = {root.Path("d.desc"), root.Path("p.pkg")};
  if (sort) line.options[kSortOption] = "";
  FILE* sink = std::fopen("/dev/null", "w");
  ToolIo io{sink, sink, false};
  EXPECT_EQ(RunBuild(line, io), kExitSuccess);
  std::fclose(sink);
  return root.ReadFile("p.pkg");
}

using TkpackSort = test::TempDirTest;

TEST_F(TkpackSort, SortedBuildsDependOnlyOnNamesAndContents) {
  const bool haveShm = std::filesystem::is_directory("/dev/shm");
  const test::TempDir memory("sort", haveShm ? "/dev/shm" : "");
  Lay(*this, false);
  const std::string sorted = Build(*this, true);
  for (const test::TempDir* root : {static_cast<const test::TempDir*>(this), &memory}) {
    for (const bool reverse : {false, true}) {
      Lay(*root, reverse);
      EXPECT_EQ(Build(*root, true), sorted) << root->path() << reverse;
    }
  }
  // Files before subdirectories, each in byte order, depth first.
  const std::string stream = test::ReadPackageStream(Path("p.pkg"));
  std::string order;
  for (std::size_t at = 0; (at = stream.find("Name = ", at)) != std::string::npos; at += 7) {
    order += stream.substr(at + 7, stream.find('\n', at) - at - 7) + ",";
  }
  EXPECT_EQ(order, "Pkg,Top,top,Pkg/a,x,Pkg/a/sub,y,Pkg/a/sub/deeper,z,Pkg/b,10,9,B,_,z,\xc3\xa9,");
  // Without --sort a capture keeps the file system's order: what the engine builds.
  const std::string unsorted = Build(memory, false);
  TkPackage engine;
  ASSERT_TRUE(engine.BuildPackage(memory.Path("d.desc").c_str(), memory.path().c_str(),
                                  memory.Path("q.pkg").c_str()));
  EXPECT_EQ(unsorted, memory.ReadFile("q.pkg"));
  if (haveShm) {
    EXPECT_NE(unsorted, sorted) << "tmpfs lists names in the order opposite to their making";
  }
}

}  // namespace
}  // namespace tk
