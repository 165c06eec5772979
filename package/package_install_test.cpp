#include <filesystem>
#include <vector>

#include "package/package.h"
#include "package/temp_paths.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using test::DirRecord;
using test::FileRecord;
using test::kStreamStart;

class InstallTest : public test::TempDirTest {
 protected:
  // Installs the package of the record stream `stream` into `destination`.
  bool Install(const std::string& stream, const std::string& destination = "dest",
               int verbose = 0) {
    EXPECT_TRUE(test::WritePackage(Path("p.pkg"), stream));
    return package_.InstallPackage(Path("p.pkg").c_str(), Path(destination).c_str(), verbose);
  }
  TkPackage package_;
};

// Records before any [Dir] act on the working directory; the others below the
// destination, which is created with its parents. Progress lines only when verbose.
TEST_F(InstallTest, AppliesRecordsInFileOrderIntoANewDestination) {
  const std::string binary = std::string("[Exec]\nName = x\n\0\r\n", 19);
  const std::string stream =
      " TAVIK\tPACKAGE  FILE \r\n1\n" + FileRecord("loose", "z") + DirRecord("") +
      FileRecord("top", "hi") + "[dir]\nName = a\\b c\n\n" + FileRecord("bin", binary) +
      FileRecord("empty", "") + FileRecord("run", "r\r\n") +
      "[Exec]\nName = run\n\n\n[TextFile]\nName = run\n\n\n"
      "[HEADER]\nName = ignored\n[Unknown]\n[File]\nName = cut\nSize = 1000\nabc";
  const std::filesystem::path previous = std::filesystem::current_path();
  std::filesystem::current_path(path());
  testing::internal::CaptureStdout();
  EXPECT_TRUE(Install(stream, "opt/vendor/tavik/", 1));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\nInstalling package " + Path("p.pkg") +
                "\nUncompressing package file\nVerifying package\nDirectory \nDirectory a/b c");
  std::filesystem::current_path(previous);
  EXPECT_EQ(package_.ErrorText(), "");
  EXPECT_EQ(ReadFile("loose"), "z");
  EXPECT_EQ(Snapshot("opt/vendor/tavik"), (test::Tree{{"top", "644:hi"},
                                                      {"a", "dir"},
                                                      {"a/b c", "dir"},
                                                      {"a/b c/bin", "644:" + binary},
                                                      {"a/b c/empty", "644:"},
                                                      {"a/b c/run", "755:r\n"},
                                                      {"a/b c/cut", "644:abc"}}));
  EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0);
}

// A tree that refuses everything, for the error texts of InstallStream.
class RefusingTree : public InstallTree {
 public:
  bool MakeDirectory(const std::string&, bool) override { return false; }
  int CreateFile(const std::string&) override { return -1; }
  bool RemoveContents(const std::string&, bool) override { return false; }
  void RemoveFile(const std::string&) override {}
  bool ListFiles(const std::string&, std::vector<std::string>&) override { return false; }
  bool MakeExecutable(const std::string&) override { return false; }
  bool ConvertToText(const std::string&) override { return false; }
};

