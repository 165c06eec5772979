// Drives the real tkinstall program with scripted input and compares its whole
// standard output, its exit status and the installed tree.
#include "installer/session.h"

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "testing/child_process.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

namespace fs = std::filesystem;
using std::string;
using test::DirRecord;
using test::FileRecord;

constexpr char kScript[] = "echo \"post-install in $1\"\necho done > \"$1/Bin/installed\"\n";

// The core package (its post-install script Java/tkinstall holds `script`) and the
// platform package.
string CoreRecords(const string& script) {
  return test::kStreamStart + DirRecord("Bin") + FileRecord("tavik", "#!/bin/sh\necho tavik\n") +
         "[Exec]\nName = tavik\n\n\n" + DirRecord("Java") + FileRecord("tkinstall", script) +
         DirRecord("Doc") + FileRecord("notes.txt", "one\r\ntwo\r\n") +
         "[TextFile]\nName = notes.txt\n\n\n";
}
const string kPlatformRecords =
    test::kStreamStart + DirRecord("Lib") + FileRecord("libtavik.so", "platform library\n");

// ---- The texts the administrator sees -------------------------------------------

const string kTitle = "\n\nTAVIK server installation";
const string kBanner = kTitle + "\nChecking server...";
const string kFailed = "\n\nInstallation failed\n\n\nPress enter to continue";

string Prompt(const string& defaultDirectory) {
  return "\n\nPlease enter TAVIK destination directory (" + defaultDirectory + ") => ";
}

// One round of the dialogue: the directory prompt and the confirmation of `to`.
string Ask(const string& def, const string& to) {
  return Prompt(def) + "\n\nConfirm destination directory " + to + " (y/n/q) => ";
}

string Installing(const string& to) {
  return "\n\nInstalling TAVIK in " + to + " directory\nThis may take a few minutes...";
}

string Package(const string& path, const string& dirs) {
  return "\nInstalling package " + path + "\nUncompressing package file\nVerifying package" + dirs;
}
const string kCoreDirs = "\nDirectory Bin\nDirectory Java\nDirectory Doc";

// Everything from the installation line to the end of a successful run, with the
// packages `core` and `dir` + "tavik_linux64.pkg".
string Success(const string& core, const string& dir, const string& to, const string& scriptSays,
               bool profile) {
  const string profileLines =
      "\n\nPLEASE DO THE FOLLOWING CHANGES TO THE PROFILE OF THE USER RUNNING TAVIK:"
      "\n\n  Set the environment variable TAVIK=" +
      to + "\n  Add " + to + "/Bin to the PATH environment variable\n  Add " + to +
      "/Bin to the LD_LIBRARY_PATH environment variable";
  return Installing(to) + Package(core, kCoreDirs) +
         Package(dir + "tavik_linux64.pkg", "\nDirectory Lib") + "\nUpdating environment..." +
         scriptSays + "\n\nInstallation terminated successfully\n" + (profile ? profileLines : "") +
         "\n\nPress enter to continue";
}

string ScriptSays(const string& destination) { return "post-install in " + destination + "\n"; }

// The installed tree of a complete run: the script is gone, Bin/installed is there when
// it ran, and no "*.tk_temp" is left.
test::Tree Installed(bool scriptRan) {
  test::Tree tree = {{"Bin", "dir"},
                     {"Bin/tavik", "755:#!/bin/sh\necho tavik\n"},
                     {"Java", "dir"},
                     {"Doc", "dir"},
                     {"Doc/notes.txt", "644:one\ntwo\n"},
                     {"Lib", "dir"},
                     {"Lib/libtavik.so", "644:platform library\n"}};
  if (scriptRan) tree["Bin/installed"] = "644:done\n";
  return tree;
}

// The scratch directory holds dist/ (the distribution folder, the installer's working
// directory, with both packages) and the destinations.
class InstallerTest : public test::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    WritePackages("dist", kScript);
  }

  void WritePackages(const string& directory, const string& script) {
    ASSERT_TRUE(test::WritePackage(Path(directory + "/tavik_core.pkg"), CoreRecords(script)));
    ASSERT_TRUE(test::WritePackage(Path(directory + "/tavik_linux64.pkg"), kPlatformRecords));
  }

  // Runs tkinstall in dist/ as `programPath` with TAVIK set to `tavik` (or unset). No
  // dialogue here says 4 KiB, so a run that says more is cut there.
  test::ChildResult Run(const string& input, const std::optional<string>& tavik,
                        const string& programPath = "./tkinstall") {
    test::ChildRun run{
        TK_BIN_DIR "/tkinstall", {programPath, "ignored"}, input, Path("dist"), {{"TAVIK", tavik}}};
    run.stopAfterBytes = 4096;
    return test::RunChild(run);
  }

  // The whole output and status of a run, and that nothing was said on standard error.
  void ExpectRun(const test::ChildResult& run, const string& out, int status, bool quiet = true) {
    EXPECT_EQ(run.out, out);
    EXPECT_EQ(run.exitStatus, status);
    EXPECT_EQ(quiet ? run.err : "", "");
  }
};

