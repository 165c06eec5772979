// The progress display follows files by path: each stage must name the file that the
// engine really works through, or the display silently shows nothing.
#include <filesystem>

#include "package/package.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"
#include "tkpack/commands.h"

namespace tk {
namespace {

using TkpackStages = test::TempDirTest;

// A directory standing at a watched path makes the engine fail on it.
void Block(const std::string& path) { std::filesystem::create_directories(path); }

TEST_F(TkpackStages, WatchTheFilesTheEngineWorksThrough) {
  ASSERT_TRUE(test::WritePackage(Path("p.pkg"), test::kStreamStart + test::DirRecord("x")));
  const std::string destination = Path("dest") + " /";
  const std::vector<WatchedFile> install = InstallStages(Path("p.pkg"), destination);
  ASSERT_EQ(install.size(), 2u);
  EXPECT_EQ(install[0].path, Path("p.pkg"));
  Block(install[1].path);
  TkPackage package;
  EXPECT_FALSE(package.InstallPackage(Path("p.pkg").c_str(), destination.c_str(), 0));
  EXPECT_EQ(package.ErrorText(), "Cannot decompress package file");

  ASSERT_TRUE(WriteFile("d.desc", "[x]\n"));
  for (const WatchedFile& stage : BuildStages(Path("q.pkg"))) {
    Block(stage.path);
    EXPECT_FALSE(package.BuildPackage(Path("d.desc").c_str(), nullptr, Path("q.pkg").c_str()));
    EXPECT_EQ(package.ErrorText(), "Cannot open temporary package file " + stage.path);
  }
}

}  // namespace
}  // namespace tk
