#include "package/temp_paths.h"

#include <filesystem>

#include "package/package.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using TempPaths = test::TempDirTest;

TEST_F(TempPaths, NameWhatTheEngineWorksThrough) {
  EXPECT_EQ(InstallTempPath("dist\\core.pkg", " \t/opt/x/ "), "/opt/x/core.pkg.tk_temp");
  EXPECT_EQ(InstallTempPath("a/b/p.pkg", ""), "p.pkg.tk_temp");
  // A directory standing at the path that temp_paths.h gives makes the engine fail there,
  // so each operation really goes through that path.
  ASSERT_TRUE(test::WritePackage(Path("p.pkg"), test::kStreamStart + test::DirRecord("x")));
  ASSERT_TRUE(WriteFile("d.desc", "[x]\n") && WriteFile("t.txt", "a\r\n"));
  const std::string destination = Path("dest") + "  / ";
  for (const std::string& blocked :
       {InstallTempPath(Path("p.pkg"), destination), SiblingTempPath(Path("q.pkg")),
        SiblingTempPath(Path("p.pkg")), SiblingTempPath(Path("t.txt"))}) {
    std::filesystem::create_directories(blocked);
  }
  TkPackage package;
  EXPECT_FALSE(package.InstallPackage(Path("p.pkg").c_str(), destination.c_str(), 0));
  EXPECT_EQ(package.ErrorText(), "Cannot decompress package file");
  EXPECT_FALSE(package.BuildPackage(Path("d.desc").c_str(), path().c_str(), Path("q.pkg").c_str()));
  EXPECT_EQ(package.ErrorText(), "Cannot open temporary package file " + Path("q.pkg.tk_temp"));
  std::vector<std::string> lines;
  EXPECT_FALSE(package.ReadPackageHeader(Path("p.pkg").c_str(), lines));
  EXPECT_EQ(package.ErrorText(), "Cannot decompress package file");
  EXPECT_FALSE(package.SetTextFile(Path("t.txt").c_str()));
  EXPECT_EQ(package.ErrorText(), "Cannot open temporary file " + Path("t.txt.tk_temp"));
}

}  // namespace
}  // namespace tk
