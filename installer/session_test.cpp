// Drives the real tkinstall program with scripted input and compares its whole
// standard output, its exit status and the installed tree.
#include "installer/session.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "installer/test_process.h"
#include "lzhuf/lzhuf.h"
#include "package/package.h"
#include "support/test_util.h"

namespace tk {
namespace {

namespace fs = std::filesystem;
using std::string;

constexpr char kScript[] = "echo \"post-install in $1\"\necho done > \"$1/Bin/installed\"\n";

// ---- The texts the administrator sees -------------------------------------------

const string kBanner = "\n\nTAVIK server installation\nChecking server...";
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

// Everything from the installation line to the end of a successful run, with both
// packages found in `dir` ("" or ending in "/") unless `core` names the core package.
string Success(const string& dir, const string& to, const string& scriptSays, bool profile,
               const string& core = "") {
  const string profileLines =
      "\n\nPLEASE DO THE FOLLOWING CHANGES TO THE PROFILE OF THE USER RUNNING TAVIK:"
      "\n\n  Set the environment variable TAVIK=" +
      to + "\n  Add " + to + "/Bin to the PATH environment variable\n  Add " + to +
      "/Bin to the LD_LIBRARY_PATH environment variable";
  return Installing(to) +
         Package(core.empty() ? dir + "tavik_core.pkg" : core,
                 "\nDirectory Bin\nDirectory Java\nDirectory Doc") +
         Package(dir + "tavik_linux64.pkg", "\nDirectory Lib") + "\nUpdating environment..." +
         scriptSays + "\n\nInstallation terminated successfully\n" + (profile ? profileLines : "") +
         "\n\nPress enter to continue";
}

string ScriptSays(const string& destination) { return "post-install in " + destination + "\n"; }

// ---- Fixture --------------------------------------------------------------------

// A temporary root holding: src/ (package sources), dist/ (the distribution folder,
// the installer's working directory) and the destinations.
class InstallerTest : public test::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    if (HasFatalFailure()) return;
    root_ = dir_;
    dist_ = root_ + "/dist";
    BuildPackages(dist_, kScript);
  }

