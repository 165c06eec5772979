// tkpack install: the installer's engine behind a command line, with its progress
// lines, and failures that say what and where.
#include "tkpack/tkpack_test_fixture.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

class TkpackInstall : public TkpackTest {
 protected:
  void SetUp() override {
    TkpackTest::SetUp();
    WriteSample();
    ASSERT_EQ(Tkpack({"build", "src/desc.txt", "sample.pkg"}).exitStatus, kExitSuccess);
  }

  static std::map<std::string, std::string> SampleTree() {
    return {{"Bin", "dir"},
            {"Bin/run.sh", "755:#!/bin/sh\necho hi\n"},
            {"Bin/lib", "dir"},
            {"Bin/lib/x.so", "644:XSO"},
            {"Doc", "dir"},
            {"Doc/readme.txt", "644:line1\nline2\n"}};
  }
};

TEST_F(TkpackInstall, InstallsWithTheEngineProgressLines) {
  ExpectRun(Tkpack({"install", "sample.pkg", "dest/"}), kExitSuccess,
            "\nInstalling package sample.pkg\nUncompressing package file\nVerifying package"
            "\nDirectory Bin\nDirectory Bin/lib\nDirectory Doc\n",
            "");
  EXPECT_EQ(Snapshot("dest"), SampleTree());
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(TkpackInstall, QuietInstallPrintsNothing) {
  ExpectRun(Tkpack({"install", "--quiet", "sample.pkg", "a/b/dest"}), kExitSuccess, "", "");
  EXPECT_EQ(Snapshot("a/b/dest"), SampleTree());
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(TkpackInstall, FailuresNameWhatAndWhere) {
  WritePackage("magic.pkg", "TAVIK PACKAGE\n1\n[Dir]\nName = Bin\n\n");
  WritePackage("exec.pkg", std::string(kMagic) + "[Dir]\nName = Bin\n\n[Exec]\nName = none\n\n\n");
  WritePackage("key.pkg", std::string(kMagic) + "[File]\n\n\n");
  WriteFile("tiny.pkg", "ab");
  WriteFile("blocker", "a file where a directory should be");
  struct Case {
    std::string package;
    std::string destination;
    std::string err;
  };
  const Case cases[] = {
      {"missing.pkg", "dest", "tkpack: Cannot decompress package file\n"},
      {"tiny.pkg", "dest", "tkpack: Cannot decompress package file\n"},
      {"magic.pkg", "dest", "tkpack: Bad package file magic.pkg\n"},
      {"key.pkg", "dest", "tkpack: Bad package file key.pkg\n"},
      {"exec.pkg", "dest", "tkpack: Cannot change file access rigths dest/Bin/none\n"},
      {"sample.pkg", "blocker/dest", "tkpack: cannot create target directory: blocker/dest\n"},
  };
  for (const Case& c : cases) {
    const test::ChildResult result = Tkpack({"install", "--quiet", c.package, c.destination});
    ExpectRun(result, kExitFailure, "", c.err);
    EXPECT_EQ(Leftovers(), 0) << c.package;
  }
}

}  // namespace
}  // namespace tk
