#include "package/decoded_package.h"

#include <memory>

#include "lzhuf/lzhuf.h"

namespace tk {

DecodedPackage::Result DecodedPackage::Open(const char* packagePath, uint64_t limit) {
  auto codec = std::make_unique<LzhufCodec>();
  codecResult_ = LzhufDecodeFile(*codec, packagePath, tempPath().c_str(), limit);
  if (codecResult_ != kLzhufOk) return Result::kDecodeFailed;
  stream_.reset(OpenFile(tempPath().c_str(), "r"));
  return stream_ != nullptr ? Result::kOk : Result::kOpenFailed;
}

}  // namespace tk
