#include "package/record_reader.h"

#include <stdio_ext.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "support/files.h"
#include "support/strings.h"

namespace tk {

namespace {

struct SectionKind {
  const char* section;
  RecordKind kind;
  const char* display;
};

constexpr SectionKind kSectionKinds[] = {
    {"DIR", RecordKind::kDir, "Dir"},
    {"FILE", RecordKind::kFile, "File"},
    {"RMDIR", RecordKind::kRmDir, "RmDir"},
    {"REMOVEFILE", RecordKind::kRemoveFile, "RemoveFile"},
    {"EXEC", RecordKind::kExec, "Exec"},
    {"TEXTFILE", RecordKind::kTextFile, "TextFile"},
    {"TEXTDIR", RecordKind::kTextDir, "TextDir"},
};

// The text a problem report uses for a key: "Name = " -> "\"Name = \" line".
std::string KeyLineText(const char* key) { return std::string("\"") + key + "\" line"; }

}  // namespace

const char* RecordKindName(RecordKind kind) {
  for (const SectionKind& entry : kSectionKinds) {
    if (entry.kind == kind) return entry.display;
  }
  return "Other";
}

bool ParseSectionLine(const std::string& line, std::string& section) {
  if (line.empty() || line[0] != '[') return false;
  const std::size_t close = line.find(']');
  if (close == std::string::npos) return false;
  section = line.substr(1, close - 1);
  NormalizeWhitespace(section);
  StrToUpper(section);
  return true;
}

RecordKind KindOfSection(const std::string& section) {
  for (const SectionKind& entry : kSectionKinds) {
    if (section == entry.section) return entry.kind;
  }
  return RecordKind::kOther;
}

bool NameEscapesInstallation(const std::string& name) {
  std::string path = name;
  BackslashesToSlashes(path);
  if (!path.empty() && path[0] == '/') return true;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    if (path.compare(start, end - start, "..") == 0) return true;
    start = end + 1;
  }
  return false;
}

PackageRecordReader::PackageRecordReader(FILE* stream)
    : stream_(stream), streamSize_(tk::StreamSize(stream)), buffer_(kRecordLineBufferSize) {}

bool PackageRecordReader::ReadLine(std::string& line, int64_t* offset) {
  if (hasPending_) {
    hasPending_ = false;
    line.swap(pending_);
    if (offset != nullptr) *offset = pendingOffset_;
    return true;
  }
  if (offset != nullptr) *offset = TellFile(stream_);
  if (ReadTextLine(buffer_.data(), kRecordLineBufferSize, stream_) == 0) return false;
  line.assign(buffer_.data());
  return true;
}

void PackageRecordReader::PushBack(std::string line, int64_t offset) {
  pending_ = std::move(line);
  pendingOffset_ = offset;
  hasPending_ = true;
}

bool PackageRecordReader::ReadMagic() {
  std::string line;
  if (!ReadLine(line, nullptr)) return false;
  NormalizeWhitespace(line);
  if (line != kPackageMagic) return false;
  return ReadLine(line, nullptr);
}

PackageRecordReader::Status PackageRecordReader::Next(PackageRecord& record) {
  std::string line;
  std::string section;
  int64_t offset = 0;
  do {
    if (!ReadLine(line, &offset)) return Status::kEnd;
    NormalizeWhitespace(line);
  } while (!ParseSectionLine(line, section));
  StartRecord(record, std::move(section), offset);
  if (record.kind == RecordKind::kOther) {
    ReadOtherLines(record);
    return Status::kRecord;
  }
  if (!ReadKeys(record)) return Status::kMalformed;
  if (record.kind == RecordKind::kDir) {
    directory_ = record.name;
    afterDir_ = true;
  }
  return Status::kRecord;
}

void PackageRecordReader::StartRecord(PackageRecord& record, std::string section, int64_t offset) {
  record = PackageRecord();
  record.kind = KindOfSection(section);
  record.section = std::move(section);
  record.offset = offset;
  record.index = ++count_;
  record.directory = directory_;
  record.afterDir = afterDir_;
}

