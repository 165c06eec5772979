// tkpack header and tkpack list: what a package holds, shown without installing it.
#include "tkpack/tkpack_test_fixture.h"

namespace tk {
namespace {

using TkpackInspect = TkpackTest;

TEST_F(TkpackInspect, HeaderLinesAndRecordsInFileOrder) {
  BuildSample();
  ExpectRun(Tkpack({"header", "sample.pkg"}), kExitSuccess, "Version = 5\nProduct = tavik\n", "");
  ExpectRun(Tkpack({"list", "sample.pkg"}), kExitSuccess,
            "Header     [HEADER]\nDir        Bin\nFile       Bin/run.sh\nExec       Bin/run.sh\n"
            "Dir        Bin/lib\nFile       Bin/lib/x.so\nDir        Doc\n"
            "File       Doc/readme.txt\nTextFile   Doc/readme.txt\n",
            "");
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(TkpackInspect, LongListAddsSizesAndASummary) {
  const std::string records =
      "[File]\nName = early\nSize = 1\nx\n\n[ dir ] trailing text\nName = Top\\Sub\\\n\n"
      "[RemoveFile]\nName = *.log\n\n\n[RmDir]\nName = Old\nWithsubdir = yes\n\n"
      "[TextDir]\nName = Doc\nName = Doc\n\n\n[Dir]\nName = \n\n[Exec]\nName = run.sh\n\n\n"
      "[Custom]\nkey = value\n[File]\nName = cut\nSize = 10\nabc";
  WritePackage("odd.pkg", kMagic + records);
  ExpectRun(Tkpack({"list", "--long", "odd.pkg"}), kExitSuccess,
            "File                  1  early\n"
            "Dir                   -  Top/Sub/\n"
            "RemoveFile            -  Top/Sub/*.log\n"
            "RmDir                 -  Old  (with subdirectories)\n"
            "TextDir               -  Doc\n"
            "Dir                   -  .\n"
            "Exec                  -  run.sh\n"
            "Other                 -  [CUSTOM]\n"
            "File                 10  cut  (only 3 bytes in the package)\n"
            "9 records: 2 directories, 2 files with 11 bytes; stream 281 bytes, package " +
                std::to_string(std::filesystem::file_size(Path("odd.pkg"))) + " bytes\n",
            "");
}

TEST_F(TkpackInspect, BadPackagesStopHeaderAndList) {
  WritePackage("bad.pkg", std::string(kMagic) + "[Dir]\nName = Bin\n\n[File]\nName = a\n\n[Dir]\n");
  ExpectRun(Tkpack({"list", "bad.pkg"}), kExitFailure, "Dir        Bin\n",
            "tkpack: Bad package file bad.pkg: record 2 at byte 39: [File] Bin/a: missing "
            "\"Size = \" line\n");
  WritePackage("magic.pkg", "TAVIK PACKAGE FILES\n1\n");
  for (const char* command : {"header", "list"}) {
    ExpectRun(Tkpack({command, "magic.pkg"}), kExitFailure, "",
              "tkpack: Bad package file magic.pkg\n");
  }
  EXPECT_EQ(Leftovers(), 0);
}

}  // namespace
}  // namespace tk