  static void Write(const string& path, const string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }
  static string Read(const string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static bool Exists(const string& path) { return access(path.c_str(), F_OK) == 0; }

  // Builds tavik_core.pkg (with `script` as Java/tkinstall) and tavik_linux64.pkg.
  void BuildPackages(const string& directory, const string& script) {
    Write(root_ + "/src/core/Bin/tavik", "#!/bin/sh\necho tavik\n");
    Write(root_ + "/src/core/Java/tkinstall", script);
    Write(root_ + "/src/core/Doc/notes.txt", "one\r\ntwo\r\n");
    Write(root_ + "/src/core.desc",
          "[Bin]\ncopyfile: tavik\nexec: tavik\n[Java]\n"
          "copyfile: tkinstall\n[Doc]\ncopyfile: notes.txt\ntextfile: notes.txt\n");
    Write(root_ + "/src/platform/Lib/libtavik.so", "platform library\n");
    Write(root_ + "/src/platform.desc", "[Lib]\ncopyfile: libtavik.so\n");
    fs::create_directories(directory);
    TkPackage builder;
    for (const string name : {"core", "platform"}) {
      const string from = root_ + "/src/" + name,
                   to = directory + "/tavik_" + (name == "core" ? "core" : "linux64") + ".pkg";
      ASSERT_TRUE(builder.BuildPackage((from + ".desc").c_str(), from.c_str(), to.c_str()))
          << builder.ErrorText();
    }
  }

  // Runs tkinstall in dist/ as `programPath` with TAVIK set to `tavik` (or unset).
  test::ChildResult Run(const string& input, const std::optional<string>& tavik,
                        const string& programPath = "./tkinstall", size_t stopAfter = 16 << 20) {
    return test::RunChild({TK_BIN_DIR "/tkinstall",
                           {programPath, "ignored argument"},
                           input,
                           dist_,
                           {{"TAVIK", tavik}},
                           60,
                           stopAfter});
  }

  // The whole output and status of a run, and that nothing was said on standard error.
  void ExpectRun(const test::ChildResult& run, const string& out, int status, bool quiet = true) {
    EXPECT_EQ(run.out, out);
    EXPECT_EQ(run.exitStatus, status);
    EXPECT_EQ(quiet ? run.err : "", "");
  }

  // The installed tree of a complete run, with the script run (or not) and gone.
  void ExpectInstalled(const string& destination, bool scriptRan) {
    EXPECT_EQ(fs::status(destination + "/Bin/tavik").permissions(), fs::perms(0755));
    EXPECT_EQ(Read(destination + "/Doc/notes.txt"), "one\ntwo\n");
    EXPECT_EQ(Read(destination + "/Lib/libtavik.so"), "platform library\n");
    EXPECT_FALSE(Exists(destination + "/Java/tkinstall"));
    EXPECT_EQ(Exists(destination + "/Bin/installed"), scriptRan);
    for (const auto& entry : fs::directory_iterator(destination)) {
      EXPECT_NE(entry.path().extension(), ".tk_temp") << entry.path();
    }
  }

  string root_, dist_;
};

// ---- Successful runs ------------------------------------------------------------

// The profile lines are shown unless the destination is the TAVIK directory, compared
// ignoring case. "n" and any other answer but "y" or nothing ask again, with the same
// default; a directory answer is cleaned of blanks and its trailing "/". The script
// command line is not quoted, so the shell cannot find a script whose path holds a
// blank; neither that nor a failing script stops the run, and the script is removed.
TEST_F(InstallerTest, SuccessfulRuns) {
  enum Script { kRuns, kNotFound, kFails };
  const string d = root_ + "/d", no = root_ + "/no";
  const struct {
    std::optional<string> tavik;
    string in, asked, to;
    bool profile;
    Script script;
  } cases[] = {
      {std::nullopt, d + "1\n\n\n", Ask("/usr/tavik", d + "1"), d + "1", true, kRuns},
      {"  " + d + "2/ ", "\ny\n\n", Ask(d + "2", d + "2"), d + "2", false, kRuns},
      {d + "3", root_ + "/D3\nY\n\n", Ask(d + "3", root_ + "/D3"), root_ + "/D3", false, kRuns},
      {root_ + "/old", d + "4\nyes\n\n", Ask(root_ + "/old", d + "4"), d + "4", true, kRuns},
      {d + "5", no + "\nn\n" + no + "\nx\n\ny\n\n",
       Ask(d + "5", no) + Ask(d + "5", no) + Ask(d + "5", d + "5"), d + "5", false, kRuns},
      {std::nullopt, "  " + root_ + "/my   dir/  \n\n\n", Ask("/usr/tavik", root_ + "/my dir"),
       root_ + "/my dir", true, kNotFound},
      {d + "6", "\n\n\n", Ask(d + "6", d + "6"), d + "6", false, kFails},  // last
  };
  for (const auto& c : cases) {
    if (c.script == kFails) BuildPackages(dist_, "echo failing\nexit 3\n");
    const string says[] = {ScriptSays(c.to), "", "failing\n"};  // by Script
    ExpectRun(Run(c.in, c.tavik),
              kBanner + c.asked + Success("./", c.to, says[c.script], c.profile), 0,
              c.script != kNotFound);
    ExpectInstalled(c.to, c.script == kRuns);
  }
  EXPECT_FALSE(Exists(no));
}

// Only argument 0 places the packages: the part before its last "tkinstall", ignoring
// case, even inside a file name. The core package falls back to ../tavik_core.pkg.
TEST_F(InstallerTest, PackagesAreFoundBesideTheProgramPath) {
  const struct {
    string programPath, packageDirectory, shownDirectory;
  } cases[] = {
      {"tkinstall", "", ""},
      {"a/tkinstall/b/TkInstall", "a/tkinstall/b", "a/tkinstall/b/"},
      {dist_ + "/A/TKINSTALL/b/tkinstall", "A/TKINSTALL/b", dist_ + "/A/TKINSTALL/b/"},
      {"/usr/bin/installer", "", ""},
  };
  for (const auto& c : cases) {
    BuildPackages(dist_ + "/" + c.packageDirectory, kScript);
    const string to = root_ + "/dest" + std::to_string(&c - cases);
    ExpectRun(Run("\n\n\n", to, c.programPath),
              kBanner + Ask(to, to) + Success(c.shownDirectory, to, ScriptSays(to), false), 0);
  }
  fs::rename(dist_ + "/tavik_core.pkg", root_ + "/tavik_core.pkg");
  const string to = root_ + "/dest";
  ExpectRun(Run("\n\n\n", to),
            kBanner + Ask(to, to) + Success("./", to, ScriptSays(to), false, "../tavik_core.pkg"),
            0);
}

// ---- Refusals and failures ------------------------------------------------------

TEST_F(InstallerTest, MissingPackagesAreNamed) {
  const struct {
    string programPath, removed, missing;
  } cases[] = {
      {"./tkinstall", "tavik_linux64.pkg", "./tavik_linux64.pkg"},
      {"/x/TKINSTALL", "", "/x/tavik_linux64.pkg"},
      {"/a/tkinstall/b/tkinstall", "", "/a/tkinstall/b/tavik_linux64.pkg"},
      {"/opt/setuptkinstall", "", "/opt/setup/tavik_linux64.pkg"},
      {"./tkinstall", "tavik_core.pkg", "../tavik_core.pkg"},  // without its fallback: last
  };
  fs::copy_file(dist_ + "/tavik_core.pkg", root_ + "/tavik_core.pkg");  // the fallback of ./
  for (const auto& c : cases) {
    if (c.removed == "tavik_core.pkg") fs::remove(root_ + "/tavik_core.pkg");
    if (!c.removed.empty()) fs::rename(dist_ + "/" + c.removed, root_ + "/removed");
    ExpectRun(Run("", std::nullopt, c.programPath),
              "\n\nTAVIK server installation\nCannot find " + c.missing + " package" + kFailed,
              255);
    if (!c.removed.empty()) fs::rename(root_ + "/removed", dist_ + "/" + c.removed);
  }
}

// The run marker of the TAVIK installation stops the run; a blank TAVIK proposes
// /usr/tavik but still looks for the marker, in the working directory. A first
// character "Q" quits at once at either prompt; directory answers are cleaned before
// they are confirmed.
TEST_F(InstallerTest, RefusalsAndQuitsEndAtOnce) {
  const string service =
      "\nThe TAVIK service is running (or has not been stopped correctly)"
      "\nPlease stop it and restart the installation" +
      kFailed;
  Write(root_ + "/old/Bin/tavik.run", "");
  Write(dist_ + "/Bin/tavik.run", "");
  const struct {
    string input, out, tavik = "/d";
  } cases[] = {
      {"\n\n\n", service, " " + root_ + "/old/ "},
      {"\n", service, "   "},
      {"q\n", Prompt("/d")},
      {"Q\n", Prompt("/d")},
      {"quit\n", Prompt("/d")},
      {"qdir\n", Prompt("/d")},
      {"  quit now\n", Prompt("/d")},
      {"\nq\n", Ask("/d", "/d")},
      {"\nQ\n", Ask("/d", "/d")},
      {"\nquit\n", Ask("/d", "/d")},
      {"\n\tQuit\n", Ask("/d", "/d")},
      {"/\nq\n", Ask("/d", "/d")},
      {"rel//\nq\n", Ask("/d", "rel/")},
      {"\t/a/b\r\nq\n", Ask("/d", "/a/b")},
      {"C:\\x\\y\\\nq\n", Ask("/d", "C:/x/y")},
  };
  for (const auto& c : cases) ExpectRun(Run(c.input, c.tavik), kBanner + c.out, 255);
}

TEST_F(InstallerTest, CorruptPackagesShowTheEngineError) {
  const string to = root_ + "/dest";
  Write(dist_ + "/tavik_core.pkg", "xyz");
  ExpectRun(Run("\n\n\n", to),
            kBanner + Ask(to, to) + Installing(to) +
                "\nInstalling package ./tavik_core.pkg\nUncompressing package file"
                "\nError: Cannot decompress package file" +
                kFailed,
            255);
  EXPECT_FALSE(Exists(to + "/tavik_core.pkg.tk_temp"));
  // A well-compressed platform stream that is not a record stream: the core package
  // stays installed and the script never runs.
  const string second = root_ + "/dest2";
  BuildPackages(dist_, kScript);
  Write(root_ + "/plain", "NOT A PACKAGE\n1\n");
  auto codec = std::make_unique<LzhufCodec>();
  ASSERT_EQ(
      LzhufEncodeFile(*codec, (root_ + "/plain").c_str(), (dist_ + "/tavik_linux64.pkg").c_str()),
      0);
  ExpectRun(Run("\n\n\n", second),
            kBanner + Ask(second, second) + Installing(second) +
                Package("./tavik_core.pkg", "\nDirectory Bin\nDirectory Java\nDirectory Doc") +
                Package("./tavik_linux64.pkg", "") +
                "\nError: Bad package file ./tavik_linux64.pkg" + kFailed,
            255);
  EXPECT_TRUE(Exists(second + "/Java/tkinstall"));
  EXPECT_FALSE(Exists(second + "/Lib"));
}

// At end of input the line buffer keeps the last prompt, which becomes the answer:
// the directory prompt is taken as a directory and never confirmed.
TEST_F(InstallerTest, EndOfInputRepeatsTheDialogue) {
  const test::ChildResult result = Run("", "/d", "./tkinstall", 4096);
  ASSERT_TRUE(result.killed);
  const string answer = "Please enter TAVIK destination directory (/d) =>";  // the prompt itself
  string expected = kBanner;
  while (expected.size() < result.out.size()) expected += Ask("/d", answer);
  EXPECT_EQ(result.out, expected.substr(0, result.out.size()));
  EXPECT_GE(result.out.size(), 4096u);
}

TEST_F(InstallerTest, ReadConsoleLineDropsTheLineFeedAndKeepsTheBufferAtEnd) {
  Write(root_ + "/input", "abc\r\n\n" + string(3000, 'x') + "\nlast");
  ASSERT_NE(std::freopen((root_ + "/input").c_str(), "r", stdin), nullptr);
  char buffer[2048];
  for (const string& line : {string("abc\r"), string(), string(2047, 'x'), string(953, 'x'),
                             string("last"), string("last")}) {
    ReadConsoleLine(buffer, sizeof buffer);
    EXPECT_EQ(string(buffer), line);
  }
}

}  // namespace
}  // namespace tk
