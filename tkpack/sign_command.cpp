// tkpack sign: writes PACKAGE.minisig with a minisign secret key; and the --pubkey check
// that verify and install make before anything else.
#include <string>

#include "tkpack/commands.h"
#include "tkpack/json_report.h"
#include "tkpack/package_signature.h"
#include "tkpack/tool.h"

namespace tk {

int RunSign(const CommandLine& line, ToolIo& io) {
  const std::string& packagePath = line.operands[0];
  if (!line.Has("--key")) {
    std::fprintf(io.err, "tkpack: sign: option '--key' is required (see 'tkpack sign --help')\n");
    return kExitUsage;
  }
  std::string error;
  if (!SignPackage(packagePath, line.Value("--key", ""), line.Value("--password-file", ""),
                   error)) {
    return ReportFailure(io, error);
  }
  std::fprintf(io.out, "signed %s (%s)\n", packagePath.c_str(), SignaturePath(packagePath).c_str());
  return kExitSuccess;
}

bool CheckSignatureOption(const CommandLine& line, const std::string& packagePath, ToolIo& io,
                          Reporting reporting, SignatureFacts* facts) {
  if (!line.Has(kPubkeyOption)) return true;
  std::string report, error;
  if (!CheckPackageSignature(packagePath, line.Value(kPubkeyOption, ""), report, error, facts)) {
    if (reporting == Reporting::kJson)
      ReportJsonFailure(io, packagePath, error);
    else
      ReportFailure(io, error);
    return false;
  }
  if (reporting == Reporting::kLines) std::fprintf(io.out, "%s\n", report.c_str());
  return true;
}

}  // namespace tk
