// tkpack install: the engine behind a command line, with or without its progress
// lines, and failures that say what and where.
#include "tkpack/tkpack_test_fixture.h"

namespace tk {
namespace {

using TkpackInstall = TkpackTest;

TEST_F(TkpackInstall, InstallsWithOrWithoutTheEngineLines) {
  BuildSample();
  const std::map<std::string, std::string> tree = {
      {"Bin", "dir"},     {"Bin/run.sh", "755:#!/bin/sh\necho hi\n"},
      {"Bin/lib", "dir"}, {"Bin/lib/x.so", "644:XSO"},
      {"Doc", "dir"},     {"Doc/readme.txt", "644:line1\nline2\n"}};
  ExpectRun(Tkpack({"install", "sample.pkg", "dest/"}), kExitSuccess,
            "\nInstalling package sample.pkg\nUncompressing package file\nVerifying package"
            "\nDirectory Bin\nDirectory Bin/lib\nDirectory Doc\n",
            "");
  EXPECT_EQ(Snapshot("dest"), tree);
  ExpectRun(Tkpack({"install", "--quiet", "sample.pkg", "a/b"}), kExitSuccess, "", "");
  EXPECT_EQ(Snapshot("a/b"), tree);
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(TkpackInstall, FailuresNameWhatAndWhere) {
  BuildSample();
  WritePackage("exec.pkg", std::string(kMagic) + "[Dir]\nName = Bin\n\n[Exec]\nName = no\n\n\n");
  WritePackage("key.pkg", std::string(kMagic) + "[File]\n\n\n");
  WriteFile("blocker", "a file where a directory should be");
  const std::vector<std::string> cases[] = {
      {"missing.pkg", "dest", "tkpack: Cannot decompress package file\n"},
      {"key.pkg", "dest", "tkpack: Bad package file key.pkg\n"},
      {"exec.pkg", "dest", "tkpack: Cannot change file access rigths dest/Bin/no\n"},
      {"sample.pkg", "blocker/d", "tkpack: cannot create target directory: blocker/d\n"},
  };
  for (const std::vector<std::string>& c : cases) {
    ExpectRun(Tkpack({"install", "--quiet", c[0], c[1]}), kExitFailure, "", c[2]);
  }
  EXPECT_EQ(Leftovers(), 0);
}

}  // namespace
}  // namespace tk
