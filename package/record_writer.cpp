#include "package/record_writer.h"

#include "package/record_reader.h"

namespace tk {

unsigned long RecordedFileSize(int64_t size) {
  return static_cast<unsigned long>(static_cast<long>(static_cast<int32_t>(size)));
}

bool PackageRecordWriter::Write(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), out_) == text.size();
}

bool PackageRecordWriter::WriteMagic() {
  return Write(std::string(kPackageMagic) + "\n" + kPackageVersion + "\n");
}

bool PackageRecordWriter::WriteLine(const std::string& line) { return Write(line + "\n"); }

bool PackageRecordWriter::WriteDir(const std::string& name) {
  return Write("[Dir]\n") && Write(kNameKey + name + "\n\n");
}

bool PackageRecordWriter::WriteFileHead() { return Write("[File]\n"); }

bool PackageRecordWriter::WriteFileKeys(const std::string& name, unsigned long size) {
  return Write(kNameKey + name + "\n" + kSizeKey + std::to_string(size) + "\n");
}

bool PackageRecordWriter::WriteFileEnd() { return Write("\n\n"); }

bool PackageRecordWriter::WriteRmDir(const std::string& name, bool withSubdirs) {
  return Write("[RmDir]\n") && Write(kNameKey + name + "\n") &&
         Write(std::string(kWithSubdirKey) + (withSubdirs ? "YES" : "NO") + "\n\n");
}

bool PackageRecordWriter::WriteAction(const char* sectionLine, const std::string& name) {
  return Write(sectionLine) && Write(kNameKey + name + "\n") && Write("\n\n");
}

bool PackageRecordWriter::WriteRemoveFile(const std::string& name) {
  return WriteAction("[RemoveFile]\n", name);
}

bool PackageRecordWriter::WriteExec(const std::string& name) {
  return WriteAction("[Exec]\n", name);
}

bool PackageRecordWriter::WriteTextFile(const std::string& name) {
  return WriteAction("[TextFile]\n", name);
}

bool PackageRecordWriter::WriteTextDir(const std::string& name) {
  const std::string nameLine = kNameKey + name + "\n";
  return Write("[TextDir]\n") && Write(nameLine) && Write(nameLine + "\n\n");
}

}  // namespace tk
