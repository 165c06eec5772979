#include <filesystem>
#include <utility>

#include "package/package.h"
#include "package/temp_paths.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using test::DirRecord;
using test::FileRecord;
using test::kStreamStart;

class BuildTest : public test::TempDirTest {
 protected:
  // Builds out.pkg from `description` over the base directory "base"; returns its record
  // stream, or "" when the build failed.
  std::string Build(const std::string& description) {
    EXPECT_TRUE(WriteFile("desc.txt", description));
    const bool built = package_.BuildPackage(Path("desc.txt").c_str(), Path("base").c_str(),
                                             Path("out.pkg").c_str());
    return built ? test::ReadPackageStream(Path("out.pkg")) : "";
  }
  TkPackage package_;
};

// Header sections are copied as typed; sections, commands and sources resolve.
TEST_F(BuildTest, DescriptionLinesBecomeRecords) {
  const std::pair<const char*, const char*> files[] = {
      {"Bin/x.txt", "1"}, {"Binx", "3"},           {"build/x.so", "4"},    {"y", "5"},
      {"Bin/sub/z", "6"}, {"Bin/README.txt", "7"}, {"Bin/perlencode", ""}, {"Bin/copydir", ""},
      {"Bin/tail", ""}};
  for (const auto& [file, bytes] : files)
    ASSERT_TRUE(WriteFile(std::string("base/") + file, bytes));
  const std::string bin = DirRecord("Bin");
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"[HEADER]\nVersion=5\nName = x\n", "[HEADER]\nVersion=5\nName = x\n"},
      {"before: ignored\n; c\n\n [header] \n\tA  =\tb \n// c\n\\\\ c\n", "[header]\nA = b\n"},
      {"[\\\\/Bin\\sub\\]\n", DirRecord("Bin/sub")},
      {"[\\Bin\\]\n  COPYFILE :  x.txt ", bin + FileRecord("x.txt", "1")},
      {"[Bin]\na=./x.txt\nb=.x\nc=#/build/x.so\nd=#build\\x.so\ne=../y",
       bin + FileRecord("a", "1") + FileRecord("b", "3") + FileRecord("c", "4") +
           FileRecord("d", "4") + FileRecord("e", "5")},
      {"[Bin]\ncopyfile: w = sub/z\nreadme.TXT\nt=Readme.txt",
       bin + FileRecord("w", "6") + FileRecord("readme.TXT", "7") + FileRecord("t", "7")},
      {"[Bin]\nremovedir: anything\nexcludefile:\nexec:",
       bin + "[RmDir]\nName = Bin\nWithsubdir = NO\n\n"},
      {"[Bin]\nperlencode\ncopydir",
       bin + FileRecord("perlencode", "") + FileRecord("copydir", "")},
      // a line of 2046 + 4 characters arrives as two
      {"[Bin]\n; " + std::string(2044, 'c') + "tail\n", bin + FileRecord("tail", "")}};
  for (const auto& [description, records] : cases) {
    EXPECT_EQ(Build(description), kStreamStart + records) << description;
  }
  EXPECT_EQ(package_.ErrorText(), "");
  EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0);
}

TEST_F(BuildTest, QueuesAreFlushedInFixedOrder) {
  ASSERT_TRUE(WriteFile("base/S/f", "F") && WriteFile("base/S/p.pl", "P") &&
              WriteFile("base/S/sub/g", "G"));
  EXPECT_EQ(Build("[S]\ntextdir: x\ntextfile: t.txt\nexec: run\ncopydirsub: " + Path("base") +
                  "/S/sub\ncopydir:\ncopyperlfile: q=p.pl\ncopyfile: f\nremovefile: *.log\n"
                  "removedirsub:\nremovedir: anything\nexcludefile: p*\n[Next]\n"),
            kStreamStart + DirRecord("S") +
                "[RmDir]\nName = S\nWithsubdir = NO\n\n[RmDir]\nName = S\nWithsubdir = YES\n\n"
                "[RemoveFile]\nName = *.log\n\n\n" +
                FileRecord("f", "F") + "[File]\n\n\n" + FileRecord("f", "F") +
                FileRecord("g", "G") +
                "[Exec]\nName = run\n\n\n[TextFile]\nName = t.txt\n\n\n"
                "[TextDir]\nName = S\nName = S\n\n\n" +
                DirRecord("Next"));
}

