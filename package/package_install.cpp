// TkPackage::InstallPackage: package file -> decompressed stream in the destination ->
// record reader -> record applier -> files on disk (through PlainInstallTree).
// TkPackage::InstallStream: the same from a stream the caller decompressed.
#include <cstdio>
#include <string>

#include "package/package.h"
#include "package/record_applier.h"
#include "package/temp_paths.h"
#include "support/directories.h"

namespace tk {

namespace {

// The installer decodes the whole stream.
constexpr uint64_t kDecodeEverything = 0;

void Progress(bool verbose, const char* line) {
  if (!verbose) return;
  std::fputs(line, stdout);
  std::fflush(stdout);
}

// The start of every installation: the arguments checked, the destination (as text in
// `destinationArgument`) with its missing parents, then the first progress line. The
// message of a failure, or "". (A free function: nothing before the decompression calls
// a member, whose type check under UBSan would need a descriptor that a full table may
// not have; see PackageFaultTest.InstallationWaitsForAFullDescriptorTable.)
std::string StartInstallation(const char* packagePath, const char* destination, bool verbose,
                              std::string& destinationArgument) {
  if (packagePath == nullptr) return "No package file";
  destinationArgument = destination != nullptr ? destination : "";
  const std::string target = InstallDirectory(destinationArgument);
  if (DirectoryExists(target.c_str()) == 0 && CreateDirectoryPath(target.c_str(), false) != 1) {
    return "cannot create target directory: " + target;
  }
  if (verbose) std::printf("\nInstalling package %s", packagePath);
  return "";
}

}  // namespace

bool TkPackage::InstallPackage(const char* packagePath, const char* destination, int verbose) {
  error_.clear();
  std::string destinationArgument;
  if (std::string failure =
          StartInstallation(packagePath, destination, verbose != 0, destinationArgument);
      !failure.empty()) {
    return Fail(std::move(failure));
  }
  const std::string tempPath = InstallTempPath(packagePath, destinationArgument);
  Progress(verbose != 0, "\nUncompressing package file");
  DecodedPackage decoded(tempPath);
  switch (decoded.Open(packagePath, kDecodeEverything)) {
    case DecodedPackage::Result::kDecodeFailed:
      return Fail("Cannot decompress package file");
    case DecodedPackage::Result::kOpenFailed:
      return Fail("Cannot open temporary package file " + tempPath);
    case DecodedPackage::Result::kOk:
      break;
  }
  PlainInstallTree tree(*this);
  return ApplyStream(decoded.stream(), packagePath, destinationArgument, verbose != 0, tree);
}

bool TkPackage::InstallStream(FILE* stream, const char* packagePath, const char* destination,
                              int verbose, InstallTree& tree) {
  error_.clear();
  std::string destinationArgument;
  if (std::string failure =
          StartInstallation(packagePath, destination, verbose != 0, destinationArgument);
      !failure.empty()) {
    return Fail(std::move(failure));
  }
  Progress(verbose != 0, "\nUncompressing package file");
  return ApplyStream(stream, packagePath, destinationArgument, verbose != 0, tree);
}

bool TkPackage::ApplyStream(FILE* stream, const char* packagePath, const std::string& destination,
                            bool verbose, InstallTree& tree) {
  Progress(verbose, "\nVerifying package");
  PackageRecordReader reader(stream);
  if (!reader.ReadMagic()) return Fail("Bad package file " + std::string(packagePath));
  RecordApplier applier(tree, error_, destination, stream, verbose);
  PackageRecord record;
  for (;;) {
    switch (reader.Next(record)) {
      case PackageRecordReader::Status::kEnd:
        return true;
      case PackageRecordReader::Status::kMalformed:
        return Fail("Bad package file " + std::string(packagePath));
      case PackageRecordReader::Status::kRecord:
        if (!applier.Apply(record)) return false;
        break;
    }
  }
}

}  // namespace tk
