// TkPackage: construction, the error-text convention and the header reader.
#include "package/package.h"

#include <string>

#include "package/temp_paths.h"

namespace tk {

namespace {

// The header must lie within the first bytes of the stream; only those are decoded.
constexpr uint64_t kHeaderDecodeLimit = 100000;

}  // namespace

TkPackage::TkPackage() = default;

TkPackage::~TkPackage() = default;

bool TkPackage::Fail(std::string message) {
  error_ = std::move(message);
  return false;
}

// HEADER sections count only while no other section has come: the first other section
// ends the reading, successfully.
bool TkPackage::ReadPackageHeader(const char* packagePath, std::vector<std::string>& lines) {
  error_.clear();
  lines.clear();
  if (packagePath == nullptr) return Fail("No package file");
  DecodedPackage decoded(SiblingTempPath(packagePath));
  switch (decoded.Open(packagePath, kHeaderDecodeLimit)) {
    case DecodedPackage::Result::kDecodeFailed:
      return Fail("Cannot decompress package file");
    case DecodedPackage::Result::kOpenFailed:
      return Fail("Cannot open temporary package file " + decoded.tempPath());
    case DecodedPackage::Result::kOk:
      break;
  }
  PackageRecordReader reader(decoded.stream());
  if (!reader.ReadMagic()) return Fail("Bad package file " + std::string(packagePath));
  PackageRecord record;
  while (reader.Next(record) == PackageRecordReader::Status::kRecord &&
         record.section == kHeaderSection) {
    for (std::string& line : record.lines) {
      if (line.find('=') != std::string::npos) lines.push_back(std::move(line));
    }
  }
  return true;
}

}  // namespace tk
