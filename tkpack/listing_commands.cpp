// tkpack header and tkpack list: what a package holds, without installing it.
#include <string>
#include <vector>

#include "package/package.h"
#include "support/files.h"
#include "tkpack/commands.h"
#include "tkpack/json_report.h"
#include "tkpack/opened_package.h"
#include "tkpack/record_report.h"
#include "tkpack/tool.h"

namespace tk {

namespace {

constexpr const char* kLongOption = "--long";

std::string BadPackage(const std::string& packagePath) { return "Bad package file " + packagePath; }

}  // namespace

int RunHeader(const CommandLine& line, ToolIo& io) {
  const std::string& packagePath = line.operands[0];
  const bool json = line.Has(kJsonOption);
  TkPackage package;
  std::vector<std::string> lines;
  if (!package.ReadPackageHeader(packagePath.c_str(), lines)) {
    return json ? ReportJsonFailure(io, packagePath, package.ErrorText())
                : ReportFailure(io, package.ErrorText());
  }
  if (json) {
    PrintJson(io.out, HeaderJson(packagePath, lines));
  } else {
    for (const std::string& text : lines) std::fprintf(io.out, "%s\n", text.c_str());
  }
  return kExitSuccess;
}

int RunList(const CommandLine& line, ToolIo& io) {
  const std::string& packagePath = line.operands[0];
  const bool longFormat = line.Has(kLongOption);
  const bool json = line.Has(kJsonOption);
  const auto fail = [&](const std::string& message) {
    return json ? ReportJsonFailure(io, packagePath, message) : ReportFailure(io, message);
  };
  OpenedPackage opened;
  std::string error;
  if (!opened.Open(packagePath, error)) return fail(error);
  PackageRecordReader reader(opened.stream());
  if (!reader.ReadMagic()) return fail(BadPackage(packagePath));
  ListTotals totals;
  Json records = Json::array();
  PackageRecord record;
  for (;;) {
    switch (reader.Next(record)) {
      case PackageRecordReader::Status::kRecord:
        if (json) {
          records.push_back(RecordJson(record));
        } else {
          std::fprintf(io.out, "%s\n", ListLine(record, longFormat).c_str());
        }
        totals.Add(record);
        break;
      case PackageRecordReader::Status::kMalformed: {
        const std::string message =
            BadPackage(packagePath) + ": " + MalformedRecordProblem(record).Text();
        if (!json) return ReportFailure(io, message);
        PrintJson(io.out, {{"package", packagePath}, {"records", records}, {"error", message}});
        return ReportFailure(io, message);
      }
      case PackageRecordReader::Status::kEnd: {
        const int64_t packageBytes = FileSize(packagePath.c_str());
        if (json) {
          PrintJson(io.out, {{"package", packagePath},
                             {"records", records},
                             {"summary", SummaryJson(totals, reader.StreamSize(), packageBytes)}});
        } else if (longFormat) {
          std::fprintf(io.out, "%s\n",
                       SummaryLine(totals, reader.StreamSize(), packageBytes).c_str());
        }
        return kExitSuccess;
      }
    }
  }
}

}  // namespace tk
