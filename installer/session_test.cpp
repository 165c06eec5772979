// Drives the real tkinstall program with scripted input and compares its whole
// standard output, its exit status and the installed tree.
#include "installer/session.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "installer/test_process.h"
#include "lzhuf/lzhuf.h"
#include "package/package.h"

namespace tk {
namespace {

namespace fs = std::filesystem;

constexpr char kInstaller[] = TK_BIN_DIR "/tkinstall";
constexpr char kScript[] =
    "echo \"post-install in $1\"\n"
    "echo done > \"$1/Bin/installed\"\n";

// ---- The texts the administrator sees -------------------------------------------

std::string Banner() { return "\n\nTAVIK server installation\nChecking server..."; }

std::string DirectoryPrompt(const std::string& defaultDirectory) {
  return "\n\nPlease enter TAVIK destination directory (" + defaultDirectory + ") => ";
}

std::string ConfirmPrompt(const std::string& destination) {
  return "\n\nConfirm destination directory " + destination + " (y/n/q) => ";
}

std::string Dialogue(const std::string& defaultDirectory, const std::string& destination) {
  return DirectoryPrompt(defaultDirectory) + ConfirmPrompt(destination);
}

std::string Installing(const std::string& destination) {
  return "\n\nInstalling TAVIK in " + destination +
         " directory\nThis may take a few minutes...";
}

std::string PackageLines(const std::string& path) {
  return "\nInstalling package " + path + "\nUncompressing package file\nVerifying package";
}

std::string CoreLines(const std::string& path) {
  return PackageLines(path) + "\nDirectory Bin\nDirectory Java\nDirectory Doc";
}

std::string PlatformLines(const std::string& path) {
  return PackageLines(path) + "\nDirectory Lib";
}

std::string Profile(const std::string& destination) {
  return "\n\nPLEASE DO THE FOLLOWING CHANGES TO THE PROFILE OF THE USER RUNNING TAVIK:"
         "\n\n  Set the environment variable TAVIK=" + destination +
         "\n  Add " + destination + "/Bin to the PATH environment variable"
         "\n  Add " + destination + "/Bin to the LD_LIBRARY_PATH environment variable";
}

// Everything from the installation line to the end of a successful run.
std::string Success(const std::string& corePath, const std::string& platformPath,
                    const std::string& destination, const std::string& scriptOutput,
                    bool profile) {
  return Installing(destination) + CoreLines(corePath) + PlatformLines(platformPath) +
         "\nUpdating environment..." + scriptOutput +
         "\n\nInstallation terminated successfully\n" + (profile ? Profile(destination) : "") +
         "\n\nPress enter to continue";
}

// The same, with both packages found in `directory` ("" or ending in "/").
std::string Success(const std::string& directory, const std::string& destination,
                    const std::string& scriptOutput, bool profile) {
  return Success(directory + "tavik_core.pkg", directory + "tavik_linux64.pkg", destination,
                 scriptOutput, profile);
}

std::string FailureEnding() { return "\n\nInstallation failed\n\n\nPress enter to continue"; }

// ---- Fixture --------------------------------------------------------------------

// A temporary root holding: src/ (package sources), dist/ (the distribution folder,
// the installer's working directory) and the destinations.
class InstallerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tk_installer_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    dist_ = root_ + "/dist";
    WriteSources(kScript);
    BuildPackages(dist_);
  }
  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }

  static void Write(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
  }
  static bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

  void WriteSources(const std::string& script) {
    Write(root_ + "/src/core/Bin/tavik", "#!/bin/sh\necho tavik\n");
    Write(root_ + "/src/core/Java/tkinstall", script);
    Write(root_ + "/src/core/Doc/notes.txt", "one\r\ntwo\r\n");
    Write(root_ + "/src/core.desc",
          "[Bin]\ncopyfile: tavik\nexec: tavik\n[Java]\ncopyfile: tkinstall\n"
          "[Doc]\ncopyfile: notes.txt\ntextfile: notes.txt\n");
    Write(root_ + "/src/platform/Lib/libtavik.so", "platform library\n");
    Write(root_ + "/src/platform.desc", "[Lib]\ncopyfile: libtavik.so\n");
  }

  // Builds tavik_core.pkg and tavik_linux64.pkg into `directory`.
  void BuildPackages(const std::string& directory) {
    fs::create_directories(directory);
    TkPackage builder;
    ASSERT_TRUE(builder.BuildPackage((root_ + "/src/core.desc").c_str(),
                                     (root_ + "/src/core").c_str(),
                                     (directory + "/tavik_core.pkg").c_str()))
        << builder.ErrorText();
    ASSERT_TRUE(builder.BuildPackage((root_ + "/src/platform.desc").c_str(),
                                     (root_ + "/src/platform").c_str(),
                                     (directory + "/tavik_linux64.pkg").c_str()))
        << builder.ErrorText();
  }

  // Runs tkinstall in dist/ as `programPath` with TAVIK set to `tavik` (or unset).
  test::ChildResult Run(const std::string& input, const std::optional<std::string>& tavik,
                        const std::string& programPath = "./tkinstall", bool quiet = true) {
    test::ChildRun run;
    run.program = kInstaller;
    run.arguments = {programPath, "ignored argument"};
    run.input = input;
    run.workDirectory = dist_;
    run.environment["TAVIK"] = tavik;
    test::ChildResult result = test::RunChild(run);
    EXPECT_FALSE(result.killed);
    if (quiet) {
      EXPECT_EQ(result.err, "");
    }
    return result;
  }

  // The installed tree of a complete run, with the script run (or not) and gone.
  void ExpectInstalled(const std::string& destination, bool scriptRan) {
    struct stat info {};
    ASSERT_EQ(stat((destination + "/Bin/tavik").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0755u);
    EXPECT_EQ(Read(destination + "/Doc/notes.txt"), "one\ntwo\n");
    EXPECT_EQ(Read(destination + "/Lib/libtavik.so"), "platform library\n");
    EXPECT_FALSE(Exists(destination + "/Java/tkinstall"));
    EXPECT_EQ(Exists(destination + "/Bin/installed"), scriptRan);
    for (const auto& entry : fs::directory_iterator(destination)) {
      EXPECT_NE(entry.path().extension(), ".tk_temp") << entry.path();
    }
  }

  std::string ScriptSays(const std::string& destination) {
    return "post-install in " + destination + "\n";
  }

  std::string root_;
  std::string dist_;
};

