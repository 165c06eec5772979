#include <vector>

#include "package/package_test_fixture.h"

namespace tk {
namespace {

class BuilderTest : public PackageTest {
 protected:
  // Builds root/out.pkg from `description` with root/base as base directory; returns the
  // decompressed record stream ("" when the build failed).
  std::string Build(const std::string& description) {
    WriteFile("desc.txt", description);
    if (!package_.BuildPackage(Path("desc.txt").c_str(), Base().c_str(), Package().c_str())) {
      return "";
    }
    return Decompress(Package());
  }
  std::string Base() const { return Path("base"); }
  std::string Package() const { return Path("out.pkg"); }
};

TEST_F(BuilderTest, HeaderSectionsAreCopiedAsTyped) {
  EXPECT_EQ(Build("[HEADER]\nVersion=5\nName = x\n"), "TAVIK PACKAGE FILE\n1\n[HEADER]\nVersion=5\nName = x\n");
  EXPECT_EQ(Build("before: ignored\n; comment\n\n [header] \n\tA  =\tb \n// c\n\\\\ d\n"),
            std::string(kMagic) + "[header]\nA = b\n");
  EXPECT_EQ(Build(""), kMagic);
  EXPECT_EQ(package_.ErrorText(), "");
  EXPECT_EQ(TempFilesLeft(), 0);
}

TEST_F(BuilderTest, QueuesAreFlushedInFixedOrder) {
  WriteFile("base/Bin/a", "A");
  EXPECT_EQ(Build("[Bin]\nexec: ls\ncopyfile: a\n"),
            std::string(kMagic) + "[Dir]\nName = Bin\n\n[File]\nName = a\nSize = 1\nA\n\n"
                                  "[Exec]\nName = ls\n\n\n");
  WriteFile("base/S/f", "F");
  WriteFile("base/S/p.pl", "P");
  WriteFile("base/S/sub/g", "G");
  const std::string description =
      "[S]\ntextdir: x\ntextfile: t.txt\nexec: run\ncopydirsub: " + Base() + "/S/sub\n"
      "copydir:\ncopyperlfile: q=p.pl\ncopyfile: f\nremovefile: *.log\nremovedirsub:\n"
      "removedir: anything\nexcludefile: p*\n[Next]\n";
  EXPECT_EQ(Build(description),
            std::string(kMagic) +
                "[Dir]\nName = S\n\n[RmDir]\nName = S\nWithsubdir = NO\n\n"
                "[RmDir]\nName = S\nWithsubdir = YES\n\n[RemoveFile]\nName = *.log\n\n\n"
                "[File]\nName = f\nSize = 1\nF\n\n[File]\n\n\n[File]\nName = f\nSize = 1\nF\n\n"
                "[File]\nName = g\nSize = 1\nG\n\n[Exec]\nName = run\n\n\n"
                "[TextFile]\nName = t.txt\n\n\n[TextDir]\nName = S\nName = S\n\n\n"
                "[Dir]\nName = Next\n\n");
}

TEST_F(BuilderTest, CommandsAndSourcesResolve) {
  WriteFile("base/Bin/x.txt", "1");
  WriteFile("base/Binx", "3");
  WriteFile("base/build/x.so", "4");
  WriteFile("base/y", "5");
  WriteFile("base/Bin/sub/z", "6");
  WriteFile("base/Bin/README.txt", "7");
  const std::string dir = "TAVIK PACKAGE FILE\n1\n[Dir]\nName = Bin\n\n";
  const auto file = [](const std::string& name, const std::string& content) {
    return "[File]\nName = " + name + "\nSize = " + std::to_string(content.size()) + "\n" +
           content + "\n\n";
  };
  WriteFile("base/Bin/perlencode", "");
  WriteFile("base/Bin/copydir", "");
  const struct {
    std::string commands;
    std::string records;
  } cases[] = {
      {"  COPYFILE :  x.txt ", file("x.txt", "1")},
      {"a=./x.txt\nb=.x\nc=#/build/x.so\nd=#build\\x.so\ne=../y",
       file("a", "1") + file("b", "3") + file("c", "4") + file("d", "4") + file("e", "5")},
      {"copyfile: w = sub/z\nreadme.TXT\nt=Readme.txt",
       file("w", "6") + file("readme.TXT", "7") + file("t", "7")},
      {"removedir: anything\nexcludefile:\nexec:", "[RmDir]\nName = Bin\nWithsubdir = NO\n\n"},
      {"perlencode\ncopydir", file("perlencode", "") + file("copydir", "")},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Build("[\\Bin\\]\n" + c.commands + "\n"), dir + c.records) << c.commands;
  }
  EXPECT_EQ(Build("[\\\\/Bin\\sub\\]\n"), std::string(kMagic) + "[Dir]\nName = Bin/sub\n\n");
}

TEST_F(BuilderTest, FailuresSetTheirTextAndLeaveNoFiles) {
  WriteFile("base/Bin/a", "A");
  std::filesystem::create_symlink(Path("nowhere"), Path("base/Bin/dangling"));
  const struct {
    std::string description;
    std::string error;
  } cases[] = {
      {"[a/../b]\n", "Bad directory: " + Base() + "/a/../b"},
      {"[Bin]\ncopydir: " + Base() + "/none\n", "Bad directory: " + Base() + "/none"},
      {"[Bin]\ncopydirsub: " + Base() + "/Bin/../Bin\n", "Bad directory: " + Base() + "/Bin/../Bin"},
      {"[None]\ncopydir:\n", "Bad directory: " + Base() + "/None"},
      {"[Bin]\nCopy: a\n", "Bad file: " + Base() + "/Bin/Copy: a"},
      {"[Bin]\nx=missing\n", "Bad file: missing"},
      {"[Bin]\nx=\n", "No source file"},
      {"[Bin]\n=a\n", "No target file"},
      {"[Bin]\ndangling\n[Next]\n", "Cannot read file: " + Base() + "/Bin/dangling"},
      {"[Bin]\ndangling\nexec: x\n", "Cannot compress package file"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Build(c.description), "") << c.description;
    EXPECT_EQ(package_.ErrorText(), c.error);
    EXPECT_FALSE(std::filesystem::exists(Package()));
    EXPECT_EQ(TempFilesLeft(), 0);
  }
  EXPECT_FALSE(package_.BuildPackage(nullptr, nullptr, Package().c_str()));
  EXPECT_EQ(package_.ErrorText(), "No description file");
  EXPECT_FALSE(package_.BuildPackage(Path("none").c_str(), nullptr, Package().c_str()));
  EXPECT_EQ(package_.ErrorText(), "Cannot open description file " + Path("none"));
  EXPECT_FALSE(package_.BuildPackage(Path("desc.txt").c_str(), nullptr, Path("no/p").c_str()));
  EXPECT_EQ(package_.ErrorText(), "Cannot open temporary package file " + Path("no/p") + ".tk_temp");
}

TEST_F(BuilderTest, CheckDescriptionValidatesWithoutWriting) {
  WriteFile("base/Bin/a", "A");
  WriteFile("desc.txt", "[HEADER]\nV=1\n[Bin]\na\ncopydirsub:\n");
  EXPECT_TRUE(package_.CheckDescription(Path("desc.txt").c_str(), Base().c_str()));
  EXPECT_EQ(Snapshot(root_).size(), 4u);  // desc.txt, base, base/Bin, base/Bin/a
  WriteFile("desc.txt", "[Bin]\na\nb\n");
  EXPECT_FALSE(package_.CheckDescription(Path("desc.txt").c_str(), Base().c_str()));
  EXPECT_EQ(package_.ErrorText(), "Bad file: " + Base() + "/Bin/b");
  EXPECT_FALSE(package_.CheckDescription(nullptr, Base().c_str()));
  EXPECT_EQ(package_.ErrorText(), "");
}

TEST_F(BuilderTest, LongLinesArriveInPieces) {
  WriteFile("base/Bin/tail", "");
  const std::string comment = "; " + std::string(2044, 'c');  // the first piece
  EXPECT_EQ(Build("[Bin]\n" + comment + "tail\n"),
            std::string(kMagic) + "[Dir]\nName = Bin\n\n[File]\nName = tail\nSize = 0\n\n\n");
}

}  // namespace
}  // namespace tk