// InstallStream through PlainInstallTree prints and installs what InstallPackage does;
// through another tree each record fails with its own text.
TEST_F(InstallTest, InstallStreamAppliesTheRecordsThroughItsTree) {
  const std::string stream = kStreamStart + DirRecord("a") + FileRecord("t", "x\r\n") +
                             "[Exec]\nName = t\n\n\n[TextFile]\nName = t\n\n\n";
  testing::internal::CaptureStdout();
  EXPECT_TRUE(Install(stream, "one", 1));
  const std::string printed = testing::internal::GetCapturedStdout();
  // InstallStream of `records` into two/ through `tree`.
  const auto installStream = [&](const std::string& records, int verbose, InstallTree& tree) {
    EXPECT_TRUE(WriteFile("plain", records));
    FILE* in = std::fopen(Path("plain").c_str(), "r");
    const bool ok =
        package_.InstallStream(in, Path("p.pkg").c_str(), Path("two").c_str(), verbose, tree);
    std::fclose(in);
    return ok;
  };
  PlainInstallTree plain(package_);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(installStream(stream, 1, plain));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), printed);
  EXPECT_EQ(Snapshot("two"), Snapshot("one"));
  const std::string a = Path("two/a");
  RefusingTree refusing;
  const std::pair<std::string, std::string> cases[] = {
      {DirRecord("a"), "cannot create directory: " + Path("two")},
      {"[RmDir]\nName = a\nWithsubdir = NO\n\n", "cannot remove directory: " + a},
      {"[TextDir]\nName = a\n\n", "cannot list directory: " + a}};
  for (const auto& [record, error] : cases) {
    EXPECT_FALSE(installStream(kStreamStart + record, 0, refusing));
    EXPECT_EQ(package_.ErrorText(), error);
  }
}

TEST_F(InstallTest, FailuresGiveTheirTextAndLeaveNoTemporaryFile) {
  ASSERT_TRUE(WriteFile("blocker", ""));
  const std::string bad = "Bad package file " + Path("p.pkg"), dest = Path("dest");
  const std::string dir = kStreamStart + DirRecord("");
  const std::pair<std::string, std::string> cases[] = {
      // record stream, or a package path; error
      {"TAVIK PACKAGE\n1\n[Dir]\nName = a\n", bad},
      {"TAVIK PACKAGE FILE\n", bad},
      {dir + "[File]\n\n\n", bad},
      {dir + "[Exec]\nName = no\n\n\n", "Cannot change file access rigths " + dest + "/no"},
      {dir + "[File]\nName = no/such\nSize = 0\n", "Cannot create file " + dest + "/no/such"},
      {dir + FileRecord("f", "") + DirRecord("f/sub"), "cannot create directory: " + dest + "/f"},
      {dir + "[TextFile]\nName = no\n\n\n", "Cannot set text file " + dest + "/no"},
      {Path("none.pkg"), "Cannot decompress package file"}};
  testing::internal::CaptureStdout();
  for (const auto& [stream, error] : cases) {
    EXPECT_FALSE(stream.starts_with("/") ? package_.InstallPackage(stream.c_str(), dest.c_str(), 0)
                                         : Install(stream));
    EXPECT_EQ(package_.ErrorText(), error) << stream;
    EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0) << stream;
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(ReadFile("dest/f"), "");  // earlier records stay
  EXPECT_FALSE(Install(kStreamStart, "blocker/sub"));
  EXPECT_EQ(package_.ErrorText(), "cannot create target directory: " + Path("blocker/sub"));
  EXPECT_FALSE(package_.InstallPackage(nullptr, dest.c_str(), 0));
  EXPECT_EQ(package_.ErrorText(), "No package file");
}

// [RemoveFile] names match files of the current directory, never hidden ones by pattern;
// [RmDir] empties a directory, of its subdirectories too with "Withsubdir = YES".
TEST_F(InstallTest, RemovalsTakeWhatTheirRecordNames) {
  const std::string all = ".hidden.log a.log b.log keep.txt logfile sub/ sub/c.log";
  const std::pair<std::string, std::string> cases[] = {
      // records after [Dir] d; what is left in d
      {"[RemoveFile]\nName = *.log", ".hidden.log keep.txt logfile sub/ sub/c.log"},
      {"[RemoveFile]\nName = log*", ".hidden.log a.log b.log keep.txt sub/ sub/c.log"},
      {"[RemoveFile]\nName = *", ".hidden.log sub/ sub/c.log"},
      {"[RemoveFile]\nName = .hidden.log", "a.log b.log keep.txt logfile sub/ sub/c.log"},
      {"[RemoveFile]\nName = missing", all},
      {"[RemoveFile]\nName = ", all},
      {"[RemoveFile]\nName = sub", all},
      {"[RmDir]\nName = d\\\nWithsubdir = NO\n", "sub/ sub/c.log"},
      {"[RmDir]\nName = d\nWithsubdir = YES\n", ""}};
  for (const auto& [records, left] : cases) {
    for (const std::string file :
         {"a.log", "b.log", "keep.txt", "logfile", ".hidden.log", "sub/c.log"}) {
      ASSERT_TRUE(WriteFile("dest/d/" + file, "x"));
    }
    ASSERT_TRUE(Install(kStreamStart + DirRecord("d") + records));
    std::string names;
    for (const std::string& name : Listing("dest/d")) names += (names.empty() ? "" : " ") + name;
    EXPECT_EQ(names, left) << records;
  }
}

