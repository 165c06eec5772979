// Feeds any bytes to the three minisign file parsers of tkpack (public key, secret key,
// signature). What must hold: no parser crashes or reads out of bounds, and whatever
// parses writes back to text that parses to the same values and writes back to the
// same text; a parsed comment holds no NUL, CR or LF. A parsed secret key without
// password is also opened (no scrypt is run, so any input stays quick).
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>

#include "fuzz/fuzz_support.h"
#include "tkpack/minisign.h"

namespace {

using tk::fuzz::Expect;
namespace minisign = tk::minisign;

bool OneLine(const std::string& comment) {
  return comment.find_first_of(std::string_view("\0\r\n", 3)) == std::string::npos;
}

void CheckPublicKey(std::string_view text) {
  minisign::PublicKey key, again;
  std::string error;
  if (!minisign::ParsePublicKey(text, key, error)) return;
  const std::string written = minisign::FormatPublicKey(key);
  Expect(OneLine(key.comment), "a public key comment is not one line: ", key.comment);
  Expect(minisign::ParsePublicKey(written, again, error),
         "a written public key does not parse: ", error + "\n" + written);
  Expect(
      std::tie(key.comment, key.keyId, key.key) == std::tie(again.comment, again.keyId, again.key),
      "a public key changed on its way back: ", written);
  Expect(minisign::FormatPublicKey(again) == written, "a public key is written twice differently");
}

void CheckSecretKey(std::string_view text) {
  minisign::SecretKeyFile file, again;
  std::string error;
  if (!minisign::ParseSecretKeyFile(text, file, error)) return;
  const tk::SecretBytes written = minisign::FormatSecretKeyFile(file);
  Expect(OneLine(file.comment), "a secret key comment is not one line: ", file.comment);
  Expect(minisign::ParseSecretKeyFile(written.view(), again, error),
         "a written secret key does not parse: ", error);
  Expect(std::tie(file.comment, file.encrypted, file.salt, file.opsLimit, file.memLimit) ==
                 std::tie(again.comment, again.encrypted, again.salt, again.opsLimit,
                          again.memLimit) &&
             file.keynum.view() == again.keynum.view(),
         "a secret key changed on its way back: ", std::string(written.view()));
  Expect(minisign::FormatSecretKeyFile(again).view() == written.view(),
         "a secret key is written twice differently");
  if (!file.encrypted) {
    minisign::SecretKey key;
    minisign::OpenSecretKey(file, "", key, error);
  }
}

void CheckSignature(std::string_view text) {
  minisign::Signature signature, again;
  std::string error;
  if (!minisign::ParseSignature(text, signature, error)) return;
  const std::string written = minisign::FormatSignature(signature);
  Expect(OneLine(signature.comment) && OneLine(signature.trustedComment),
         "a signature comment is not one line: ", written);
  Expect(minisign::ParseSignature(written, again, error),
         "a written signature does not parse: ", error + "\n" + written);
  Expect(std::tie(signature.comment, signature.prehashed, signature.keyId, signature.signature,
                  signature.trustedComment, signature.globalSignature) ==
             std::tie(again.comment, again.prehashed, again.keyId, again.signature,
                      again.trustedComment, again.globalSignature),
         "a signature changed on its way back: ", written);
  Expect(minisign::FormatSignature(again) == written, "a signature is written twice differently");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CheckPublicKey(text);
  CheckSecretKey(text);
  CheckSignature(text);
  return 0;
}
