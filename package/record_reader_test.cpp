#include "package/record_reader.h"

#include <vector>

#include "package/package_test_fixture.h"
#include "support/files.h"

namespace tk {
namespace {

using Status = PackageRecordReader::Status;

class RecordReaderTest : public PackageTest {
 protected:
  // Walks the magic lines + `body` to the end, describing each record as "Kind name" (+
  // size for files, YES/NO for RmDir, |lines of other sections) or "bad SECTION: problem".
  std::vector<std::string> Walk(const std::string& body) {
    WriteFile("walk.stream", kMagic + body);
    UniqueFile stream(OpenFile(Path("walk.stream").c_str(), "r"));
    PackageRecordReader reader(stream.get());
    EXPECT_TRUE(reader.ReadMagic());
    std::vector<std::string> seen;
    PackageRecord r;
    for (Status status = reader.Next(r); status != Status::kEnd; status = reader.Next(r)) {
      std::string text = RecordKindName(r.kind) + (" " + r.name);
      if (r.kind == RecordKind::kFile) text += " " + std::to_string(r.size);
      if (r.kind == RecordKind::kRmDir) text += r.withSubdirs ? " YES" : " NO";
      for (const std::string& line : r.lines) text += " |" + line;
      seen.push_back(status == Status::kMalformed ? "bad " + r.section + ": " + r.problem : text);
    }
    return seen;
  }
};

TEST_F(RecordReaderTest, RecognisesSectionsKeysAndBadRecords) {
  const std::string content = std::string("[Exec]\nName = x\n") + '\0' + "\r\n[Dir]\n";
  const struct {
    std::string body;
    std::vector<std::string> records;
  } cases[] = {
      {"[dir]\nName = a\n\n[ DIR ] more\nName = b\n[Dir]x]\nName = c\n",
       {"Dir a", "Dir b", "Dir c"}},
      {"[Dir]\nName = a\\b\n[File]\nName = x\\y\nSize = 0\n\n\n", {"Dir a/b", "File x\\y 0"}},
      {"[Exec]\n  prefix Name =   two  blanks \n[TextDir]\nName = t\nName = t\n\n\n",
       {"Exec two blanks", "TextDir t"}},
      {"[RmDir]\nName = r\nWithsubdir = yes\n[RmDir]\nName = s\nWithsubdir = Y\n",
       {"RmDir r YES", "RmDir s NO"}},
      {"[File]\nName = f\nSize = 25xyz\n" + content + "\n\n[RemoveFile]\nName = *.log\n",
       {"File f 25", "RemoveFile *.log"}},
      {"text\n[HEADER]\nVersion = 2\n\n  a\tb \n[Old\n[]\nName = z\n",
       {"Other  |Version = 2 |a b |[Old", "Other  |Name = z"}},
      {"[File]\n\n\n[Dir]\nName = a\n", {"bad FILE: missing \"Name = \" line", "Dir a"}},
      {"[File]\n[TextFile]\nName = a\n", {"bad FILE: missing \"Name = \" line", "TextFile a"}},
      {"[Dir]\n\nName = a\n[Exec]", {"bad DIR: missing \"Name = \" line",
                                     "bad EXEC: stream ends before the \"Name = \" line"}},
      {"[RmDir]\nName = r\nWithsubdir: YES\n", {"bad RMDIR: missing \"Withsubdir = \" line"}},
      {"[File]\nName = f\nSize = 18446744073709551584\n[Exec]\nName = x\n",
       {"bad FILE: cannot seek past the content", "Exec x"}},
  };
  for (const auto& c : cases) EXPECT_EQ(Walk(c.body), c.records) << c.body;
}

TEST(RecordNames, EscapingNamesAreRecognised) {
  for (const char* name : {"/etc", "..", "a/../../b", "a\\..\\b", "\\abs"}) {
    EXPECT_TRUE(NameEscapesInstallation(name)) << name;
  }
  for (const char* name : {"Bin/lib", "", "a..b/c.."}) EXPECT_FALSE(NameEscapesInstallation(name));
}

}  // namespace
}  // namespace tk
