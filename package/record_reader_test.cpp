#include "package/record_reader.h"

#include <vector>

#include "package/package_test_fixture.h"
#include "support/files.h"

namespace tk {
namespace {

class RecordReaderTest : public PackageTest {
 protected:
  // Walks a plain stream (magic and version lines prepended) and describes each record:
  // "Kind name" (+ size for files, + YES/NO for RmDir, + lines for other sections), or
  // "bad SECTION: problem".
  std::vector<std::string> Walk(const std::string& body) {
    WriteFile("walk.stream", kMagic + body);
    UniqueFile stream(OpenFile(Path("walk.stream").c_str(), "r"));
    PackageRecordReader reader(stream.get());
    EXPECT_TRUE(reader.ReadMagic());
    std::vector<std::string> seen;
    PackageRecord record;
    for (auto status = reader.Next(record); status != PackageRecordReader::Status::kEnd;
         status = reader.Next(record)) {
      seen.push_back(Describe(status, record));
    }
    return seen;
  }

  static std::string Describe(PackageRecordReader::Status status, const PackageRecord& record) {
    if (status == PackageRecordReader::Status::kMalformed) {
      return "bad " + record.section + ": " + record.problem;
    }
    std::string text = std::string(RecordKindName(record.kind)) + " " + record.name;
    if (record.kind == RecordKind::kFile) text += " " + std::to_string(record.size);
    if (record.kind == RecordKind::kRmDir) text += record.withSubdirs ? " YES" : " NO";
    for (const std::string& line : record.lines) text += " |" + line;
    return text;
  }
};

TEST_F(RecordReaderTest, MagicLineIsNormalisedAndVersionRequired) {
  const struct {
    std::string stream;
    bool good;
  } cases[] = {
      {"TAVIK PACKAGE FILE\n1\n", true},
      {" TAVIK\tPACKAGE  FILE \r\nanything\n", true},
      {"TAVIK PACKAGE FILE\n", false},
      {"", false},
      {"tavik package file\n1\n", false},
      {"TAVIK PACKAGE FILES\n1\n", false},
  };
  for (const auto& c : cases) {
    WriteFile("magic.stream", c.stream);
    UniqueFile stream(OpenFile(Path("magic.stream").c_str(), "r"));
    EXPECT_EQ(PackageRecordReader(stream.get()).ReadMagic(), c.good) << c.stream;
  }
}

TEST_F(RecordReaderTest, RecognisesSectionsAndKeyLines) {
  const struct {
    std::string body;
    std::vector<std::string> records;
  } cases[] = {
      {"[dir]\nName = a\n\n[ DIR ] trailing\nName = b\n[Dir]x]\nName = c\n",
       {"Dir a", "Dir b", "Dir c"}},
      {"[Dir]\nName = a\\b\n[File]\nName = x\\y\nSize = 0\n\n\n", {"Dir a/b", "File x\\y 0"}},
      {"[Exec]\n  prefix Name =   two  blanks \n", {"Exec two blanks"}},
      {"[TextDir]\nName = t\nName = t\n\n\n[TextFile]\nName = f\n", {"TextDir t", "TextFile f"}},
      {"[RmDir]\nName = r\nWithsubdir = yes\n[RmDir]\nName = s\nWithsubdir = Y\n",
       {"RmDir r YES", "RmDir s NO"}},
      {"[File]\nName = f\nSize = 12abc\n[Exec]\nName = x\n[RemoveFile]\nName = *.log\n",
       {"File f 12", "RemoveFile *.log"}},
      {"[HEADER]\nVersion = 2\n\n  a\tb \n[Old]\n[]\nName = z\n",
       {"Other  |Version = 2 |a b", "Other ", "Other  |Name = z"}},
      {"stray text\n[File without bracket\n", {}},
  };
  for (const auto& c : cases) EXPECT_EQ(Walk(c.body), c.records) << c.body;
}

TEST_F(RecordReaderTest, FileContentIsSkippedNotRead) {
  const std::string content = std::string("[Exec]\nName = x\n") + '\0' + "\r\n[Dir]\n";
  const std::string body = "[File]\nName = f\nSize = " + std::to_string(content.size()) +
                           "\n" + content + "\n\n[File]\nName = e\nSize = 0\n\n\n";
  EXPECT_EQ(Walk(body), (std::vector<std::string>{"File f 25", "File e 0"}));
}

TEST_F(RecordReaderTest, MissingKeyLinesAreReportedAndReadingGoesOn) {
  const struct {
    std::string body;
    std::vector<std::string> records;
  } cases[] = {
      {"[File]\n\n\n[Dir]\nName = a\n",
       {"bad FILE: missing \"Name = \" line", "Dir a"}},
      {"[File]\n[Dir]\nName = a\n", {"bad FILE: missing \"Name = \" line", "Dir a"}},
      {"[Dir]\n\nName = a\n", {"bad DIR: missing \"Name = \" line"}},
      {"[File]\nName = f\n", {"bad FILE: stream ends before the \"Size = \" line"}},
      {"[RmDir]\nName = r\nWithsubdir: YES\n", {"bad RMDIR: missing \"Withsubdir = \" line"}},
      {"[Exec]", {"bad EXEC: stream ends before the \"Name = \" line"}},
      {"[File]\nName = f\nSize = 18446744073709551584\n[Exec]\nName = x\n",
       {"bad FILE: cannot seek past the content", "Exec x"}},
      {"[File]\nName = f\nSize = 9223372036854775800\n", {"bad FILE: cannot seek past the content"}},
  };
  for (const auto& c : cases) EXPECT_EQ(Walk(c.body), c.records) << c.body;
}

TEST_F(RecordReaderTest, RecordsCarryPositionDirectoryAndAvailableContent) {
  const std::string body = "[File]\nName = early\nSize = 1\nx\n\n[Dir]\nName = d\n\n"
                           "[File]\nName = cut\nSize = 100\nshort";
  WriteFile("walk.stream", kMagic + body);
  UniqueFile stream(OpenFile(Path("walk.stream").c_str(), "r"));
  PackageRecordReader reader(stream.get());
  ASSERT_TRUE(reader.ReadMagic());
  PackageRecord record;
  ASSERT_EQ(reader.Next(record), PackageRecordReader::Status::kRecord);
  EXPECT_EQ(record.offset, 21);
  EXPECT_FALSE(record.afterDir);
  EXPECT_FALSE(record.ContentCutShort());
  ASSERT_EQ(reader.Next(record), PackageRecordReader::Status::kRecord);
  EXPECT_EQ(record.index, 2);
  ASSERT_EQ(reader.Next(record), PackageRecordReader::Status::kRecord);
  EXPECT_EQ(record.index, 3);
  const int64_t offset = 21 + static_cast<int64_t>(body.find("[File]\nName = cut"));
  EXPECT_EQ(record.offset, offset);
  EXPECT_EQ(record.contentOffset, offset + 29);
  EXPECT_TRUE(record.afterDir);
  EXPECT_EQ(record.directory, "d");
  EXPECT_EQ(record.available, 5);
  EXPECT_TRUE(record.ContentCutShort());
  EXPECT_EQ(reader.Next(record), PackageRecordReader::Status::kEnd);
}

TEST(RecordNames, EscapingNamesAreRecognised) {
  const struct {
    const char* name;
    bool escapes;
  } cases[] = {{"Bin/lib", false}, {"", false}, {"a..b/c..", false}, {"/etc", true},
               {"..", true},       {"a/../../b", true}, {"a\\..\\b", true}, {"\\abs", true}};
  for (const auto& c : cases) EXPECT_EQ(NameEscapesInstallation(c.name), c.escapes) << c.name;
}

}  // namespace
}  // namespace tk
