#include "testing/packages.h"

#include <cstdint>
#include <memory>
#include <vector>

#include "lzhuf/lzhuf.h"
#include "testing/temp_dir.h"

namespace tk::test {

std::string FileRecord(const std::string& name, const std::string& content) {
  return "[File]\nName = " + name + "\nSize = " + std::to_string(content.size()) + "\n" + content +
         "\n\n";
}

std::string DirRecord(const std::string& name) { return "[Dir]\nName = " + name + "\n\n"; }

std::string ActionRecord(const std::string& kind, const std::string& name) {
  return "[" + kind + "]\nName = " + name + "\n\n\n";
}

std::string RmDirRecord(const std::string& name, bool withSubdirs) {
  return "[RmDir]\nName = " + name + "\nWithsubdir = " + (withSubdirs ? "YES" : "NO") + "\n\n";
}

std::string TextDirRecord(const std::string& name) {
  const std::string line = "Name = " + name + "\n";
  return "[TextDir]\n" + line + line + "\n\n";
}

bool WritePackage(const std::string& packagePath, const std::string& records) {
  auto codec = std::make_unique<LzhufCodec>();
  std::vector<uint8_t> packed;
  const auto* bytes = reinterpret_cast<const uint8_t*>(records.data());
  // An empty stream still gets its header, 00 00 00 00: a package the decoder refuses.
  const int result = LzhufEncodeBuffer(*codec, {bytes, records.size()}, packed);
  if (result != kLzhufOk && result != kLzhufEmpty) return false;
  return WriteWholeFile(packagePath, {reinterpret_cast<const char*>(packed.data()), packed.size()});
}

std::string ReadPackageStream(const std::string& packagePath) {
  auto codec = std::make_unique<LzhufCodec>();
  TempDir scratch("stream");
  const std::string plain = scratch.Path("plain");
  if (LzhufDecodeFile(*codec, packagePath.c_str(), plain.c_str(), 0) != kLzhufOk) return "";
  return ReadWholeFile(plain);
}

}  // namespace tk::test
