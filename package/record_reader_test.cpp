#include "package/record_reader.h"

#include <vector>

#include "support/files.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using Status = PackageRecordReader::Status;
using test::kStreamStart;

class RecordReaderTest : public test::TempDirTest {
 protected:
  // Walks the magic lines + `records` to the end, describing each record as "Kind name"
  // (+ size for files, YES/NO for RmDir, |lines of other sections) or "bad SECTION:
  // problem".
  std::vector<std::string> Walk(const std::string& records) {
    EXPECT_TRUE(WriteFile("walk", kStreamStart + records));
    UniqueFile stream(OpenFile(Path("walk").c_str(), "r"));
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
  const std::pair<std::string, std::vector<std::string>> cases[] = {
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
      {"[Dir]\n\nName = a\n[Exec]",
       {"bad DIR: missing \"Name = \" line", "bad EXEC: stream ends before the \"Name = \" line"}},
      {"[RmDir]\nName = r\nWithsubdir: YES\n", {"bad RMDIR: missing \"Withsubdir = \" line"}},
      {"[File]\nName = f\nSize = 18446744073709551584\n[Exec]\nName = x\n",
       {"bad FILE: cannot seek past the content", "Exec x"}}};
  for (const auto& [records, seen] : cases) EXPECT_EQ(Walk(records), seen) << records;
}

// Contents shorter and longer than the stream's buffer and across its edges, holding
// record-like lines: each record is found where it stands, the stream is left right after
// each content (also after the last one, cut short by the end of the stream).
TEST_F(RecordReaderTest, MovesPastContentsOfAnySizeAroundTheBuffer) {
  const int64_t sizes[] = {0, 1, 63, 64, 65, 4095, 4096, 4097, 9000, 3000};
  std::string stream = kStreamStart;
  std::vector<int64_t> offsets;
  for (const int64_t size : sizes) {
    offsets.push_back(static_cast<int64_t>(stream.size()));
    std::string content;
    while (static_cast<int64_t>(content.size()) < size) content += "[Exec]\nName = x\n";
    stream += "[File]\nName = f\nSize = " + std::to_string(size) + "\n" + content.substr(0, size);
    stream += "\n\n";
  }
  ASSERT_TRUE(WriteFile("sizes", stream.substr(0, stream.size() - 2902)));  // 100 of 3000 bytes
  for (const size_t bufferSize : {size_t{0}, size_t{64}, size_t{4096}}) {
    std::vector<char> buffer(bufferSize);
    UniqueFile f(OpenFile(Path("sizes").c_str(), "r"));
    std::setvbuf(f.get(), bufferSize ? buffer.data() : nullptr, bufferSize ? _IOFBF : _IONBF,
                 bufferSize);
    PackageRecordReader reader(f.get());
    PackageRecord r;
    ASSERT_TRUE(reader.ReadMagic());
    for (size_t i = 0; i < std::size(sizes); ++i) {
      ASSERT_EQ(reader.Next(r), Status::kRecord) << bufferSize << " " << i;
      EXPECT_EQ(r.offset, offsets[i]);
      EXPECT_EQ(r.available, i + 1 < std::size(sizes) ? sizes[i] : 100);
      EXPECT_EQ(TellFile(f.get()), r.contentOffset + sizes[i]);
    }
    EXPECT_EQ(reader.Next(r), Status::kEnd);
  }
}

TEST(RecordNames, EscapingNamesAreRecognised) {
  const std::pair<const char*, bool> cases[] = {
      {"/etc", true},  {"..", true},       {"a/../../b", true}, {"a\\..\\b", true},
      {"\\abs", true}, {"Bin/lib", false}, {"", false},         {"a..b/c..", false}};
  for (const auto& [name, escapes] : cases)
    EXPECT_EQ(NameEscapesInstallation(name), escapes) << name;
}

}  // namespace
}  // namespace tk
