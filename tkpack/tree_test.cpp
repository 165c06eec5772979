// tkpack diff and uninstall: the model of what a package makes of a directory, and the
// two commands against trees the real installer made and someone changed since.
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "package/package.h"
#include "testing/child_process.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"
#include "tkpack/tool.h"
#include "tkpack/tree_model.h"

namespace tk {
namespace {

namespace fs = std::filesystem;
using std::string;
using test::ActionRecord;
using test::DirRecord;
using test::FileRecord;
using test::RmDirRecord;
using test::TextDirRecord;
using Words = std::vector<string>;

// The model as text: "path:size:conversions:x" per file, "path/" per directory, "-path"
// per removed path.
string Describe(const TreeModel& model) {
  string text;
  for (const string& directory : model.directories()) text += directory + "/ ";
  for (const auto& [path, file] : model.files()) {
    text += path + ":" + std::to_string(file.size) + ":" + std::to_string(file.conversions) +
            (file.executable ? ":x " : " ");
  }
  for (const string& path : model.removed()) text += "-" + path + " ";
  return text;
}

class TkpackTree : public test::TempDirTest {
 protected:
  // Replays `records` (after the magic lines); the model as text, or "error: ..." .
  string Model(const string& records) {
    WriteFile("plain", test::kStreamStart + records);
    FILE* stream = std::fopen(Path("plain").c_str(), "r");
    PackageRecordReader reader(stream);
    TreeModel model;
    string error;
    const bool replayed = model.Replay(reader, error);
    std::fclose(stream);
    return replayed ? Describe(model) : "error: " + error;
  }

