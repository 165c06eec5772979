// Walks the input as a plain record stream the way `tkpack verify` does: the magic
// check, then every record up to the end, going on after a bad magic line and after
// malformed records so that all problems are seen, and without writing anything. The
// stream is a real file (written from the input), so seeks past its end behave as they
// do on a decoded package. The walk checks the reader's promises and formats every
// record as `tkpack list` does; then VerifyRecordStream itself walks the same stream.
//
// What must hold for every record handed out: its index counts up by one; its offset
// lies inside the stream; its kind is the one its section names; names are normalised
// (no tab, CR, LF, outer or doubled blank) and those of [Dir], [RmDir] and [TextDir]
// carry no backslash; the current directory is the name of the latest [Dir]; a [File]
// leaves the stream right after its content, and what the record says is available of
// that content lies inside the stream; a malformed record says what was wrong. And
// VerifyRecordStream counts the same records and reports a problem whenever the magic
// line is wrong or a record is malformed.
#include <cstdint>
#include <cstdio>
#include <string>

#include "fuzz/fuzz_support.h"
#include "package/record_reader.h"
#include "support/files.h"
#include "tkpack/record_report.h"

namespace {

using tk::PackageRecord;
using tk::PackageRecordReader;
using tk::RecordKind;
using tk::fuzz::Expect;

// What the walk has seen so far.
struct WalkState {
  int index = 0;
  std::string directory;
  bool afterDir = false;
  bool problems = false;  // a bad magic line or a malformed record
};

bool IsNormalised(const std::string& text) {
  return text.find_first_of("\t\r\n") == std::string::npos &&
         text.find("  ") == std::string::npos && !text.starts_with(' ') && !text.ends_with(' ');
}

void CheckFile(const PackageRecord& record, FILE* stream, int64_t streamSize) {
  const std::string what = " in the [File] record at offset " + std::to_string(record.offset);
  Expect(record.available >= 0 && static_cast<uint64_t>(record.available) <= record.size &&
             record.contentOffset + record.available <= streamSize,
         "available content lies outside the stream", what);
  Expect(record.ContentCutShort() == (static_cast<uint64_t>(record.available) < record.size),
         "ContentCutShort disagrees with the sizes", what);
  const int64_t position = tk::TellFile(stream);
  Expect(record.size <= static_cast<uint64_t>(INT64_MAX - record.contentOffset) &&
             position == record.contentOffset + static_cast<int64_t>(record.size),
         "the stream does not stand right after the content",
         what + ": Size = " + std::to_string(record.size) + ", content at " +
             std::to_string(record.contentOffset) + ", stream now at " + std::to_string(position));
}

void CheckRecord(const PackageRecord& record, PackageRecordReader::Status status, WalkState& state,
                 FILE* stream, int64_t streamSize) {
  const std::string where = " (record " + std::to_string(record.index) + ")";
  Expect(record.index == ++state.index, "records are not counted one by one", where);
  Expect(record.offset >= 0 && record.offset < streamSize, "offset outside the stream", where);
  Expect(record.kind == tk::KindOfSection(record.section), "kind and section disagree", where);
  Expect(tk::RecordKindName(record.kind) != nullptr, "kind without a name", where);
  Expect(record.directory == state.directory && record.afterDir == state.afterDir,
         "current directory is not the latest [Dir]", where);
  Expect(!tk::RecordPosition(record).empty() && !tk::RecordKindText(record).empty() &&
             !tk::ListLine(record, true).empty(),
         "record cannot be listed", where);
  if (status == PackageRecordReader::Status::kMalformed) {
    Expect(!record.problem.empty(), "malformed record without a problem", where);
    state.problems = true;
    return;
  }
  Expect(record.problem.empty() && IsNormalised(record.name), "bad record name", where);
  const bool slashed = record.kind == RecordKind::kDir || record.kind == RecordKind::kRmDir ||
                       record.kind == RecordKind::kTextDir;
  Expect(!slashed || record.name.find('\\') == std::string::npos, "backslash kept", where);
  if (record.name.starts_with('/')) {
    Expect(tk::NameEscapesInstallation(record.name), "absolute name not caught", where);
  }
  for (const std::string& line : record.lines) {
    Expect(!line.empty() && IsNormalised(line), "bad section line", where);
  }
  if (record.kind == RecordKind::kFile) CheckFile(record, stream, streamSize);
  if (record.kind == RecordKind::kDir) {
    state.directory = record.name;
    state.afterDir = true;
  }
}

// VerifyRecordStream over the stream again, from its start.
void CheckVerifyReport(FILE* stream, const WalkState& walked) {
  tk::SeekFile(stream, 0, SEEK_SET);
  PackageRecordReader reader(stream);
  const tk::VerifyReport report = tk::VerifyRecordStream(reader);
  Expect(report.records == walked.index, "verify counts other records than the walk: ",
         std::to_string(report.records) + " against " + std::to_string(walked.index));
  Expect(!walked.problems || !report.problems.empty(), "verify misses a malformed record");
  for (const tk::Problem& problem : report.problems) {
    Expect(!problem.message.empty(), "verify reports an empty problem");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static tk::fuzz::ScratchDirectory scratch("walk");
  const std::string path = scratch.Path("plain.stream");
  Expect(tk::fuzz::WriteWholeFile(path, tk::fuzz::AsString(data, size)), "cannot write ", path);
  tk::UniqueFile stream(std::fopen(path.c_str(), "r"));
  Expect(stream != nullptr, "cannot open ", path);
  PackageRecordReader reader(stream.get());
  Expect(reader.StreamSize() == static_cast<int64_t>(size), "wrong stream size");
  WalkState state;
  state.problems = !reader.ReadMagic();
  PackageRecord record;
  for (;;) {
    const PackageRecordReader::Status status = reader.Next(record);
    if (status == PackageRecordReader::Status::kEnd) break;
    CheckRecord(record, status, state, stream.get(), reader.StreamSize());
  }
  CheckVerifyReport(stream.get(), state);
  return 0;
}