TEST_F(InstallTest, SetTextFileEndsEveryLineWithOneLineFeed) {
  EXPECT_FALSE(package_.SetTextFile(Path("no/dir").c_str()));
  EXPECT_EQ(package_.ErrorText(), "Cannot open temporary file " + Path("no/dir.tk_temp"));
  EXPECT_FALSE(package_.SetTextFile(Path("missing").c_str()));
  EXPECT_EQ(package_.ErrorText(), "Cannot open file " + Path("missing"));
  const std::string line(70000, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {"a\r\nb", "a\nb\n"},
      {"", ""},
      {"x\n\n", "x\n\n"},
      {line, line.substr(0, 65534) + "\n" + line.substr(65534) + "\n"}};
  for (const auto& [before, after] : cases) {
    ASSERT_TRUE(WriteFile("text", before));
    EXPECT_TRUE(package_.SetTextFile(Path("text").c_str()));
    EXPECT_EQ(ReadFile("text"), after);
  }
  EXPECT_EQ(package_.ErrorText(), "Cannot open file " + Path("missing"));  // left alone
  EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0);
}

TEST_F(InstallTest, ReadPackageHeaderTakesLeadingHeaderSections) {
  std::string many = "[HEADER]\n";
  for (int i = 0; i < 20000; ++i) many += "K" + std::to_string(i) + "=v\n";
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"[HEADER]\nV = 2\nno\n  N\t=  x\n[header]\nB=1\n[Dir]\nName = \n[HEADER]\nC=3\n",
       {"V = 2", "N = x", "B=1"}},
      {"[Dir]\nName = \n\n[HEADER]\nV = 2\n", {}},
      {"", {}}};
  std::vector<std::string> lines = {"stale"};
  for (const auto& [records, expected] : cases) {
    ASSERT_TRUE(test::WritePackage(Path("p.pkg"), kStreamStart + records));
    EXPECT_TRUE(package_.ReadPackageHeader(Path("p.pkg").c_str(), lines));
    EXPECT_EQ(lines, expected);
  }
  ASSERT_TRUE(test::WritePackage(Path("p.pkg"), kStreamStart + many));
  ASSERT_TRUE(package_.ReadPackageHeader(Path("p.pkg").c_str(), lines));
  EXPECT_TRUE(lines.size() > 10000 && lines.size() < 20000 && lines[9999] == "K9999=v");
  ASSERT_TRUE(test::WritePackage(Path("p.pkg"), "TAVIK\n1\n"));
  EXPECT_FALSE(package_.ReadPackageHeader(Path("p.pkg").c_str(), lines));
  EXPECT_EQ(package_.ErrorText(), "Bad package file " + Path("p.pkg"));
  EXPECT_FALSE(package_.ReadPackageHeader(nullptr, lines));
  EXPECT_EQ(package_.ErrorText(), "No package file");
  EXPECT_FALSE(package_.ReadPackageHeader(Path("none").c_str(), lines));
  EXPECT_EQ(package_.ErrorText(), "Cannot decompress package file");
  EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0);
}

}  // namespace
}  // namespace tk