// ---- Successful runs ------------------------------------------------------------

// The profile lines are shown unless the destination is the TAVIK directory, compared
// ignoring case but without turning backslashes into slashes. "n" and any other answer
// but "y" or nothing ask again, with the same default; a directory answer is cleaned
// of blanks and its trailing "/". The script command line is not quoted, so the shell
// cannot find a script whose path holds a blank; neither that nor a failing script
// stops the run, and the script is removed.
TEST_F(InstallerTest, SuccessfulRuns) {
  enum Script { kRuns, kNotFound, kFails };
  const string d = Path("d"), no = Path("no");
  const std::tuple<std::optional<string>, string, string, string, bool, Script> cases[] = {
      {std::nullopt, d + "1\n\n\n", Ask("/usr/tavik", d + "1"), d + "1", true, kRuns},
      {"  " + d + "2/ ", "\ny\n\n", Ask(d + "2", d + "2"), d + "2", false, kRuns},
      {d + "3", Path("D3") + "\nY\n\n", Ask(d + "3", Path("D3")), Path("D3"), false, kRuns},
      {Path("old"), d + "4\nyes\n\n", Ask(Path("old"), d + "4"), d + "4", true, kRuns},
      {d + "5", no + "\nn\n" + no + "\nx\n\ny\n\n",
       Ask(d + "5", no) + Ask(d + "5", no) + Ask(d + "5", d + "5"), d + "5", false, kRuns},
      {path() + "\\d6", "\n\n\n", Ask(d + "6", d + "6"), d + "6", true, kRuns},
      {std::nullopt, "  " + Path("my   dir/  ") + "\n\n\n", Ask("/usr/tavik", Path("my dir")),
       Path("my dir"), true, kNotFound},
      {d + "7", "\n\n\n", Ask(d + "7", d + "7"), d + "7", false, kFails},  // last
  };
  for (const auto& [tavik, in, asked, to, profile, script] : cases) {
    if (script == kFails) WritePackages("dist", "echo failing\nexit 3\n");
    const string says[] = {ScriptSays(to), "", "failing\n"};  // by Script
    ExpectRun(Run(in, tavik),
              kBanner + asked + Success("./tavik_core.pkg", "./", to, says[script], profile), 0,
              script != kNotFound);
    EXPECT_EQ(Snapshot(to), Installed(script == kRuns)) << to;
  }
  EXPECT_FALSE(Exists(no));
}

// Only argument 0 places the packages: the part before its last "tkinstall", ignoring
// case, even inside a file name. A missing platform package is named there; the core
// package falls back to ../tavik_core.pkg, which is named when it is missing too.
TEST_F(InstallerTest, PackagesAreFoundBesideTheProgramPath) {
  const string dist = Path("dist"), core = "tavik_core.pkg", to = Path("dest");
  const std::pair<string, string> cases[] = {
      {"tkinstall", ""},
      {"/usr/bin/installer", ""},
      {"a/tkinstall/b/TkInstall", "a/tkinstall/b/"},
      {dist + "/A/TKINSTALL/b/tkinstall", dist + "/A/TKINSTALL/b/"},
      {dist + "/opt/setuptkinstall", dist + "/opt/setup/"}};
  for (const auto& [programPath, shown] : cases) {
    const string directory = shown.starts_with("/") ? shown : "dist/" + shown;
    fs::remove(Path(directory + "tavik_linux64.pkg"));
    ASSERT_TRUE(test::WritePackage(Path(directory + core), CoreRecords(kScript)));
    ExpectRun(Run("", std::nullopt, programPath),
              kTitle + "\nCannot find " + shown + "tavik_linux64.pkg package" + kFailed, 255);
    WritePackages(directory, kScript);
    ExpectRun(Run("\n\n\n", to, programPath),
              kBanner + Ask(to, to) + Success(shown + core, shown, to, ScriptSays(to), false), 0);
  }
  WritePackages("dist", kScript);
  fs::remove(Path("dist/" + core));
  ExpectRun(Run("", std::nullopt), kTitle + "\nCannot find ../" + core + " package" + kFailed, 255);
  ASSERT_TRUE(test::WritePackage(Path(core), CoreRecords(kScript)));
  ExpectRun(Run("\n\n\n", to),
            kBanner + Ask(to, to) + Success("../" + core, "./", to, ScriptSays(to), false), 0);
}

