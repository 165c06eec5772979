// --json as a script meets it: every document parses with the real jq, names with
// bytes that are not UTF-8 included, and says what the lines say.
#include <string>
#include <tuple>
#include <vector>

#include "package/package.h"
#include "testing/child_process.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

using std::string;
using test::DirRecord;
using test::FileRecord;
using Words = std::vector<string>;

class TkpackJson : public test::TempDirTest {
 protected:
  test::ChildResult Run(Words words) const {
    words.insert(words.begin(), "tkpack");
    return test::RunChild({TK_BIN_DIR "/tkpack", words, "", path(), {}});
  }
  // `filter` of jq -r over what tkpack printed for `words`.
  string Jq(const Words& words, const string& filter) const {
    const test::ChildResult tkpack = Run(words);
    const test::ChildResult jq =
        test::RunChild({"/usr/bin/jq", {"jq", "-r", filter}, tkpack.out, "", {}});
    EXPECT_EQ(jq.exitStatus, 0) << "jq cannot parse:\n" << tkpack.out << jq.err;
    return jq.out;
  }
};

TEST_F(TkpackJson, DocumentsParseAndCarryEveryByte) {
  const string odd = "b\xff\xfe\"\\q";
  ASSERT_TRUE(test::WritePackage(
      Path("p.pkg"), string(test::kStreamStart) + "[HEADER]\nVersion = 5\nName= t\xc3\xa9\n" +
                         DirRecord("Bin") + FileRecord("caf\xc3\xa9", "x") + FileRecord(odd, "yz") +
                         "[RmDir]\nName = Old\nWithsubdir = YES\n\n" +
                         "[File]\nName = cut\nSize = 9\nab"));
  const std::tuple<Words, string, string> cases[] = {
      {{"list", "p.pkg", "--json"},
       ".records[] | [.index, .kind, .path] | @tsv",
       "1\tHeader\t[HEADER]\n2\tDir\tBin\n3\tFile\tBin/caf\xc3\xa9\n4\tFile\tBin/b\xef\xbf\xbd\xef"
       "\xbf\xbd\"\\\\q\n5\tRmDir\tOld\n6\tFile\tBin/cut\n"},
      {{"list", "p.pkg", "--json"},
       "[.records[3].path_hex, .records[3].name_hex, .records[2].path_hex, .records[4]."
       "with_subdirectories, .records[5].size, .records[5].available, .summary.files] | @tsv",
       "42696e2f62fffe225c71\t62fffe225c71\t\ttrue\t9\t2\t3\n"},
      {{"header", "p.pkg", "--json"},
       ".fields[] | .key + \"=\" + .value",
       "Version=5\nName=t\xc3\xa9\n"},
      {{"verify", "p.pkg", "--json"},
       "[.ok, .records, .digest.state, (.problems | length), .problems[0].record, "
       ".problems[0].kind, .problems[0].path] | @tsv",
       "false\t6\tabsent\t1\t6\tFile\tBin/cut\n"},
      {{"list", "none.pkg", "--json"},
       ".error",
       "Cannot decompress package file none.pkg (codec result 1: a file could not be opened)\n"}};
  for (const auto& [words, filter, out] : cases) EXPECT_EQ(Jq(words, filter), out) << filter;
  EXPECT_EQ(Run({"verify", "p.pkg", "--json"}).exitStatus, kExitFailure);
}

TEST_F(TkpackJson, DiffSaysWhatDiffers) {
  ASSERT_TRUE(test::WritePackage(Path("p.pkg"), test::kStreamStart + DirRecord("Bin") +
                                                    FileRecord("a", "1") + FileRecord("b", "2")));
  TkPackage engine;
  ASSERT_TRUE(engine.InstallPackage(Path("p.pkg").c_str(), Path("dest").c_str(), 0));
  EXPECT_EQ(Jq({"diff", "p.pkg", "dest", "--json"}, "[.matches, (.differences | length)] | @tsv"),
            "true\t0\n");
  ASSERT_TRUE(WriteFile("dest/Bin/a", "22"));
  EXPECT_EQ(Jq({"diff", "p.pkg", "dest", "--json"},
               ".matches, (.differences[] | [.kind, .path, .detail] | @tsv)"),
            "false\nsize\tBin/a\t2 bytes, the package's 1\n");
}

}  // namespace
}  // namespace tk
