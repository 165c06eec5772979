#include "tkpack/opened_package.h"

#include <cstdlib>
#include <vector>

#include "lzhuf/lzhuf.h"
#include "support/directories.h"

namespace tk {

namespace {

constexpr const char* kTempTemplate = "/tkpack.XXXXXX";
constexpr const char* kDefaultTempRoot = "/tmp";

const char* TempRoot() {
  const char* root = std::getenv("TMPDIR");
  return root != nullptr && *root != '\0' ? root : kDefaultTempRoot;
}

const char* CodecResultMeaning(int result) {
  switch (result) {
    case kLzhufOpenFailed:
      return "a file could not be opened";
    case kLzhufEmpty:
      return "nothing to code: empty input or a stated length of 0";
    case kLzhufNoHeader:
      return "fewer than 4 bytes: no length header";
    case kLzhufWriteFailed:
      return "a write failed";
    default:
      return "unknown failure";
  }
}

// Record streams of 2 GiB or more are outside the format, and one that cannot come from
// the package's bits would be decoded from zero bits without end.
constexpr uint64_t kLargestStream = (uint64_t{1} << 31) - 1;

}  // namespace

bool CheckStatedLength(const std::string& packagePath, std::string& error) {
  uint8_t header[kLzhufHeaderBytes];
  UniqueFile package(OpenFile(packagePath.c_str(), "rb"));
  if (package == nullptr || std::fread(header, 1, sizeof header, package.get()) != sizeof header) {
    return true;  // the decoder reports these cases itself
  }
  const uint64_t stated = LzhufStatedLength(header);
  const uint64_t largest =
      LzhufLargestDecodedSize(static_cast<uint64_t>(StreamSize(package.get())));
  if (stated <= kLargestStream && stated <= largest) return true;
  error = "Cannot decompress package file " + packagePath + " (its length header states " +
          std::to_string(stated) + " bytes, more than " +
          (stated > kLargestStream ? std::string("a package can hold")
                                   : "its " + std::to_string(largest) + "-byte bound") +
          ")";
  return false;
}

PrivateTempDirectory::PrivateTempDirectory() {
  std::string pattern = std::string(TempRoot()) + kTempTemplate;
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) != nullptr) path_ = name.data();
}

PrivateTempDirectory::~PrivateTempDirectory() {
  if (!path_.empty()) RemoveDirectory(path_.c_str(), true, nullptr, nullptr);
}

std::string CodecResultText(int result) {
  return "codec result " + std::to_string(result) + ": " + CodecResultMeaning(result);
}

bool OpenedPackage::Open(const std::string& packagePath, std::string& error) {
  if (directory_.path().empty()) {
    error = std::string("Cannot create a temporary directory in ") + TempRoot();
    return false;
  }
  if (!CheckStatedLength(packagePath, error)) return false;
  decoded_.emplace(decodedPath());
  switch (decoded_->Open(packagePath.c_str(), 0)) {
    case DecodedPackage::Result::kOk:
      return true;
    case DecodedPackage::Result::kDecodeFailed:
      error = "Cannot decompress package file " + packagePath + " (" +
              CodecResultText(decoded_->codecResult()) + ")";
      return false;
    case DecodedPackage::Result::kOpenFailed:
      break;
  }
  error = "Cannot open temporary package file " + decodedPath();
  return false;
}

}  // namespace tk
