// Reader of the decompressed record stream of a package: checks the magic and version
// lines, then hands out one record at a time (section line plus key lines), moving past
// file contents without looking at them: a content that fits the stream's buffer is read
// on and dropped, a longer one sought past. It only reads: installation applies the
// records it hands out, and listing or verifying tools walk the same records without
// writing.
//
// Lines are read with ReadTextLine into a kRecordLineBufferSize buffer, so a line of more
// than 2046 characters arrives as several lines. Every line looked at goes through
// NormalizeWhitespace (tabs to blanks, CR and LF removed, blanks trimmed, inner runs
// collapsed). A section line is a normalised line that begins with "[" and contains "]";
// its name is the text up to the first "]", normalised and upper-cased. Key lines must
// follow the section line directly ("Name = ", then "Size = " for files or "Withsubdir = "
// for directory removals); the key text may stand anywhere in its line.
//
// Not thread-safe: one reader per stream, used from one thread.
#ifndef TAVIK_PACKAGE_RECORD_READER_H_
#define TAVIK_PACKAGE_RECORD_READER_H_

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tk {

// The magic line that opens every record stream, and the version the builder writes.
inline constexpr const char* kPackageMagic = "TAVIK PACKAGE FILE";
inline constexpr const char* kPackageVersion = "1";

// The reader's line buffer: lines come in pieces of at most kRecordLineBufferSize - 2
// characters.
inline constexpr int kRecordLineBufferSize = 2048;

// The section of the header lines that ReadPackageHeader hands out.
inline constexpr const char* kHeaderSection = "HEADER";

// Key texts, case-sensitive, blanks included.
inline constexpr const char* kNameKey = "Name = ";
inline constexpr const char* kSizeKey = "Size = ";
inline constexpr const char* kWithSubdirKey = "Withsubdir = ";

// What a record asks for. kOther is any section the installer does not know (HEADER
// included); its lines are handed out as they are, and installation skips it.
enum class RecordKind { kDir, kFile, kRmDir, kRemoveFile, kExec, kTextFile, kTextDir, kOther };

// Short display name of a kind, the section as the builder writes it: "Dir", "File", ...
// ("Other" for kOther).
const char* RecordKindName(RecordKind kind);

// One record as found in the stream.
struct PackageRecord {
  RecordKind kind = RecordKind::kOther;
  std::string section;  // upper-cased section name: "DIR", "FILE", "HEADER", ...
  std::string name;     // normalised "Name = " value; "\" already "/" for Dir, RmDir, TextDir
  int64_t offset = 0;   // byte offset of the section line in the stream
  int index = 0;        // 1-based ordinal of the record in the stream

  // [File] only: the "Size = " value (base-10, stops at the first non-digit) and where the
  // content starts; `available` is how many content bytes the stream really holds.
  uint64_t size = 0;
  int64_t contentOffset = 0;
  int64_t available = 0;

  bool withSubdirs = false;  // [RmDir] only: "Withsubdir = " value was "YES" (any case)

  // The name of the latest [Dir] record before this one ("" = installation directory),
  // and whether there was one at all: names of File, RemoveFile, Exec and TextFile records
  // are relative to that directory.
  std::string directory;
  bool afterDir = false;

  // kOther only: the section's normalised non-blank lines, up to the next section line.
  std::vector<std::string> lines;

  // Set when Next() reports kMalformed: what was wrong, in a few words.
  std::string problem;

  // True when a [File] record announces more bytes than the stream still holds.
  bool ContentCutShort() const { return static_cast<uint64_t>(available) < size; }
};

class PackageRecordReader {
 public:
  enum class Status { kRecord, kEnd, kMalformed };

  // Reads from `stream`, opened for reading at its start; the stream is not owned.
  explicit PackageRecordReader(FILE* stream);
  PackageRecordReader(const PackageRecordReader&) = delete;
  PackageRecordReader& operator=(const PackageRecordReader&) = delete;

  // Reads the magic line and the version line. False when either is missing or the magic
  // line differs from kPackageMagic after normalisation (the version is not examined).
  bool ReadMagic();

  // Reads up to and including the next record. kRecord: `record` holds it and, for a
  // [File], the stream stands after its content. kEnd: no more section lines. kMalformed:
  // a key line is missing or a content seek failed; `record.problem` says which. Reading
  // may go on after kMalformed (a section line read in place of a key line is kept for
  // the next call), so a verifier can report every problem.
  Status Next(PackageRecord& record);

  // Byte size of the whole stream, taken when the reader was made.
  int64_t StreamSize() const { return streamSize_; }

 private:
  bool ReadLine(std::string& line, int64_t* offset);
  void PushBack(std::string line, int64_t offset);
  bool ReadKey(const char* key, std::string& value, PackageRecord& record);
  bool ReadKeys(PackageRecord& record);
  bool ReadFileKeys(PackageRecord& record);
  bool SkipContent(const PackageRecord& record);
  bool ReadRmDirKeys(PackageRecord& record);
  void ReadOtherLines(PackageRecord& record);
  void StartRecord(PackageRecord& record, std::string section, int64_t offset);

  FILE* stream_;
  int64_t streamSize_;
  int count_ = 0;
  std::string directory_;
  bool afterDir_ = false;
  bool hasPending_ = false;
  std::string pending_;
  int64_t pendingOffset_ = 0;
  std::vector<char> buffer_;
};

// True when the normalised `line` is a section line; `section` then receives the
// normalised, upper-cased name (empty for "[]").
bool ParseSectionLine(const std::string& line, std::string& section);

// The record kind that an upper-cased section name stands for.
RecordKind KindOfSection(const std::string& section);

// True when a record's name would reach outside the installation directory: an absolute
// path or a ".." component (after "\" -> "/"). The installer does not check this; a
// verifying tool does.
bool NameEscapesInstallation(const std::string& name);

}  // namespace tk

#endif  // TAVIK_PACKAGE_RECORD_READER_H_
