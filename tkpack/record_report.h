// How tkpack shows the records that a PackageRecordReader hands out: the path each
// record acts on, where it stands in the stream, the lines of `tkpack list`, and the
// problems `tkpack verify` looks for. Everything here only formats and judges records;
// reading them is the reader's job.
//
// Thread-safe: no shared state.
#ifndef TAVIK_TKPACK_RECORD_REPORT_H_
#define TAVIK_TKPACK_RECORD_REPORT_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "package/record_reader.h"

namespace tk {

// The kind as listed: "Dir", "File", ... as the builder writes the section, "Header"
// for HEADER sections and "Other" for sections the installer does not know.
std::string RecordKindText(const PackageRecord& record);

// The path the record acts on, relative to the installation directory: the name for
// Dir, RmDir and TextDir ("." for the installation directory itself); "directory/name"
// for File, RemoveFile, Exec and TextFile (just the name when the latest [Dir] is the
// installation directory itself or there was none); "[SECTION]" for other sections.
std::string RecordTarget(const PackageRecord& record);

// "record 3 at byte 57": the record's ordinal and the offset of its section line in
// the decoded stream.
std::string RecordPosition(const PackageRecord& record);

// One line of `tkpack list`, without its LF: kind and target, and in the long format
// also the content size of a [File] (what it announces, and what the stream still
// holds when that is less) or the Withsubdir choice of an [RmDir].
std::string ListLine(const PackageRecord& record, bool longFormat);

// Totals of a listing, for the summary line of `tkpack list --long`.
struct ListTotals {
  int records = 0;
  int directories = 0;
  int files = 0;
  uint64_t contentBytes = 0;  // announced sizes of the [File] records

  void Add(const PackageRecord& record);
};

// "7 records: 2 directories, 3 files with 1234 bytes; stream 2000 bytes, package 900 bytes"
std::string SummaryLine(const ListTotals& totals, int64_t streamBytes, int64_t packageBytes);

// One thing wrong with a package: where it is and what it is.
struct Problem {
  int record = 0;       // 1-based ordinal of the record; 0 for the stream as a whole
  int64_t offset = 0;   // byte offset of the record's section line (or of the line)
  std::string kind;     // RecordKindText of the record ("" for the stream)
  std::string target;   // RecordTarget of the record ("" for the stream)
  std::string where;    // "record 3 at byte 57: [File] Bin/a", "line 1 at byte 0" or ""
  std::string message;  // what is wrong

  // `where` + ": " + `message` (just `message` when there is no `where`).
  std::string Text() const;
};

// Appends to `problems` what is wrong with a record the reader handed out whole:
// a [File] without a name, content cut short, a name that would escape the
// installation directory, a record acting on the current directory before any [Dir].
// Each problem's text reads "record N at byte B: [Kind] target: what".
void FindRecordProblems(const PackageRecord& record, std::vector<Problem>& problems);

// The problem `what` of `record`, at "record N at byte B: [Kind] target".
Problem RecordProblem(const PackageRecord& record, const std::string& what);

// The problem of a record the reader found malformed (a missing key line or a failed
// seek), in the same form.
Problem MalformedRecordProblem(const PackageRecord& record);

// The problem of a stream whose magic or version line is wrong or missing, at "line 1
// at byte 0".
Problem BadMagicProblem();

// A problem of the stream as a whole, with no position (a digest, say).
Problem StreamProblem(const std::string& message);

// The outcome of walking a whole record stream for `tkpack verify`.
struct VerifyReport {
  int records = 0;                // records handed out, malformed ones included
  std::vector<Problem> problems;  // in stream order
};

// A further check of each record that the reader handed out whole and that has no
// problem of its own; it appends what it finds.
using RecordCheck = std::function<void(const PackageRecord&, std::vector<Problem>&)>;

// Checks the magic and version lines, then walks every record to the end of the
// stream and collects every problem (and what `extra` finds); a malformed record does
// not end the walk.
VerifyReport VerifyRecordStream(PackageRecordReader& reader, const RecordCheck& extra = {});

}  // namespace tk

#endif  // TAVIK_TKPACK_RECORD_REPORT_H_
