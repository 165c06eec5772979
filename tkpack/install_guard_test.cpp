// tkpack install against hostile packages: each is refused whole, with the record
// named, exit status 1, and not a byte changed inside or outside the destination.
// Packages that stay inside install the tree that tkinstall's engine makes.
#include "tkpack/install_guard.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "package/package.h"
#include "testing/child_process.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"
#include "tkpack/beneath.h"
#include "tkpack/beneath_tree.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

namespace fs = std::filesystem;
using std::string;
using test::ActionRecord;
using test::DirRecord;
using test::FileRecord;
using test::RmDirRecord;
using test::TextDirRecord;
using Names = std::vector<string>;

string RmDir(const string& name) { return RmDirRecord(name, true); }

class TkpackGuard : public test::TempDirTest {
 protected:
  // dest/ and outside/ afresh, with `links` ("path->target", relative to the scratch
  // directory) planted; the package p.pkg holds `records`.
  void Lay(const Names& links, const string& records) {
    for (const char* top : {"dest", "outside"}) fs::remove_all(Path(top));
    for (const char* file :
         {"outside/f", "outside/t.txt", "outside/dir/g", "dest/Bin/keep", "dest/Doc/readme"}) {
      ASSERT_TRUE(WriteFile(file, string(file) + "\r\n"));
    }
    for (const string& link : links) {
      const std::size_t arrow = link.find("->");
      const string target = link.substr(arrow + 2);
      if (target.starts_with("=")) {  // a hard link
        fs::create_hard_link(Path(target.substr(1)), Path(link.substr(0, arrow)));
      } else {
        fs::create_symlink(target, Path(link.substr(0, arrow)));
      }
    }
    ASSERT_TRUE(test::WritePackage(Path("p.pkg"), test::kStreamStart + records));
  }

  test::ChildResult Install(const Names& options = {}) const {
    Names words = {"tkpack", "install", "--quiet", "p.pkg", "dest"};
    words.insert(words.end(), options.begin(), options.end());
    return test::RunChild({TK_BIN_DIR "/tkpack", words, "", path(), {}});
  }
};

TEST_F(TkpackGuard, RefusesEveryRecordThatWouldActOutside) {
  const string dirs = DirRecord("Bin");
  const string outside = Path("outside");
  const std::tuple<Names, string, string> cases[] = {
      // planted links, records; the start of the first refusal after the package name
      {{}, DirRecord("../escape"), "record 1 at byte 21: [Dir] ../escape: name"},
      {{}, DirRecord("a/../../escape"), "record 1 at byte 21: [Dir] a/../../escape: name"},
      {{}, DirRecord("/abs"), "record 1 at byte 21: [Dir] /abs: name"},
      {{}, FileRecord("x", "x"), "record 1 at byte 21: [File] x: comes before"},
      {{}, ActionRecord("Exec", "x"), "record 1 at byte 21: [Exec] x: comes before"},
      {{}, ActionRecord("RemoveFile", "*"), "record 1 at byte 21: [RemoveFile] *: comes before"},
      {{}, ActionRecord("TextFile", "t"), "record 1 at byte 21: [TextFile] t: comes before"},
      {{}, dirs + FileRecord("../../outside/f", "x"), "record 2 at byte 39: [File] Bin/../.."},
      {{}, dirs + FileRecord("/etc/x", "x"), "record 2 at byte 39: [File] Bin//etc/x: name"},
      {{}, RmDir("../outside"), "record 1 at byte 21: [RmDir] ../outside: name"},
      {{},
       dirs + ActionRecord("RemoveFile", "../../outside/f"),
       "record 2 at byte 39: [RemoveFile]"},
      {{},
       dirs + ActionRecord("TextFile", "../../outside/t.txt"),
       "record 2 at byte 39: [TextFile]"},
      {{}, TextDirRecord("../outside"), "record 1 at byte 21: [TextDir]"},
      {{}, dirs + ActionRecord("Exec", "../../outside/f"), "record 2 at byte 39: [Exec] Bin/../.."},
      {{"dest/Lib->../outside"},
       DirRecord("Lib"),
       "record 1 at byte 21: [Dir] Lib: runs through the symbolic link Lib -> ../outside"},
      {{"dest/Lib->" + outside}, DirRecord("Lib/sub"), "[Dir] Lib/sub: runs through the symbolic"},
      {{"dest/Lib->" + outside}, DirRecord("Lib") + FileRecord("f", "x"), "[Dir] Lib: runs"},
      {{"dest/Bin/run->../../outside/f"}, dirs + FileRecord("run", "x"), "[File] Bin/run: runs"},
      {{"dest/Bin/run->" + outside + "/f"},
       dirs + ActionRecord("Exec", "run"),
       "[Exec] Bin/run: runs"},
      {{"dest/Bin/t->../../outside/t.txt"},
       dirs + ActionRecord("TextFile", "t"),
       "[TextFile] Bin/t"},
      {{"dest/Doc/t->../../outside/t.txt"},
       TextDirRecord("Doc"),
       "[TextDir] Doc: runs through the symbolic link Doc/t -> ../../outside/t.txt"},
      {{"dest/Old->../outside/dir"}, RmDir("Old"), "[RmDir] Old: runs through"},
      {{"dest/Lib->../outside"},
       DirRecord("Lib") + ActionRecord("RemoveFile", "*"),
       "[Dir] Lib: runs"},
      {{"dest/Bin/hard->=outside/f"},
       dirs + FileRecord("hard", "x"),
       "[File] Bin/hard: Bin/hard has 2 hard links"},
      {{}, dirs + "[File]\nName = a\n", "record 2 at byte 39: [File] Bin/a: stream ends before"}};
  for (const auto& [links, records, refusal] : cases) {
    Lay(links, records);
    const test::Tree before = Snapshot();
    const test::ChildResult result = Install();
    EXPECT_EQ(result.exitStatus, kExitFailure) << records;
    const string first = result.err.substr(0, result.err.find('\n'));
    EXPECT_TRUE(first.starts_with("tkpack: p.pkg: record ") && first.find(refusal) != string::npos)
        << result.err;
    EXPECT_TRUE(result.err.ends_with("nothing installed (--trust installs it anyway)\n"));
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Snapshot(), before) << records;
  }
  Lay({}, DirRecord("../escape"));
  fs::remove_all(Path("dest"));
  EXPECT_EQ(Install().exitStatus, kExitFailure);
  EXPECT_FALSE(Exists("dest")) << "a refused package does not even create the destination";
}