TEST_F(BuildTest, FailuresSetTheirTextAndLeaveNoFiles) {
  ASSERT_TRUE(WriteFile("base/Bin/a", "A"));
  std::filesystem::create_symlink(Path("nowhere"), Path("base/Bin/dangling"));
  const std::string base = Path("base");
  const std::pair<std::string, std::string> cases[] = {
      {"[a/../b]\n", "Bad directory: " + base + "/a/../b"},
      {"[Bin]\ncopydir: " + base + "/none\n", "Bad directory: " + base + "/none"},
      {"[Bin]\ncopydirsub: " + base + "/Bin/../Bin\n", "Bad directory: " + base + "/Bin/../Bin"},
      {"[Bin]\nCopy: a\n", "Bad file: " + base + "/Bin/Copy: a"},
      {"[Bin]\nx=missing\n", "Bad file: missing"},
      {"[Bin]\nx=\n", "No source file"},
      {"[Bin]\n=a\n", "No target file"},
      {"[Bin]\ndangling\n[Next]\n", "Cannot read file: " + base + "/Bin/dangling"},
      {"[Bin]\ndangling\nexec: x\n", "Cannot compress package file"}};
  for (const auto& [description, error] : cases) {
    EXPECT_EQ(Build(description), "") << description;
    EXPECT_EQ(package_.ErrorText(), error);
    EXPECT_FALSE(Exists("out.pkg"));
    EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0);
  }
  EXPECT_FALSE(package_.BuildPackage(nullptr, nullptr, Path("out.pkg").c_str()));
  EXPECT_EQ(package_.ErrorText(), "No description file");
}

TEST_F(BuildTest, CheckDescriptionValidatesWithoutWriting) {
  ASSERT_TRUE(WriteFile("base/Bin/a", "A") &&
              WriteFile("desc.txt", "[HEADER]\nV=1\n[Bin]\na\ncopydirsub:\n"));
  EXPECT_TRUE(package_.CheckDescription(Path("desc.txt").c_str(), Path("base").c_str()));
  EXPECT_EQ(Listing(), (std::vector<std::string>{"base/", "base/Bin/", "base/Bin/a", "desc.txt"}));
  EXPECT_FALSE(package_.CheckDescription(Path("none").c_str(), nullptr));
  EXPECT_EQ(package_.ErrorText(), "Cannot open description file " + Path("none"));
  EXPECT_FALSE(package_.CheckDescription(nullptr, nullptr));
  EXPECT_EQ(package_.ErrorText(), "");
}

// Leading lines stand right after the version line; the hook sees the whole plain
// stream before compression, may patch it, and fails the build with its text.
TEST_F(BuildTest, OptionsAddLeadingLinesAndSeeTheStreamBeforeCompression) {
  ASSERT_TRUE(WriteFile("base/Bin/a", "A") && WriteFile("desc.txt", "[HEADER]\nV=1\n[Bin]\na\n"));
  const std::string plain = "[HEADER]\nV=1\n" + DirRecord("Bin") + FileRecord("a", "A");
  std::string seen;
  BuildOptions options{{"[HEADER]", "Mark = 0"}, [&](const std::string& streamPath) {
                         seen = ReadFile(streamPath);
                         std::FILE* f = std::fopen(streamPath.c_str(), "r+");
                         std::fseek(f, 37, SEEK_SET);
                         std::fputc('7', f);
                         std::fclose(f);
                         return std::string(seen.size() > 1000 ? "too big" : "");
                       }};
  const auto build = [&] {
    return package_.BuildPackage(Path("desc.txt").c_str(), Path("base").c_str(),
                                 Path("out.pkg").c_str(), options);
  };
  ASSERT_TRUE(build());
  EXPECT_EQ(seen, kStreamStart + std::string("[HEADER]\nMark = 0\n") + plain);
  EXPECT_EQ(test::ReadPackageStream(Path("out.pkg")),
            kStreamStart + std::string("[HEADER]\nMark = 7\n") + plain);
  ASSERT_TRUE(WriteFile("base/Bin/a", std::string(2000, 'A')));
  EXPECT_FALSE(build());
  EXPECT_EQ(package_.ErrorText(), "too big");
  EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0);
  EXPECT_FALSE(package_.BuildPackage(Path("desc.txt").c_str(), nullptr, nullptr, options));
  EXPECT_EQ(package_.ErrorText(), "No package file");
}

}  // namespace
}  // namespace tk
