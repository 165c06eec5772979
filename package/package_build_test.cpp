#include "package/package_test_fixture.h"

namespace tk {
namespace {

class BuilderTest : public PackageTest {
 protected:
  // Builds root/out.pkg from `description` with root/base as base directory; returns the
  // decompressed record stream, or "" when the build failed.
  std::string Build(const std::string& description) {
    WriteFile("desc.txt", description);
    if (!package_.BuildPackage(Path("desc.txt").c_str(), Base().c_str(), Path("out.pkg").c_str())) {
      return "";
    }
    return Decompress(Path("out.pkg"));
  }
  std::string Base() const { return Path("base"); }
};

TEST_F(BuilderTest, HeaderSectionsAreCopiedAsTyped) {
  EXPECT_EQ(Build("[HEADER]\nVersion=5\nName = x\n"),
            std::string(kMagic) + "[HEADER]\nVersion=5\nName = x\n");
  EXPECT_EQ(Build("before: ignored\n; c\n\n [header] \n\tA  =\tb \n// c\n\\\\ c\n"),
            std::string(kMagic) + "[header]\nA = b\n");
  EXPECT_EQ(Build(""), kMagic);
  EXPECT_EQ(package_.ErrorText(), "");
  EXPECT_EQ(TempFilesLeft(), 0);
}

TEST_F(BuilderTest, QueuesAreFlushedInFixedOrder) {
  WriteFile("base/Bin/a", "A");
  EXPECT_EQ(Build("[Bin]\nexec: ls\ncopyfile: a\n"),
            kMagic + ("[Dir]\nName = Bin\n\n" + FileRecord("a", "A") + "[Exec]\nName = ls\n\n\n"));
  WriteFile("base/S/f", "F");
  WriteFile("base/S/p.pl", "P");
  WriteFile("base/S/sub/g", "G");
  EXPECT_EQ(Build("[S]\ntextdir: x\ntextfile: t.txt\nexec: run\ncopydirsub: " + Base() +
                  "/S/sub\ncopydir:\ncopyperlfile: q=p.pl\ncopyfile: f\nremovefile: *.log\n"
                  "removedirsub:\nremovedir: anything\nexcludefile: p*\n[Next]\n"),
            kMagic + ("[Dir]\nName = S\n\n[RmDir]\nName = S\nWithsubdir = NO\n\n"
                      "[RmDir]\nName = S\nWithsubdir = YES\n\n[RemoveFile]\nName = *.log\n\n\n" +
                      FileRecord("f", "F") + "[File]\n\n\n" + FileRecord("f", "F") +
                      FileRecord("g", "G") +
                      "[Exec]\nName = run\n\n\n[TextFile]\nName = t.txt\n\n\n"
                      "[TextDir]\nName = S\nName = S\n\n\n[Dir]\nName = Next\n\n"));
}

TEST_F(BuilderTest, CommandsAndSourcesResolve) {
  const std::pair<const char*, const char*> files[] = {
      {"Bin/x.txt", "1"}, {"Binx", "3"},           {"build/x.so", "4"},    {"y", "5"},
      {"Bin/sub/z", "6"}, {"Bin/README.txt", "7"}, {"Bin/perlencode", ""}, {"Bin/copydir", ""}};
  for (const auto& [path, bytes] : files) WriteFile(std::string("base/") + path, bytes);
  const std::pair<std::string, std::string> cases[] = {
      {"  COPYFILE :  x.txt ", FileRecord("x.txt", "1")},
      {"a=./x.txt\nb=.x\nc=#/build/x.so\nd=#build\\x.so\ne=../y",
       FileRecord("a", "1") + FileRecord("b", "3") + FileRecord("c", "4") + FileRecord("d", "4") +
           FileRecord("e", "5")},
      {"copyfile: w = sub/z\nreadme.TXT\nt=Readme.txt",
       FileRecord("w", "6") + FileRecord("readme.TXT", "7") + FileRecord("t", "7")},
      {"removedir: anything\nexcludefile:\nexec:", "[RmDir]\nName = Bin\nWithsubdir = NO\n\n"},
      {"perlencode\ncopydir", FileRecord("perlencode", "") + FileRecord("copydir", "")},
  };
  for (const auto& [commands, records] : cases) {
    EXPECT_EQ(Build("[\\Bin\\]\n" + commands + "\n"), kMagic + ("[Dir]\nName = Bin\n\n" + records))
        << commands;
  }
  EXPECT_EQ(Build("[\\\\/Bin\\sub\\]\n"), std::string(kMagic) + "[Dir]\nName = Bin/sub\n\n");
  WriteFile("base/Bin/tail", "");  // a line of 2046 + 4 characters arrives as two
  EXPECT_EQ(Build("[Bin]\n; " + std::string(2044, 'c') + "tail\n"),
            kMagic + ("[Dir]\nName = Bin\n\n" + FileRecord("tail", "")));
}

TEST_F(BuilderTest, FailuresSetTheirTextAndLeaveNoFiles) {
  WriteFile("base/Bin/a", "A");
  std::filesystem::create_symlink(Path("nowhere"), Path("base/Bin/dangling"));
  const std::pair<std::string, std::string> cases[] = {
      {"[a/../b]\n", "Bad directory: " + Base() + "/a/../b"},
      {"[Bin]\ncopydir: " + Base() + "/none\n", "Bad directory: " + Base() + "/none"},
      {"[Bin]\ncopydirsub: " + Base() + "/Bin/../Bin\n",
       "Bad directory: " + Base() + "/Bin/../Bin"},
      {"[None]\ncopydir:\n", "Bad directory: " + Base() + "/None"},
      {"[Bin]\nCopy: a\n", "Bad file: " + Base() + "/Bin/Copy: a"},
      {"[Bin]\nx=missing\n", "Bad file: missing"},
      {"[Bin]\nx=\n", "No source file"},
      {"[Bin]\n=a\n", "No target file"},
      {"[Bin]\ndangling\n[Next]\n", "Cannot read file: " + Base() + "/Bin/dangling"},
      {"[Bin]\ndangling\nexec: x\n", "Cannot compress package file"},
  };
  for (const auto& [description, error] : cases) {
    EXPECT_EQ(Build(description), "") << description;
    EXPECT_EQ(package_.ErrorText(), error);
    EXPECT_FALSE(std::filesystem::exists(Path("out.pkg")));
    EXPECT_EQ(TempFilesLeft(), 0);
  }
  EXPECT_FALSE(package_.BuildPackage(nullptr, nullptr, Path("out.pkg").c_str()));
  EXPECT_EQ(package_.ErrorText(), "No description file");
}

TEST_F(BuilderTest, CheckDescriptionValidatesWithoutWriting) {
  WriteFile("base/Bin/a", "A");
  WriteFile("desc.txt", "[HEADER]\nV=1\n[Bin]\na\ncopydirsub:\n");
  EXPECT_TRUE(package_.CheckDescription(Path("desc.txt").c_str(), Base().c_str()));
  EXPECT_EQ(Snapshot(root_).size(), 4u);  // desc.txt, base, base/Bin, base/Bin/a
  EXPECT_FALSE(package_.CheckDescription(nullptr, Base().c_str()));
  EXPECT_EQ(package_.ErrorText(), "");
}

}  // namespace
}  // namespace tk