// The value after `key` in the line right after the previous one. A missing line or key
// is a malformed record; a section line found instead is kept for the next record.
bool PackageRecordReader::ReadKey(const char* key, std::string& value, PackageRecord& record) {
  std::string line;
  int64_t offset = 0;
  if (!ReadLine(line, &offset)) {
    record.problem = "stream ends before the " + KeyLineText(key);
    return false;
  }
  const std::size_t at = line.find(key);
  if (at == std::string::npos) {
    record.problem = "missing " + KeyLineText(key);
    std::string normalized = line;
    std::string section;
    NormalizeWhitespace(normalized);
    if (ParseSectionLine(normalized, section)) PushBack(std::move(line), offset);
    return false;
  }
  value = line.substr(at + std::strlen(key));
  NormalizeWhitespace(value);
  return true;
}

bool PackageRecordReader::ReadKeys(PackageRecord& record) {
  switch (record.kind) {
    case RecordKind::kFile:
      return ReadFileKeys(record);
    case RecordKind::kRmDir:
      return ReadRmDirKeys(record);
    case RecordKind::kDir:
    case RecordKind::kTextDir:
      if (!ReadKey(kNameKey, record.name, record)) return false;
      BackslashesToSlashes(record.name);
      return true;
    default:
      return ReadKey(kNameKey, record.name, record);
  }
}

// Name and Size, then the stream is moved past the content, which is not looked at.
bool PackageRecordReader::ReadFileKeys(PackageRecord& record) {
  std::string size;
  if (!ReadKey(kNameKey, record.name, record) || !ReadKey(kSizeKey, size, record)) {
    return false;
  }
  record.size = std::strtoul(size.c_str(), nullptr, 10);
  record.contentOffset = TellFile(stream_);
  // A size beyond the largest offset would wrap into a seek backwards, which could bring
  // the same record round again and again: it counts as a seek that failed.
  const auto room = static_cast<uint64_t>(INT64_MAX - record.contentOffset);
  if (record.size > room || !SkipContent(record)) {
    record.problem = "cannot seek past the content";
    return false;
  }
  const int64_t remaining =
      streamSize_ > record.contentOffset ? streamSize_ - record.contentOffset : 0;
  record.available = static_cast<uint64_t>(remaining) < record.size
                         ? remaining
                         : static_cast<int64_t>(record.size);
  return true;
}

// Content that fits the stream's buffer is read on and dropped: a seek costs a system
// call even within the buffer, while reading on costs at most the refill that the next
// line needs anyway. Longer content is sought past, and so is the end of a content cut
// short by the end of the stream, so that the stream always stands right after it.
bool PackageRecordReader::SkipContent(const PackageRecord& record) {
  if (record.size <= __fbufsize(stream_)) {
    uint64_t left = record.size;
    while (left > 0) {
      const size_t chunk = static_cast<size_t>(std::min<uint64_t>(left, buffer_.size()));
      const size_t got = std::fread(buffer_.data(), 1, chunk, stream_);
      left -= got;
      if (got < chunk) break;
    }
    if (left == 0) return true;
  }
  const int64_t end = record.contentOffset + static_cast<int64_t>(record.size);
  return SeekFile(stream_, end, SEEK_SET) == 0;
}

bool PackageRecordReader::ReadRmDirKeys(PackageRecord& record) {
  std::string withSubdirs;
  if (!ReadKey(kNameKey, record.name, record) || !ReadKey(kWithSubdirKey, withSubdirs, record)) {
    return false;
  }
  BackslashesToSlashes(record.name);
  StrToUpper(withSubdirs);
  record.withSubdirs = withSubdirs == "YES";
  return true;
}

// Lines of a section the installer does not know, up to the next section line.
void PackageRecordReader::ReadOtherLines(PackageRecord& record) {
  std::string line;
  std::string section;
  int64_t offset = 0;
  while (ReadLine(line, &offset)) {
    std::string normalized = line;
    NormalizeWhitespace(normalized);
    if (ParseSectionLine(normalized, section)) {
      PushBack(std::move(line), offset);
      return;
    }
    if (!normalized.empty()) record.lines.push_back(std::move(normalized));
  }
}

}  // namespace tk
