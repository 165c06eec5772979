#include "tkpack/record_report.h"

#include <cstdio>

#include "support/strings.h"

namespace tk {

namespace {

// Widths of the kind and size columns of a listing ("RemoveFile" is the longest kind).
constexpr int kKindColumn = 10;
constexpr int kSizeColumn = 12;

// Kinds whose name is relative to the latest [Dir] rather than to the installation.
bool ActsOnCurrentDirectory(RecordKind kind) {
  return kind == RecordKind::kFile || kind == RecordKind::kRemoveFile ||
         kind == RecordKind::kExec || kind == RecordKind::kTextFile;
}

// "[File] Bin/a.txt", or "[File]" while the record has no name.
std::string RecordLabel(const PackageRecord& record) {
  if (record.kind == RecordKind::kOther) return "[" + record.section + "]";
  const std::string label = "[" + RecordKindText(record) + "]";
  return record.name.empty() ? label : label + " " + RecordTarget(record);
}

std::string SizeColumn(const PackageRecord& record) {
  return record.kind == RecordKind::kFile ? std::to_string(record.size) : "-";
}

std::string LongSuffix(const PackageRecord& record) {
  if (record.kind == RecordKind::kFile && record.ContentCutShort()) {
    return "  (only " + std::to_string(record.available) + " bytes in the package)";
  }
  if (record.kind == RecordKind::kRmDir && record.withSubdirs) return "  (with subdirectories)";
  return "";
}

}  // namespace

std::string RecordKindText(const PackageRecord& record) {
  if (record.kind != RecordKind::kOther) return RecordKindName(record.kind);
  return record.section == kHeaderSection ? "Header" : "Other";
}

std::string RecordTarget(const PackageRecord& record) {
  if (record.kind == RecordKind::kOther) return "[" + record.section + "]";
  if (!ActsOnCurrentDirectory(record.kind)) return record.name.empty() ? "." : record.name;
  std::string path = record.directory;
  AddTrailingSlash(path);  // as the installer joins them
  return path + record.name;
}

std::string RecordPosition(const PackageRecord& record) {
  return "record " + std::to_string(record.index) + " at byte " + std::to_string(record.offset);
}

std::string ListLine(const PackageRecord& record, bool longFormat) {
  char columns[64];
  if (longFormat) {
    std::snprintf(columns, sizeof columns, "%-*s %*s  ", kKindColumn,
                  RecordKindText(record).c_str(), kSizeColumn, SizeColumn(record).c_str());
  } else {
    std::snprintf(columns, sizeof columns, "%-*s ", kKindColumn, RecordKindText(record).c_str());
  }
  return columns + RecordTarget(record) + (longFormat ? LongSuffix(record) : "");
}

void ListTotals::Add(const PackageRecord& record) {
  ++records;
  if (record.kind == RecordKind::kDir) ++directories;
  if (record.kind == RecordKind::kFile) {
    ++files;
    contentBytes += record.size;
  }
}

std::string SummaryLine(const ListTotals& totals, int64_t streamBytes, int64_t packageBytes) {
  return std::to_string(totals.records) + " records: " + std::to_string(totals.directories) +
         " directories, " + std::to_string(totals.files) + " files with " +
         std::to_string(totals.contentBytes) + " bytes; stream " + std::to_string(streamBytes) +
         " bytes, package " + std::to_string(packageBytes) + " bytes";
}

void FindRecordProblems(const PackageRecord& record, std::vector<Problem>& problems) {
  if (record.kind == RecordKind::kFile && record.name.empty()) {
    problems.push_back(RecordProblem(record, "no name (empty \"Name = \" line)"));
  }
  if (record.kind != RecordKind::kOther && NameEscapesInstallation(record.name)) {
    problems.push_back(RecordProblem(
        record, "name \"" + record.name + "\" would escape the installation directory"));
  }
  if (ActsOnCurrentDirectory(record.kind) && !record.afterDir) {
    problems.push_back(RecordProblem(record,
                                     "comes before any [Dir] record (would act on the installer's "
                                     "working directory)"));
  }
  if (record.kind == RecordKind::kFile && record.ContentCutShort()) {
    problems.push_back(RecordProblem(
        record, "content cut short: Size = " + std::to_string(record.size) +
                    " but the stream holds " + std::to_string(record.available) + " bytes"));
  }
}

std::string Problem::Text() const { return where.empty() ? message : where + ": " + message; }

Problem RecordProblem(const PackageRecord& record, const std::string& what) {
  return {record.index,
          record.offset,
          RecordKindText(record),
          RecordTarget(record),
          RecordPosition(record) + ": " + RecordLabel(record),
          what};
}

Problem StreamProblem(const std::string& message) { return {0, 0, "", "", "", message}; }

Problem MalformedRecordProblem(const PackageRecord& record) {
  const bool nameMissing =
      record.name.empty() && record.problem.find(kNameKey) != std::string::npos;
  if (record.kind == RecordKind::kFile && nameMissing) {
    return RecordProblem(record, "no name (" + record.problem + ")");
  }
  return RecordProblem(record, record.problem);
}

Problem BadMagicProblem() {
  return {0,
          0,
          "",
          "",
          "line 1 at byte 0",
          std::string("bad magic or version line (a package stream starts with \"") +
              kPackageMagic + "\" and a version line)"};
}

VerifyReport VerifyRecordStream(PackageRecordReader& reader, const RecordCheck& extra) {
  VerifyReport report;
  if (!reader.ReadMagic()) report.problems.push_back(BadMagicProblem());
  PackageRecord record;
  for (;;) {
    switch (reader.Next(record)) {
      case PackageRecordReader::Status::kRecord: {
        ++report.records;
        const std::size_t before = report.problems.size();
        FindRecordProblems(record, report.problems);
        if (extra && report.problems.size() == before) extra(record, report.problems);
        break;
      }
      case PackageRecordReader::Status::kMalformed:
        ++report.records;
        report.problems.push_back(MalformedRecordProblem(record));
        break;
      case PackageRecordReader::Status::kEnd:
        return report;
    }
  }
}

}  // namespace tk
