// TkPackage::AddPackageEntry: the records of single files, directory removals, text
// directories and whole directory captures, written to the builder's open stream.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "package/name_pattern.h"
#include "package/package.h"
#include "support/copies.h"
#include "support/directories.h"
#include "support/files.h"
#include "support/strings.h"

namespace tk {

namespace {

// The first line of a script that is already perl-encoded; such a file is stored whole.
constexpr const char* kPerlEncodedMarker = "TAVIK PERL ENCODED FILE";

// Room for the marker line: at most kPerlLineBufferSize - 2 characters are read.
constexpr int kPerlLineBufferSize = 49;

constexpr const char* kPerlExtension = ".pl";

const std::string kWriteFailed = "Cannot write package file";

// The text from the path's last "." on, lower-cased, is ".pl" (a dot in a directory
// name counts too, as the whole path is searched).
bool HasPerlExtension(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) return false;
  std::string extension = path.substr(dot);
  StrToLower(extension);
  return extension == kPerlExtension;
}

// A ".pl" file whose first line is not the marker; the stream is rewound afterwards.
bool IsPerlCandidate(FILE* source, const std::string& path) {
  if (!HasPerlExtension(path)) return false;
  char line[kPerlLineBufferSize] = "";
  if (ReadTextLine(line, kPerlLineBufferSize, source) == 0) line[0] = '\0';
  SeekFile(source, 0, SEEK_SET);
  return std::strcmp(line, kPerlEncodedMarker) != 0;
}

// The "Size = " value of the file behind `source`, which is rewound.
unsigned long RecordedSize(FILE* source) {
  SeekFile(source, 0, SEEK_END);
  const int64_t size = TellFile(source);
  SeekFile(source, 0, SEEK_SET);
  return RecordedFileSize(size);
}

}  // namespace

bool TkPackage::EncodePerlFile(FILE* /*source*/, FILE* /*out*/, const std::string& /*targetName*/) {
  return true;
}

bool TkPackage::AddPackageEntry(const std::string& targetName, const std::string& sourcePath,
                                FILE* out, bool isDirectory, bool withSubdirectories,
                                bool isRemoveDir, bool isTextDir, const std::string& relativePath,
                                const std::vector<std::string>* excludeFiles,
                                const std::vector<std::string>* excludeDirs, bool perlEncode) {
  PackageRecordWriter writer(out);
  if (!isDirectory) return CaptureFile(targetName, sourcePath, writer, perlEncode);
  if (isRemoveDir) {
    return writer.WriteRmDir(sourcePath, withSubdirectories) || Fail(kWriteFailed);
  }
  if (isTextDir) return writer.WriteTextDir(sourcePath) || Fail(kWriteFailed);
  return CaptureDirectory(sourcePath, writer, withSubdirectories, relativePath, excludeFiles,
                          excludeDirs, perlEncode);
}

// One [File] record. A perl candidate goes through EncodePerlFile instead of the name,
// size and content, which in this build leaves "[File]\n\n\n".
bool TkPackage::CaptureFile(const std::string& targetName, const std::string& sourcePath,
                            PackageRecordWriter& writer, bool perlEncode) {
  UniqueFile source(OpenFile(sourcePath.c_str(), "r"));
  if (source == nullptr) return Fail("Cannot read file: " + sourcePath);
  const unsigned long size = RecordedSize(source.get());
  if (!writer.WriteFileHead()) return Fail(kWriteFailed);
  if (perlEncode && IsPerlCandidate(source.get(), sourcePath)) {
    if (!EncodePerlFile(source.get(), writer.stream(), targetName)) {
      return Fail("Cannot add perl file: " + sourcePath);
    }
  } else {
    if (!writer.WriteFileKeys(targetName, size)) return Fail(kWriteFailed);
    if (CopyStreamRange(source.get(), writer.stream(), 0, -1) == 0) {
      return Fail("Cannot read file: " + sourcePath);
    }
  }
  source.reset();
  return writer.WriteFileEnd() || Fail(kWriteFailed);
}

// The files of the directory first, in listing order, then (with subdirectories) each
// subdirectory's [Dir] record and its capture, depth first. The directory's own [Dir]
// record is the caller's.
bool TkPackage::CaptureDirectory(const std::string& sourcePath, PackageRecordWriter& writer,
                                 bool withSubdirectories, const std::string& relativePath,
                                 const std::vector<std::string>* excludeFiles,
                                 const std::vector<std::string>* excludeDirs, bool perlEncode) {
  std::vector<std::string> files;
  ListFiles(sourcePath.c_str(), nullptr, files);
  if (sortCaptures_) std::sort(files.begin(), files.end());
  std::string prefix = sourcePath;
  AddTrailingSlash(prefix);
  for (const std::string& name : files) {
    if (MatchesAnyPattern(excludeFiles, name)) continue;
    if (!CaptureFile(name, prefix + name, writer, perlEncode)) return false;
  }
  if (!withSubdirectories) return true;
  return CaptureSubdirectories(sourcePath, writer, relativePath, excludeFiles, excludeDirs,
                               perlEncode);
}

bool TkPackage::CaptureSubdirectories(const std::string& sourcePath, PackageRecordWriter& writer,
                                      const std::string& relativePath,
                                      const std::vector<std::string>* excludeFiles,
                                      const std::vector<std::string>* excludeDirs,
                                      bool perlEncode) {
  std::vector<std::string> directories;
  ListDirectories(sourcePath.c_str(), nullptr, directories);
  if (sortCaptures_) std::sort(directories.begin(), directories.end());
  for (const std::string& name : directories) {
    if (MatchesAnyPattern(excludeDirs, name)) continue;
    std::string source = sourcePath;
    AddTrailingSlash(source);
    source += name;
    AddTrailingSlash(source);
    std::string relative = relativePath;
    AddTrailingSlash(relative);
    relative += name;
    if (!writer.WriteDir(relative)) return Fail(kWriteFailed);
    if (!CaptureDirectory(source, writer, true, relative, excludeFiles, excludeDirs, perlEncode)) {
      return false;
    }
  }
  return true;
}

}  // namespace tk