// ---- Refusals and failures ------------------------------------------------------

// The run marker of the TAVIK installation stops the run; a blank TAVIK proposes
// /usr/tavik but still looks for the marker, in the working directory. A first
// character "Q" quits at once at either prompt; directory answers are cleaned before
// they are confirmed.
TEST_F(InstallerTest, RefusalsAndQuitsEndAtOnce) {
  const string service =
      "\nThe TAVIK service is running (or has not been stopped correctly)"
      "\nPlease stop it and restart the installation" +
      kFailed;
  WriteFile("old/Bin/tavik.run", "");
  WriteFile("dist/Bin/tavik.run", "");
  const std::tuple<string, string, string> cases[] = {
      {"\n\n\n", service, " " + Path("old/ ")},
      {"\n", service, "   "},
      {"q\n", Prompt("/d"), "/d"},
      {"Q\n", Prompt("/d"), "/d"},
      {"quit\n", Prompt("/d"), "/d"},
      {"qdir\n", Prompt("/d"), "/d"},
      {"  quit now\n", Prompt("/d"), "/d"},
      {"\nq\n", Ask("/d", "/d"), "/d"},
      {"\nQ\n", Ask("/d", "/d"), "/d"},
      {"\nquit\n", Ask("/d", "/d"), "/d"},
      {"\n\tQuit\n", Ask("/d", "/d"), "/d"},
      {"/\nq\n", Ask("/d", "/d"), "/d"},
      {"rel//\nq\n", Ask("/d", "rel/"), "/d"},
      {"\t/a/b\r\nq\n", Ask("/d", "/a/b"), "/d"},
      {"C:\\x\\y\\\nq\n", Ask("/d", "C:/x/y"), "/d"},
  };
  for (const auto& [in, out, tavik] : cases) ExpectRun(Run(in, tavik), kBanner + out, 255);
}

// The engine's error text ends the run; a failed platform package leaves the core
// package installed and the script never runs.
TEST_F(InstallerTest, CorruptPackagesShowTheEngineError) {
  const string to = Path("dest"), second = Path("dest2");
  WriteFile("dist/tavik_core.pkg", "xyz");
  ExpectRun(Run("\n\n\n", to),
            kBanner + Ask(to, to) + Installing(to) +
                "\nInstalling package ./tavik_core.pkg\nUncompressing package file"
                "\nError: Cannot decompress package file" +
                kFailed,
            255);
  EXPECT_EQ(Listing(to), std::vector<string>{});
  WritePackages("dist", kScript);
  ASSERT_TRUE(test::WritePackage(Path("dist/tavik_linux64.pkg"), "NOT A PACKAGE\n1\n"));
  ExpectRun(Run("\n\n\n", second),
            kBanner + Ask(second, second) + Installing(second) +
                Package("./tavik_core.pkg", kCoreDirs) + Package("./tavik_linux64.pkg", "") +
                "\nError: Bad package file ./tavik_linux64.pkg" + kFailed,
            255);
  EXPECT_TRUE(Exists(second + "/Java/tkinstall"));
  EXPECT_FALSE(Exists(second + "/Lib"));
}

// At end of input the line buffer keeps the last prompt, which becomes the answer:
// the directory prompt is taken as a directory and never confirmed.
TEST_F(InstallerTest, EndOfInputRepeatsTheDialogue) {
  const test::ChildResult result = Run("", "/d");
  ASSERT_TRUE(result.killed);
  const string answer = "Please enter TAVIK destination directory (/d) =>";  // the prompt itself
  string expected = kBanner;
  while (expected.size() < result.out.size()) expected += Ask("/d", answer);
  EXPECT_EQ(result.out, expected.substr(0, result.out.size()));
  EXPECT_GE(result.out.size(), 4096u);
}

TEST_F(InstallerTest, ReadConsoleLineDropsTheLineFeedAndKeepsTheBufferAtEnd) {
  WriteFile("input", "abc\r\n\n" + string(3000, 'x') + "\nlast");
  ASSERT_NE(std::freopen(Path("input").c_str(), "r", stdin), nullptr);
  char buffer[2048];
  for (const string& line : {string("abc\r"), string(), string(2047, 'x'), string(953, 'x'),
                             string("last"), string("last")}) {
    ReadConsoleLine(buffer, sizeof buffer);
    EXPECT_EQ(string(buffer), line);
  }
}

}  // namespace
}  // namespace tk