// ---- Successful runs ------------------------------------------------------------

TEST_F(InstallerTest, TavikUnsetProposesUsrTavikAndShowsProfile) {
  const std::string destination = root_ + "/dest";
  const auto result = Run(destination + "\n\n\n", std::nullopt);
  EXPECT_EQ(result.out, Banner() + Dialogue("/usr/tavik", destination) +
                            Success("./", destination, ScriptSays(destination), true));
  EXPECT_EQ(result.exitStatus, 0);
  ExpectInstalled(destination, true);
}

TEST_F(InstallerTest, AcceptingTheTavikDirectoryHidesProfile) {
  const std::string destination = root_ + "/dest";
  const auto result = Run("\ny\n\n", "  " + destination + "/ ");
  EXPECT_EQ(result.out, Banner() + Dialogue(destination, destination) +
                            Success("./", destination, ScriptSays(destination), false));
  EXPECT_EQ(result.exitStatus, 0);
  ExpectInstalled(destination, true);
}

TEST_F(InstallerTest, TavikIsComparedIgnoringCase) {
  const std::string destination = root_ + "/DEST";
  const auto result = Run(destination + "\nY\n\n", root_ + "/dest");
  EXPECT_EQ(result.out, Banner() + Dialogue(root_ + "/dest", destination) +
                            Success("./", destination, ScriptSays(destination), false));
  EXPECT_EQ(result.exitStatus, 0);
}

TEST_F(InstallerTest, ChoosingAnotherDirectoryThanTavikShowsProfile) {
  const std::string destination = root_ + "/new";
  const auto result = Run(destination + "\nyes\n\n", root_ + "/old");
  EXPECT_EQ(result.out, Banner() + Dialogue(root_ + "/old", destination) +
                            Success("./", destination, ScriptSays(destination), true));
  EXPECT_EQ(result.exitStatus, 0);
  ExpectInstalled(destination, true);
}

TEST_F(InstallerTest, RefusedDirectoryIsAskedAgainWithTheSameDefault) {
  const std::string destination = root_ + "/dest";
  const std::string refused = root_ + "/refused";
  const auto result = Run(refused + "\nn\n" + refused + "\nx\n\n\n", destination);
  EXPECT_EQ(result.out, Banner() + Dialogue(destination, refused) +
                            Dialogue(destination, refused) + Dialogue(destination, destination) +
                            Success("./", destination, ScriptSays(destination), false));
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_FALSE(Exists(refused));
}

// The command line is not quoted, so the shell cannot find a script whose path holds
// a blank; the installation still succeeds and the script is still removed.
TEST_F(InstallerTest, DirectoryWithBlanksAndTrailingSlashIsCleaned) {
  const std::string destination = root_ + "/my dir";
  const auto result = Run("  " + root_ + "/my   dir/  \n\n\n", std::nullopt, "./tkinstall", false);
  EXPECT_EQ(result.out, Banner() + Dialogue("/usr/tavik", destination) +
                            Success("./", destination, "", true));
  EXPECT_EQ(result.exitStatus, 0);
  ExpectInstalled(destination, false);
}

