// tkpack header and tkpack list: what a package holds, without installing it.
#include <string>
#include <vector>

#include "package/package.h"
#include "support/files.h"
#include "tkpack/commands.h"
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
  TkPackage package;
  std::vector<std::string> lines;
  if (!package.ReadPackageHeader(packagePath.c_str(), lines)) {
    return ReportFailure(io, package.ErrorText());
  }
  for (const std::string& text : lines) std::fprintf(io.out, "%s\n", text.c_str());
  return kExitSuccess;
}

int RunList(const CommandLine& line, ToolIo& io) {
  const std::string& packagePath = line.operands[0];
  const bool longFormat = line.Has(kLongOption);
  OpenedPackage opened;
  std::string error;
  if (!opened.Open(packagePath, error)) return ReportFailure(io, error);
  PackageRecordReader reader(opened.stream());
  if (!reader.ReadMagic()) return ReportFailure(io, BadPackage(packagePath));
  ListTotals totals;
  PackageRecord record;
  for (;;) {
    switch (reader.Next(record)) {
      case PackageRecordReader::Status::kRecord:
        std::fprintf(io.out, "%s\n", ListLine(record, longFormat).c_str());
        totals.Add(record);
        break;
      case PackageRecordReader::Status::kMalformed:
        std::fflush(io.out);
        return ReportFailure(
            io, BadPackage(packagePath) + ": " + MalformedRecordProblem(record).Text());
      case PackageRecordReader::Status::kEnd:
        if (longFormat) {
          std::fprintf(
              io.out, "%s\n",
              SummaryLine(totals, reader.StreamSize(), FileSize(packagePath.c_str())).c_str());
        }
        return kExitSuccess;
    }
  }
}

}  // namespace tk