// Links that stay inside are followed; the tree is the one the engine makes with --trust,
// and [RemoveFile] takes a link to the outside away as a link.
TEST_F(TkpackGuard, InstallsWhatStaysInsideAsTheEngineDoes) {
  const string records = DirRecord("Bin") + FileRecord("run", "r\r\n") +
                         ActionRecord("Exec", "run") + ActionRecord("TextFile", "run") +
                         ActionRecord("RemoveFile", "away") + DirRecord("Alias/sub") +
                         FileRecord("x", "x") + TextDirRecord("Doc") + RmDir("Old");
  const Names links = {"dest/Alias->Bin", "dest/Bin/away->../../outside/f", "dest/Old->Bin/none"};
  test::Tree trees[2];
  for (int trusted = 0; trusted < 2; ++trusted) {
    Lay(links, records);
    const test::ChildResult result = Install(trusted ? Names{"--trust"} : Names{});
    EXPECT_EQ(std::tie(result.exitStatus, result.err), std::tie(kExitSuccess, "")) << result.err;
    trees[trusted] = Snapshot();
  }
  EXPECT_EQ(trees[0], trees[1]);
  EXPECT_EQ(trees[0]["dest/Bin/sub/x"], "644:x");
  EXPECT_EQ(trees[0]["dest/Bin/run"], "755:r\n");
  EXPECT_EQ(trees[0]["dest/Doc/readme"], "644:dest/Doc/readme\n");
  EXPECT_EQ(trees[0]["outside/f"], "644:outside/f\r\n");
  EXPECT_FALSE(trees[0].contains("dest/Bin/away"));
}

// Whatever the checks let through, the tree itself never leaves the destination: a
// record through an outward link fails with the engine's text; the component walk
// refuses links even inside.
TEST_F(TkpackGuard, TheTreeNeverLeavesTheDestination) {
  const string dest = Path("dest") + "/";
  const string textDir = TextDirRecord("Txt");
  const std::tuple<bool, string, string, string> cases[] = {
      // component walk, a link, records, error
      {false, "dest/Lib->../outside", DirRecord("Lib/x"), "cannot create directory: Lib"},
      {false, "dest/Bin/t->../../outside/t.txt", DirRecord("Bin") + ActionRecord("TextFile", "t"),
       "Cannot set text file Bin/t"},
      {false, "dest/Bin/t->../../outside/f", DirRecord("Bin") + ActionRecord("Exec", "t"),
       "Cannot change file access rigths Bin/t"},
      {false, "dest/Bin/t->../../outside/f", DirRecord("Bin") + FileRecord("t", "x"),
       "Cannot create file Bin/t"},
      {false, "dest/Old->../outside/dir", RmDir("Old"), "cannot remove directory: Old"},
      {false, "dest/Txt->../outside", textDir, "cannot list directory: Txt"},
      {true, "dest/Alias->Bin", DirRecord("Alias"), "cannot create directory: Alias"}};
  for (const auto& [walk, link, records, error] : cases) {
    Lay({link}, records);
    const test::Tree before = Snapshot("outside");
    UseComponentWalk(walk);
    ASSERT_TRUE(WriteFile("plain", test::kStreamStart + records));
    FILE* stream = std::fopen(Path("plain").c_str(), "r");
    BeneathInstallTree tree(Path("dest"));
    TkPackage package;
    EXPECT_FALSE(package.InstallStream(stream, "p.pkg", Path("dest").c_str(), 0, tree));
    std::fclose(stream);
    UseComponentWalk(false);
    const string text = package.ErrorText();
    EXPECT_EQ(text.substr(0, text.find('/')) + text.substr(text.find(dest) + dest.size()), error);
    EXPECT_EQ(Snapshot("outside"), before) << records;
  }
}

}  // namespace
}  // namespace tk
