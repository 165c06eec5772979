#include <unistd.h>

#include <algorithm>
#include <vector>

#include "package/package_test_fixture.h"

namespace tk {
namespace {

using Tree = std::map<std::string, std::string>;

class InstallationTest : public PackageTest {
 protected:
  // Installs a package made of the magic lines and `body` into root/dest.
  bool Install(const std::string& body, int verbose = 0) {
    return package_.InstallPackage(WriteStream(kMagic + body).c_str(), Dest().c_str(), verbose);
  }
  std::string Dest() const { return Path("dest"); }
};

TEST_F(InstallationTest, AppliesRecordsInFileOrderIntoANewDestination) {
  const std::string binary = std::string("[Exec]\nName = x\n\0\r\n", 19);
  const std::string body = "[Dir]\nName = \n\n[File]\nName = top\nSize = 2\nhi\n\n"
                           "[dir]\nName = a\\b c\n\n[File]\nName = bin\nSize = 19\n" + binary +
                           "\n\n[File]\nName = empty\nSize = 0\n\n\n[File]\nName = run\nSize = 3\n"
                           "r\r\n\n\n[Exec]\nName = run\n\n\n[TextFile]\nName = run\n\n\n"
                           "[HEADER]\nName = ignored\n[Unknown]\n";
  const std::string dest = Path("opt/vendor/tavik");
  ASSERT_TRUE(package_.InstallPackage(WriteStream(kMagic + body).c_str(), (dest + "/").c_str(), 0));
  EXPECT_EQ(package_.ErrorText(), "");
  EXPECT_EQ(Snapshot(dest), (Tree{{"top", "420:hi"},
                                  {"a", "dir"},
                                  {"a/b c", "dir"},
                                  {"a/b c/bin", "420:" + binary},
                                  {"a/b c/empty", "420:"},
                                  {"a/b c/run", "493:r\n"}}));
  EXPECT_EQ(TempFilesLeft(), 0);
}

TEST_F(InstallationTest, FailuresGiveTheirTextAndLeaveNoTemporaryFile) {
  const std::string bad = "Bad package file " + Path("test.pkg");
  const struct {
    std::string stream;
    std::string error;
  } cases[] = {
      {"TAVIK PACKAGE\n1\n[Dir]\nName = a\n", bad},
      {"TAVIK PACKAGE FILE\n", bad},
      {std::string(kMagic) + "[Dir]\nName = a\n\n[File]\nName = x\n", bad},
      {std::string(kMagic) + "[Dir]\nName = a\n\n[File]\n\nName = x\nSize = 0\n\n\n", bad},
      {std::string(kMagic) + "[Dir]\nName = a\n\n[File]\n\n\n", bad},
      {std::string(kMagic) + "[RmDir]\nName = a\n", bad},
      {std::string(kMagic) + "[Dir]\nName = a\n\n[Exec]\nName = nothere\n\n\n",
       "Cannot change file access rigths " + Dest() + "/a/nothere"},
      {std::string(kMagic) + "[Dir]\nName = \n\n[File]\nName = no/such\nSize = 0\n\n\n",
       "Cannot create file " + Dest() + "/no/such"},
      {std::string(kMagic) + "[Dir]\nName = \n\n[File]\nName = f\nSize = 0\n\n\n"
                             "[Dir]\nName = f/sub\n\n",
       "cannot create directory: " + Dest() + "/f"},
      {std::string(kMagic) + "[Dir]\nName = \n\n[TextFile]\nName = none\n\n\n",
       "Cannot set text file " + Dest() + "/none"},
  };
  for (const auto& c : cases) {
    EXPECT_FALSE(package_.InstallPackage(WriteStream(c.stream).c_str(), Dest().c_str(), 0));
    EXPECT_EQ(package_.ErrorText(), c.error) << c.stream;
    EXPECT_EQ(TempFilesLeft(), 0) << c.stream;
  }
  EXPECT_TRUE(std::filesystem::is_directory(Path("dest/a")));  // earlier records stay
}

TEST_F(InstallationTest, UnreadablePackagesAndDestinations) {
  WriteFile("short.pkg", "ab");
  WriteFile("blocker", "");
  const struct {
    std::string package;
    std::string destination;
    std::string error;
  } cases[] = {
      {Path("none.pkg"), Dest(), "Cannot decompress package file"},
      {Path("short.pkg"), Dest(), "Cannot decompress package file"},
      {Path("x.pkg"), Path("blocker/sub"), "cannot create target directory: " + Path("blocker/sub")},
  };
  for (const auto& c : cases) {
    EXPECT_FALSE(package_.InstallPackage(c.package.c_str(), c.destination.c_str(), 0));
    EXPECT_EQ(package_.ErrorText(), c.error);
    EXPECT_EQ(TempFilesLeft(), 0);
  }
  EXPECT_FALSE(package_.InstallPackage(nullptr, Dest().c_str(), 1));
  EXPECT_EQ(package_.ErrorText(), "No package file");
}

TEST_F(InstallationTest, FileRunningPastTheEndInstallsWhatRemains) {
  const std::string package = WriteStream(std::string(kMagic) +
                                          "[Dir]\nName = \n\n[File]\nName = f\nSize = 1000\nabc");
  EXPECT_TRUE(package_.InstallPackage(package.c_str(), Dest().c_str(), 0));
  EXPECT_EQ(ReadFile(Dest() + "/f"), "abc");
  EXPECT_EQ(TempFilesLeft(), 0);
}

TEST_F(InstallationTest, RemoveFileMatchesNamesOfTheCurrentDirectoryOnly) {
  const struct {
    const char* pattern;
    std::vector<std::string> removed;
  } cases[] = {
      {"*.log", {"a.log", "b.log"}}, {"log*", {"logfile"}},
      {"*", {"a.log", "b.log", "keep.txt", "logfile"}},
      {"keep.txt", {"keep.txt"}},   {".hidden.log", {".hidden.log"}},
      {"missing", {}},              {"", {}},
      {"sub", {}},                  {"**", {}},
  };
  const std::vector<std::string> files = {"a.log", "b.log", "keep.txt", "logfile", ".hidden.log",
                                          "sub/c.log"};
  for (const auto& c : cases) {
    for (const std::string& file : files) WriteFile("dest/d/" + file, "x");
    ASSERT_TRUE(Install("[Dir]\nName = d\n\n[RemoveFile]\nName = " + std::string(c.pattern) + "\n\n\n"));
    for (const std::string& file : files) {
      const bool gone = std::filesystem::exists(Dest() + "/d/" + file) == false;
      EXPECT_EQ(gone, std::find(c.removed.begin(), c.removed.end(), file) != c.removed.end())
          << c.pattern << " " << file;
    }
  }
}

TEST_F(InstallationTest, RmDirRemovesFilesAndOptionallySubdirectories) {
  for (const char* withSubdirs : {"NO", "YES"}) {
    WriteFile("dest/r/f", "x");
    WriteFile("dest/r/sub/g", "y");
    ASSERT_TRUE(Install("[RmDir]\nName = r\\\nWithsubdir = " + std::string(withSubdirs) + "\n\n"));
    Tree expected = {{"r", "dir"}};
    if (std::string(withSubdirs) == "NO") expected = {{"r", "dir"}, {"r/sub", "dir"}, {"r/sub/g", "420:y"}};
    EXPECT_EQ(Snapshot(Dest()), expected) << withSubdirs;
  }
}

TEST_F(InstallationTest, TextDirConvertsEveryFileButNotSubdirectories) {
  WriteFile("dest/t/a.txt", "1\r\n2");
  WriteFile("dest/t/b.bin", "\r\n");
  WriteFile("dest/t/sub/c.txt", "3\r\n");
  ASSERT_TRUE(Install("[TextDir]\nName = t\nName = t\n\n\n"));
  EXPECT_EQ(Snapshot(Dest()), (Tree{{"t", "dir"}, {"t/a.txt", "420:1\n2\n"}, {"t/b.bin", "420:\n"},
                                    {"t/sub", "dir"}, {"t/sub/c.txt", "420:3\r\n"}}));
}

TEST_F(InstallationTest, RecordsBeforeAnyDirAreRelativeToTheWorkingDirectory) {
  const std::string previous = std::filesystem::current_path();
  std::filesystem::current_path(root_);
  EXPECT_TRUE(Install("[File]\nName = loose\nSize = 1\nz\n\n"));
  std::filesystem::current_path(previous);
  EXPECT_EQ(ReadFile(Path("loose")), "z");
}

TEST_F(InstallationTest, VerboseProgressLines) {
  const std::string body = "[Dir]\nName = a\n\n[Dir]\nName = b\\c\n\n";
  testing::internal::CaptureStdout();
  ASSERT_TRUE(Install(body, 1));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nInstalling package " + Path("test.pkg") +
                "\nUncompressing package file\nVerifying package\nDirectory a\nDirectory b/c");
  testing::internal::CaptureStdout();
  ASSERT_TRUE(Install(body, 0));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(InstallationTest, SetTextFileEndsEveryLineWithOneLineFeed) {
  const std::string longLine(70000, 'x');
  const struct {
    std::string before;
    std::string after;
  } cases[] = {{"a\r\nb", "a\nb\n"}, {"", ""}, {"x\n\n", "x\n\n"},
               {longLine, longLine.substr(0, 65534) + "\n" + longLine.substr(65534) + "\n"}};
  for (const auto& c : cases) {
    WriteFile("text", c.before);
    EXPECT_TRUE(package_.SetTextFile(Path("text").c_str()));
    EXPECT_EQ(ReadFile(Path("text")), c.after);
  }
  EXPECT_FALSE(package_.SetTextFile(Path("missing").c_str()));
  EXPECT_EQ(package_.ErrorText(), "Cannot open file " + Path("missing"));
  EXPECT_FALSE(package_.SetTextFile(Path("no/dir").c_str()));
  EXPECT_EQ(package_.ErrorText(), "Cannot open temporary file " + Path("no/dir") + ".tk_temp");
  EXPECT_EQ(TempFilesLeft(), 0);
}

TEST_F(InstallationTest, ReadPackageHeaderTakesLeadingHeaderSections) {
  const struct {
    std::string body;
    std::vector<std::string> lines;
  } cases[] = {
      {"[HEADER]\nVersion = 2\nno equals\n  Name\t=  x\n[header]\nB=1\n[Dir]\nName = \n[HEADER]\nC=3\n",
       {"Version = 2", "Name = x", "B=1"}},
      {"[Dir]\nName = \n\n[HEADER]\nVersion = 2\n", {}},
      {"", {}},
  };
  std::vector<std::string> lines = {"stale"};
  for (const auto& c : cases) {
    EXPECT_TRUE(package_.ReadPackageHeader(WriteStream(kMagic + c.body).c_str(), lines));
    EXPECT_EQ(lines, c.lines);
    EXPECT_EQ(package_.ErrorText(), "");
  }
  EXPECT_FALSE(package_.ReadPackageHeader(WriteStream("TAVIK\n1\n").c_str(), lines));
  EXPECT_EQ(package_.ErrorText(), "Bad package file " + Path("test.pkg"));
  EXPECT_FALSE(package_.ReadPackageHeader(nullptr, lines));
  EXPECT_EQ(package_.ErrorText(), "No package file");
  EXPECT_FALSE(package_.ReadPackageHeader(Path("none.pkg").c_str(), lines));
  EXPECT_EQ(package_.ErrorText(), "Cannot decompress package file");
  EXPECT_EQ(TempFilesLeft(), 0);
}

TEST_F(InstallationTest, ReadPackageHeaderDecodesOnlyTheFirstBytes) {
  std::string body = "[HEADER]\n";
  for (int i = 0; i < 20000; ++i) body += "K" + std::to_string(i) + "=v\n";
  std::vector<std::string> lines;
  ASSERT_TRUE(package_.ReadPackageHeader(WriteStream(kMagic + body).c_str(), lines));
  ASSERT_GT(lines.size(), 10000u);
  ASSERT_LT(lines.size(), 20000u);
  EXPECT_EQ(lines[9999], "K9999=v");
}

}  // namespace
}  // namespace tk