TEST_F(InstallerTest, FailingScriptStillSucceedsAndIsDeleted) {
  WriteSources("echo failing\nexit 3\n");
  BuildPackages(dist_);
  const std::string destination = root_ + "/dest";
  const auto result = Run("\n\n\n", destination);
  EXPECT_EQ(result.out, Banner() + Dialogue(destination, destination) +
                            Success("./", destination, "failing\n", false));
  EXPECT_EQ(result.exitStatus, 0);
  ExpectInstalled(destination, false);
}

TEST_F(InstallerTest, CoreFallsBackToTheParentOfTheWorkingDirectory) {
  fs::rename(dist_ + "/tavik_core.pkg", root_ + "/tavik_core.pkg");
  const std::string destination = root_ + "/dest";
  const auto result = Run("\n\n\n", destination);
  EXPECT_EQ(result.out, Banner() + Dialogue(destination, destination) +
                            Success("../tavik_core.pkg", "./tavik_linux64.pkg", destination,
                                    ScriptSays(destination), false));
  EXPECT_EQ(result.exitStatus, 0);
}

// Only argument 0 places the packages: the part before its last "tkinstall".
TEST_F(InstallerTest, PackagesAreFoundBesideTheProgramPath) {
  struct Case {
    std::string programPath;
    std::string packageDirectory;  // where the packages lie, below dist/
    std::string shownDirectory;    // how the installer names them
  } cases[] = {
      {"tkinstall", "", ""},
      {"a/tkinstall/b/TkInstall", "a/tkinstall/b", "a/tkinstall/b/"},
      {dist_ + "/A/TKINSTALL/b/tkinstall", "A/TKINSTALL/b", dist_ + "/A/TKINSTALL/b/"},
      {"setuptkinstall", "setup", "setup/"},
      {"/usr/bin/installer", "", ""},
  };
  int run = 0;
  for (const Case& c : cases) {
    BuildPackages(dist_ + "/" + c.packageDirectory);
    const std::string destination = root_ + "/dest" + std::to_string(++run);
    const auto result = Run("\n\n\n", destination, c.programPath);
    EXPECT_EQ(result.out, Banner() + Dialogue(destination, destination) +
                              Success(c.shownDirectory, destination,
                                      ScriptSays(destination), false))
        << c.programPath;
    EXPECT_EQ(result.exitStatus, 0) << c.programPath;
  }
}

// ---- Refusals and failures ------------------------------------------------------

TEST_F(InstallerTest, MissingPackagesAreNamed) {
  struct Case {
    std::string programPath;
    std::string removed;
    std::string missing;
  } cases[] = {
      {"./tkinstall", "tavik_core.pkg", "../tavik_core.pkg"},
      {"./tkinstall", "tavik_linux64.pkg", "./tavik_linux64.pkg"},
      {"/x/TKINSTALL", "", "/x/tavik_linux64.pkg"},
      {"/opt/setuptkinstall", "", "/opt/setup/tavik_linux64.pkg"},
  };
  fs::copy_file(dist_ + "/tavik_core.pkg", root_ + "/tavik_core.pkg");
  for (const Case& c : cases) {
    if (c.removed == "tavik_core.pkg") fs::rename(root_ + "/tavik_core.pkg", root_ + "/away");
    if (!c.removed.empty()) fs::rename(dist_ + "/" + c.removed, root_ + "/removed");
    const auto result = Run("", std::nullopt, c.programPath);
    EXPECT_EQ(result.out, "\n\nTAVIK server installation\nCannot find " + c.missing +
                              " package" + FailureEnding())
        << c.programPath;
    EXPECT_EQ(result.exitStatus, 255);
    if (!c.removed.empty()) fs::rename(root_ + "/removed", dist_ + "/" + c.removed);
    if (c.removed == "tavik_core.pkg") fs::rename(root_ + "/away", root_ + "/tavik_core.pkg");
  }
}

TEST_F(InstallerTest, RunMarkerOfTheTavikInstallationStopsTheRun) {
  const std::string service =
      "\nThe TAVIK service is running (or has not been stopped correctly)"
      "\nPlease stop it and restart the installation";
  Write(root_ + "/old/Bin/tavik.run", "");
  auto result = Run("\n\n\n", " " + root_ + "/old/ ");
  EXPECT_EQ(result.out, Banner() + service + FailureEnding());
  EXPECT_EQ(result.exitStatus, 255);

  // A blank TAVIK proposes /usr/tavik but still looks for the marker, in the working
  // directory.
  Write(dist_ + "/Bin/tavik.run", "");
  result = Run("\n", "   ");
  EXPECT_EQ(result.out, Banner() + service + FailureEnding());
  EXPECT_EQ(result.exitStatus, 255);
}

