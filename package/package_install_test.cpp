#include <vector>

#include "package/package_test_fixture.h"

namespace tk {
namespace {

class InstallationTest : public PackageTest {
 protected:
  // Installs a package made of the magic lines and `body` into root/dest.
  bool Install(const std::string& body, int verbose = 0) {
    return package_.InstallPackage(WriteStream(kMagic + body).c_str(), Dest().c_str(), verbose);
  }
  std::string Dest() const { return Path("dest"); }
};

// Records before any [Dir] act on the working directory; the others below the
// destination, which is created with its parents.
TEST_F(InstallationTest, AppliesRecordsInFileOrderIntoANewDestination) {
  const std::string binary = std::string("[Exec]\nName = x\n\0\r\n", 19);
  const std::string body =
      FileRecord("loose", "z") + "[Dir]\nName = \n\n" + FileRecord("top", "hi") +
      "[dir]\nName = a\\b c\n\n" + FileRecord("bin", binary) + FileRecord("empty", "") +
      FileRecord("run", "r\r\n") +
      "[Exec]\nName = run\n\n\n[TextFile]\nName = run\n\n\n"
      "[HEADER]\nName = ignored\n[Unknown]\n[File]\nName = cut\nSize = 1000\nabc";
  const std::string dest = Path("opt/vendor/tavik");
  const std::string package = WriteStream(" TAVIK\tPACKAGE  FILE \r\n1\n" + body);
  const std::string previous = std::filesystem::current_path();
  std::filesystem::current_path(root_);
  EXPECT_TRUE(package_.InstallPackage(package.c_str(), (dest + "/").c_str(), 0));
  std::filesystem::current_path(previous);
  EXPECT_EQ(package_.ErrorText(), "");
  EXPECT_EQ(ReadFile(Path("loose")), "z");
  EXPECT_EQ(Snapshot(dest), (Tree{{"top", "420:hi"},
                                  {"a", "dir"},
                                  {"a/b c", "dir"},
                                  {"a/b c/bin", "420:" + binary},
                                  {"a/b c/empty", "420:"},
                                  {"a/b c/run", "493:r\n"},
                                  {"a/b c/cut", "420:abc"}}));
  EXPECT_EQ(TempFilesLeft(), 0);
}

TEST_F(InstallationTest, FailuresGiveTheirTextAndLeaveNoTemporaryFile) {
  WriteFile("short.pkg", "ab");
  WriteFile("blocker", "");
  const std::string bad = "Bad package file " + Path("test.pkg");
  const std::string dir = std::string(kMagic) + "[Dir]\nName = \n\n";
  const std::pair<std::string, std::string> cases[] = {
      // stream or package path, error
      {"TAVIK PACKAGE\n1\n[Dir]\nName = a\n", bad},
      {"TAVIK PACKAGE FILE\n", bad},
      {dir + "[File]\nName = x\n", bad},
      {dir + "[File]\n\nName = x\nSize = 0\n\n\n", bad},
      {dir + "[File]\n\n\n", bad},
      {dir + "[RmDir]\nName = a\n", bad},
      {dir + "[Exec]\nName = nothere\n\n\n",
       "Cannot change file access rigths " + Dest() + "/nothere"},
      {dir + "[File]\nName = no/such\nSize = 0\n\n\n", "Cannot create file " + Dest() + "/no/such"},
      {dir + "[File]\nName = f\nSize = 0\n\n\n[Dir]\nName = f/sub\n\n",
       "cannot create directory: " + Dest() + "/f"},
      {dir + "[TextFile]\nName = none\n\n\n", "Cannot set text file " + Dest() + "/none"},
      {Path("none.pkg"), "Cannot decompress package file"},
      {Path("short.pkg"), "Cannot decompress package file"},
  };
  for (const auto& [stream, error] : cases) {
    const std::string package = stream.starts_with("/") ? stream : WriteStream(stream);
    EXPECT_FALSE(package_.InstallPackage(package.c_str(), Dest().c_str(), 0));
    EXPECT_EQ(package_.ErrorText(), error) << stream;
    EXPECT_EQ(TempFilesLeft(), 0) << stream;
  }
  EXPECT_TRUE(std::filesystem::is_regular_file(Dest() + "/f"));  // earlier records stay
  EXPECT_FALSE(package_.InstallPackage(Path("x").c_str(), Path("blocker/sub").c_str(), 0));
  EXPECT_EQ(package_.ErrorText(), "cannot create target directory: " + Path("blocker/sub"));
  EXPECT_FALSE(package_.InstallPackage(nullptr, Dest().c_str(), 0));
  EXPECT_EQ(package_.ErrorText(), "No package file");
}

TEST_F(InstallationTest, RemoveFileMatchesNamesOfTheCurrentDirectoryOnly) {
  const std::string all = ".hidden.log a.log b.log keep.txt logfile sub sub/c.log ";
  const std::pair<std::string, std::string> cases[] = {
      // pattern, what is left
      {"*.log", ".hidden.log keep.txt logfile sub sub/c.log "},
      {"log*", ".hidden.log a.log b.log keep.txt sub sub/c.log "},
      {"*", ".hidden.log sub sub/c.log "},
      {"keep.txt", ".hidden.log a.log b.log logfile sub sub/c.log "},
      {".hidden.log", "a.log b.log keep.txt logfile sub sub/c.log "},
      {"missing", all},
      {"", all},
      {"sub", all},
      {"**", all}};
  for (const auto& [pattern, left] : cases) {
    for (const char* file : {"a.log", "b.log", "keep.txt", "logfile", ".hidden.log", "sub/c.log"}) {
      WriteFile(std::string("dest/d/") + file, "x");
    }
    ASSERT_TRUE(Install("[Dir]\nName = d\n\n[RemoveFile]\nName = " + pattern));
    std::string names;
    for (const auto& [name, bytes] : Snapshot(Dest() + "/d")) names += name + " ";
    EXPECT_EQ(names, left) << pattern;
  }
}

TEST_F(InstallationTest, RmDirRemovesFilesAndWithSubdirsTheSubdirectories) {
  for (const std::string withSubdirs : {"NO", "YES"}) {
    WriteFile("dest/r/f", "x");
    WriteFile("dest/r/sub/g", "y");
    ASSERT_TRUE(Install("[RmDir]\nName = r\\\nWithsubdir = " + withSubdirs + "\n"));
    EXPECT_EQ(Snapshot(Dest()).size(), withSubdirs == "NO" ? 3u : 1u);
  }
}

TEST_F(InstallationTest, VerboseProgressLines) {
  for (int verbose : {1, 0}) {
    testing::internal::CaptureStdout();
    ASSERT_TRUE(Install("[Dir]\nName = a\n\n[Dir]\nName = b\\c\n\n", verbose));
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        verbose == 0
            ? ""
            : "\nInstalling package " + Path("test.pkg") +
                  "\nUncompressing package file\nVerifying package\nDirectory a\nDirectory b/c");
  }
}

TEST_F(InstallationTest, SetTextFileEndsEveryLineWithOneLineFeed) {
  const std::string line(70000, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {"a\r\nb", "a\nb\n"},
      {"", ""},
      {"x\n\n", "x\n\n"},
      {line, line.substr(0, 65534) + "\n" + line.substr(65534) + "\n"}};
  for (const auto& [before, after] : cases) {
    WriteFile("text", before);
    EXPECT_TRUE(package_.SetTextFile(Path("text").c_str()));
    EXPECT_EQ(ReadFile(Path("text")), after);
  }
  EXPECT_FALSE(package_.SetTextFile(Path("missing").c_str()));
  EXPECT_EQ(package_.ErrorText(), "Cannot open file " + Path("missing"));
  EXPECT_FALSE(package_.SetTextFile(Path("no/dir").c_str()));
  EXPECT_EQ(package_.ErrorText(), "Cannot open temporary file " + Path("no/dir") + ".tk_temp");
  EXPECT_EQ(TempFilesLeft(), 0);
}

TEST_F(InstallationTest, ReadPackageHeaderTakesLeadingHeaderSections) {
  std::string many = "[HEADER]\n";
  for (int i = 0; i < 20000; ++i) many += "K" + std::to_string(i) + "=v\n";
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"[HEADER]\nV = 2\nno\n  N\t=  x\n[header]\nB=1\n[Dir]\nName = \n[HEADER]\nC=3\n",
       {"V = 2", "N = x", "B=1"}},
      {"[Dir]\nName = \n\n[HEADER]\nV = 2\n", {}},
      {"", {}}};
  std::vector<std::string> lines = {"stale"};
  for (const auto& [body, expected] : cases) {
    EXPECT_TRUE(package_.ReadPackageHeader(WriteStream(kMagic + body).c_str(), lines));
    EXPECT_EQ(lines, expected);
  }
  ASSERT_TRUE(package_.ReadPackageHeader(WriteStream(kMagic + many).c_str(), lines));
  EXPECT_TRUE(lines.size() > 10000 && lines.size() < 20000 && lines[9999] == "K9999=v");
  EXPECT_FALSE(package_.ReadPackageHeader(WriteStream("TAVIK\n1\n").c_str(), lines));
  EXPECT_EQ(package_.ErrorText(), "Bad package file " + Path("test.pkg"));
  EXPECT_FALSE(package_.ReadPackageHeader(nullptr, lines));
  EXPECT_EQ(package_.ErrorText(), "No package file");
  EXPECT_FALSE(package_.ReadPackageHeader(Path("none").c_str(), lines));
  EXPECT_EQ(package_.ErrorText(), "Cannot decompress package file");
  EXPECT_EQ(TempFilesLeft(), 0);
}

}  // namespace
}  // namespace tk