  test::ChildResult Run(Words words) const {
    words.insert(words.begin(), "tkpack");
    return test::RunChild({TK_BIN_DIR "/tkpack", words, "", path(), {}});
  }
};

// The installer's rules, record by record: [Dir] makes each component; [File] replaces
// (an executable stays one); [RmDir] takes files, and with subdirectories the trees not
// beginning with "."; wildcards and [TextDir] never see names beginning with ".".
TEST_F(TkpackTree, TheModelFollowsTheInstaller) {
  const string ab = DirRecord("a/./b//") + FileRecord("f", "12") + FileRecord(".h", "1");
  const std::pair<string, string> cases[] = {
      {ab, "a/ a/b/ a/b/.h:1:0 a/b/f:2:0 "},
      {ab + ActionRecord("Exec", "f") + FileRecord("f", "3") + ActionRecord("TextFile", "f") +
           ActionRecord("TextFile", "f") + ActionRecord("Exec", "none"),
       "a/ a/b/ a/b/.h:1:0 a/b/f:1:2:x "},
      {ab + TextDirRecord("a/b"), "a/ a/b/ a/b/.h:1:0 a/b/f:2:1 "},
      {ab + ActionRecord("RemoveFile", "*") + ActionRecord("RemoveFile", "gone"),
       "a/ a/b/ a/b/.h:1:0 -a/b/f -a/b/gone "},
      {ab + ActionRecord("RemoveFile", ".h") + ActionRecord("RemoveFile", "b") + DirRecord("a") +
           ActionRecord("RemoveFile", "b"),
       "a/ a/b/ a/b/f:2:0 -a/b/.h -a/b/b "},
      {ab + DirRecord("a/.k") + FileRecord("g", "") + DirRecord("a/c") + RmDirRecord("a", true),
       "a/ a/.k/ a/.k/g:0:0 -a/b -a/b/.h -a/b/f -a/c "},
      {ab + RmDirRecord("a/b", false) + FileRecord("f", "9"), "a/ a/b/ a/b/f:1:0 -a/b/.h "},
      {DirRecord("") + FileRecord("top", "t") + RmDirRecord("", false), "-top "},
      {FileRecord("x", ""),
       "error: record 1 at byte 21: [File] x: comes before any [Dir] "
       "record (would act on the installer's working directory)"},
      {DirRecord("../up"),
       "error: record 1 at byte 21: [Dir] ../up: name \"../up\" would "
       "escape the installation directory"}};
  for (const auto& [records, model] : cases) EXPECT_EQ(Model(records), model) << records;
}

// After an installation diff says nothing; after changes it says exactly those.
// uninstall then takes out what is still the package's and keeps the rest.
TEST_F(TkpackTree, DiffAndUninstallAfterChanges) {
  const string records = DirRecord("Bin") + FileRecord("run", "#!/bin/sh\n") +
                         ActionRecord("Exec", "run") + FileRecord("lib", "L") + DirRecord("Doc") +
                         FileRecord("a.txt", "a\r\nb\r\n") + ActionRecord("TextFile", "a.txt") +
                         FileRecord("old", "o") + ActionRecord("RemoveFile", "old") +
                         DirRecord("Doc/sub") + FileRecord("s", "s") + DirRecord("Empty");
  ASSERT_TRUE(test::WritePackage(Path("p.pkg"), test::kStreamStart + records));
  TkPackage engine;
  ASSERT_TRUE(engine.InstallPackage(Path("p.pkg").c_str(), Path("dest").c_str(), 0));
  ASSERT_TRUE(WriteFile("outside/keep", "k"));
  EXPECT_EQ(Run({"diff", "p.pkg", "dest"}).exitStatus, kExitSuccess);
  EXPECT_EQ(Run({"diff", "p.pkg", "dest", "--extra"}).out, "");
  ASSERT_TRUE(WriteFile("dest/Doc/a.txt", "a\nB\n") && WriteFile("dest/Bin/lib", "LL") &&
              WriteFile("dest/Doc/old", "back") && WriteFile("dest/Bin/new", "n"));
  chmod(Path("dest/Bin/run").c_str(), 0700);
  chmod(Path("dest/Doc/sub/s").c_str(), 0744);
  fs::remove_all(Path("dest/Empty"));
  fs::create_directory_symlink(Path("outside"), Path("dest/Doc/link"));
  const test::ChildResult diff = Run({"diff", "p.pkg", "dest", "--extra"});
  EXPECT_EQ(std::tie(diff.exitStatus, diff.err), std::tie(kExitFailure, ""));
  EXPECT_EQ(diff.out,
            "missing  Empty/\n"
            "size     Bin/lib  (2 bytes, the package's 1)\n"
            "mode     Bin/run  (700, the package's 755)\n"
            "content  Doc/a.txt\n"
            "mode     Doc/sub/s  (744, the package's without execute bits)\n"
            "removed  Doc/old\n"
            "extra    Bin/new\n"
            "extra    Doc/link\n");
  EXPECT_EQ(Run({"diff", "p.pkg", "dest", "--quiet"}).out, "");
  const test::Tree before = Snapshot();
  const test::ChildResult dry = Run({"uninstall", "p.pkg", "dest", "--dry-run"});
  EXPECT_EQ(dry.exitStatus, kExitFailure);
  EXPECT_EQ(Snapshot(), before);
  const test::ChildResult taken = Run({"uninstall", "p.pkg", "dest"});
  const string changed = "  (changed since it was installed; --force removes it)\n";
  EXPECT_EQ(taken.out, "kept Bin/lib" + changed + "removed Bin/run\nkept Doc/a.txt" + changed +
                           "removed Doc/sub/s\nremoved Doc/sub/\n");
  EXPECT_EQ(dry.out, "would keep Bin/lib" + changed + "would remove Bin/run\nwould keep Doc/a.txt" +
                         changed + "would remove Doc/sub/s\nwould remove Doc/sub/\n");
  EXPECT_EQ(Listing("dest"),
            (Words{"Bin/", "Bin/lib", "Bin/new", "Doc/", "Doc/a.txt", "Doc/link", "Doc/old"}));
  EXPECT_EQ(ReadFile("outside/keep"), "k");
  EXPECT_EQ(Run({"uninstall", "p.pkg", "dest", "--force", "--quiet"}).exitStatus, kExitSuccess);
  EXPECT_EQ(Listing("dest"), (Words{"Bin/", "Bin/new", "Doc/", "Doc/link", "Doc/old"}));
  EXPECT_EQ(Run({"diff", "p.pkg", "none"}).err,
            "tkpack: cannot open directory none: No such file or directory\n");
  EXPECT_EQ(Run({"diff", "p.pkg"}).exitStatus, kExitUsage);
}

// uninstall never follows a link out of the directory, and says so.
TEST_F(TkpackTree, UninstallNeverLeavesTheDirectory) {
  ASSERT_TRUE(test::WritePackage(Path("p.pkg"), test::kStreamStart + DirRecord("Lib") +
                                                    FileRecord("f", "x") + DirRecord("Bin") +
                                                    FileRecord("g", "y")));
  ASSERT_TRUE(WriteFile("outside/f", "x") && WriteFile("dest/Bin/g", "y"));
  fs::create_directory_symlink(Path("outside"), Path("dest/Lib"));
  const test::ChildResult result = Run({"uninstall", "p.pkg", "dest", "--force"});
  EXPECT_EQ(result.exitStatus, kExitFailure);
  EXPECT_EQ(result.out,
            "removed Bin/g\nkept Lib/f  (a symbolic link on its way leads outside the "
            "directory)\nremoved Bin/\n");
  EXPECT_EQ(ReadFile("outside/f"), "x");
}

}  // namespace
}  // namespace tk