TEST_F(InstallerTest, QuitAnswersEndAtOnceWithoutWaiting) {
  const std::string destination = root_ + "/dest";
  for (const char* answer : {"q", "Q", "quit", "  quit now", "qdir"}) {
    const auto result = Run(std::string(answer) + "\n", destination);
    EXPECT_EQ(result.out, Banner() + DirectoryPrompt(destination)) << answer;
    EXPECT_EQ(result.exitStatus, 255);
  }
  for (const char* answer : {"q", "Q", "quit", "\tQuit"}) {
    const auto result = Run("\n" + std::string(answer) + "\n", destination);
    EXPECT_EQ(result.out, Banner() + Dialogue(destination, destination)) << answer;
    EXPECT_EQ(result.exitStatus, 255);
  }
  EXPECT_FALSE(Exists(destination));
}

TEST_F(InstallerTest, DirectoryAnswersAreCleanedBeforeConfirmation) {
  struct Case {
    const char* answer;
    const char* destination;
  } cases[] = {
      {"  /a/my   dir/  ", "/a/my dir"}, {"\t/a/b\r", "/a/b"}, {"/", "/d"},
      {"", "/d"},                        {"C:\\x\\y\\", "C:/x/y"}, {"rel//", "rel/"},
  };
  for (const Case& c : cases) {
    const auto result = Run(std::string(c.answer) + "\nq\n", "/d");
    EXPECT_EQ(result.out, Banner() + Dialogue("/d", c.destination)) << c.answer;
  }
}

TEST_F(InstallerTest, CorruptPackageShowsTheEngineError) {
  Write(dist_ + "/tavik_core.pkg", "xyz");
  const std::string destination = root_ + "/dest";
  const auto result = Run("\n\n\n", destination);
  EXPECT_EQ(result.out, Banner() + Dialogue(destination, destination) + Installing(destination) +
                            "\nInstalling package ./tavik_core.pkg\nUncompressing package file"
                            "\nError: Cannot decompress package file" + FailureEnding());
  EXPECT_EQ(result.exitStatus, 255);
  EXPECT_FALSE(Exists(destination + "/tavik_core.pkg.tk_temp"));
}

TEST_F(InstallerTest, BadPlatformPackageLeavesTheCorePackageInstalled) {
  // A well-compressed stream that is not a record stream.
  Write(root_ + "/plain", "NOT A PACKAGE\n1\n");
  auto codec = std::make_unique<LzhufCodec>();
  ASSERT_EQ(LzhufEncodeFile(*codec, (root_ + "/plain").c_str(),
                            (dist_ + "/tavik_linux64.pkg").c_str()),
            0);
  const std::string destination = root_ + "/dest";
  const auto result = Run("\n\n\n", destination);
  EXPECT_EQ(result.out, Banner() + Dialogue(destination, destination) + Installing(destination) +
                            CoreLines("./tavik_core.pkg") + PackageLines("./tavik_linux64.pkg") +
                            "\nError: Bad package file ./tavik_linux64.pkg" + FailureEnding());
  EXPECT_EQ(result.exitStatus, 255);
  EXPECT_TRUE(Exists(destination + "/Java/tkinstall"));  // the script never ran
  EXPECT_FALSE(Exists(destination + "/Lib"));
}

// At end of input the line buffer keeps the last prompt, which becomes the answer:
// the directory prompt is taken as a directory and never confirmed.
TEST_F(InstallerTest, EndOfInputRepeatsTheDialogue) {
  test::ChildRun run;
  run.program = kInstaller;
  run.arguments = {"./tkinstall"};
  run.workDirectory = dist_;
  run.environment["TAVIK"] = "/d";
  run.stopAfterBytes = 4096;
  const test::ChildResult result = test::RunChild(run);
  ASSERT_TRUE(result.killed);
  std::string expected = Banner();
  while (expected.size() < result.out.size()) {
    expected += Dialogue("/d", "Please enter TAVIK destination directory (/d) =>");
  }
  EXPECT_EQ(result.out, expected.substr(0, result.out.size()));
  EXPECT_GE(result.out.size(), 4096u);
}

// ---- ReadConsoleLine ------------------------------------------------------------

TEST_F(InstallerTest, ReadConsoleLineDropsTheLineFeedAndKeepsTheBufferAtEnd) {
  Write(root_ + "/input", "abc\r\n\n" + std::string(3000, 'x') + "\nlast");
  ASSERT_NE(std::freopen((root_ + "/input").c_str(), "r", stdin), nullptr);
  char buffer[2048];
  const std::string expected[] = {"abc\r", "", std::string(2047, 'x'), std::string(953, 'x'),
                                  "last", "last"};
  for (const std::string& line : expected) {
    ReadConsoleLine(buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer), line);
  }
}

}  // namespace
}  // namespace tk
