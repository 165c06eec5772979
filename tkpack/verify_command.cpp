// tkpack verify: checks the package's signature when asked to, then decodes the whole
// package into a private temporary directory and walks every record with the
// installer's reader, writing nothing else.
#include <string>

#include "package/record_reader.h"
#include "tkpack/commands.h"
#include "tkpack/digest.h"
#include "tkpack/file_watcher.h"
#include "tkpack/json_report.h"
#include "tkpack/opened_package.h"
#include "tkpack/package_signature.h"
#include "tkpack/record_report.h"
#include "tkpack/tool.h"

namespace tk {

namespace {

// A wrong digest is the last problem; a right or absent one is said just before the
// summary line all the same.
void PrintReport(const std::string& packagePath, const VerifyReport& report,
                 const DigestCheck& digest, FILE* out) {
  for (const Problem& problem : report.problems) {
    std::fprintf(out, "%s: %s\n", packagePath.c_str(), problem.Text().c_str());
  }
  if (!IsDigestProblem(digest)) {
    std::fprintf(out, "%s: %s\n", packagePath.c_str(), DigestCheckText(digest).c_str());
  }
  if (report.problems.empty()) {
    std::fprintf(out, "%s: ok, %d records\n", packagePath.c_str(), report.records);
  } else {
    const std::size_t count = report.problems.size();
    std::fprintf(out, "%s: %zu problem%s in %d records\n", packagePath.c_str(), count,
                 count == 1 ? "" : "s", report.records);
  }
}

void PrintJsonReport(const std::string& packagePath, const VerifyReport& report,
                     const DigestCheck& digest, const SignatureFacts* signature, FILE* out) {
  Json document;
  document["package"] = packagePath;
  document["records"] = report.records;
  document["ok"] = report.problems.empty();
  if (signature != nullptr) document["signature"] = SignatureJson(*signature);
  document["digest"] = DigestJson(digest);
  document["problems"] = Json::array();
  for (const Problem& problem : report.problems)
    document["problems"].push_back(ProblemJson(problem));
  PrintJson(out, document);
}

}  // namespace

int RunVerify(const CommandLine& line, ToolIo& io) {
  const std::string& packagePath = line.operands[0];
  const bool json = line.Has(kJsonOption);
  SignatureFacts signature;
  if (!CheckSignatureOption(line, packagePath, io, json ? Reporting::kJson : Reporting::kLines,
                            &signature)) {
    return kExitFailure;
  }
  std::string error;
  OpenedPackage opened;
  VerifyReport report;
  DigestCheck digest;
  {
    ProgressDisplay display(io.err, io.errIsTerminal);
    FileProgressWatcher watcher(
        display, {{"decoding", packagePath, WatchedFile::Access::kReading},
                  {"verifying", opened.decodedPath(), WatchedFile::Access::kReading}});
    if (!opened.Open(packagePath, error)) {
      watcher.Stop();
      return json ? ReportJsonFailure(io, packagePath, error) : ReportFailure(io, error);
    }
    PackageRecordReader reader(opened.stream());
    report = VerifyRecordStream(reader);
    digest = CheckPackageDigest(packagePath, opened.stream());
  }
  if (IsDigestProblem(digest)) report.problems.push_back(StreamProblem(DigestCheckText(digest)));
  if (json) {
    PrintJsonReport(packagePath, report, digest, line.Has(kPubkeyOption) ? &signature : nullptr,
                    io.out);
  } else {
    PrintReport(packagePath, report, digest, io.out);
  }
  return report.problems.empty() ? kExitSuccess : kExitFailure;
}

}  // namespace tk
