// Installs the input as a package. The input is the plain record stream: the target
// compresses it with the project's own encoder (random compressed bytes would almost
// never decode into records), writes the package file and calls InstallPackage with a
// fresh destination, which is removed again after every input.
//
// The installer trusts the names in records: an [RmDir] named "../.." would empty
// directories far outside the destination. So before installing, the target walks the
// stream with the same reader and skips inputs with a name that is absolute or has a
// ".." component, and inputs with records before the first [Dir] (those resolve against
// the working directory of the process).
//
// What must hold: the result agrees with the error text ("" on success, otherwise one of
// the installer's messages, naming a path inside the destination); the temporary file
// destination/input.pkg.tk_temp is gone either way; nothing appears beside the
// destination.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "lzhuf/lzhuf.h"
#include "package/package.h"
#include "support/files.h"

namespace {

using tk::PackageRecord;
using tk::PackageRecordReader;
using tk::RecordKind;

// Kinds whose names are relative to the current directory of the latest [Dir].
bool IsRelativeToCurrentDirectory(RecordKind kind) {
  return kind == RecordKind::kFile || kind == RecordKind::kRemoveFile ||
         kind == RecordKind::kExec || kind == RecordKind::kTextFile;
}

// Walks the plain stream at `path` as the installer will and says whether every record
// it could apply stays inside the destination. The walk stops where the installation
// stops: at a malformed record, and where the reader moves backwards (a [File] size of
// 2^63 or more seeks back; the installer's copy of that record then fails or reads to
// the end of the stream, so nothing after it is applied).
bool StaysInsideDestination(const std::string& path) {
  tk::UniqueFile stream(std::fopen(path.c_str(), "r"));
  tk::fuzz::Expect(stream != nullptr, "cannot open ", path);
  PackageRecordReader reader(stream.get());
  if (!reader.ReadMagic()) return true;
  PackageRecord record;
  int64_t lastOffset = -1;
  for (;;) {
    const PackageRecordReader::Status status = reader.Next(record);
    if (status != PackageRecordReader::Status::kRecord || record.offset <= lastOffset) {
      return true;
    }
    lastOffset = record.offset;
    if (record.kind == RecordKind::kOther) continue;
    if (tk::NameEscapesInstallation(record.name)) return false;
    if (IsRelativeToCurrentDirectory(record.kind) && !record.afterDir) return false;
  }
}

// The installer's messages; those that name a path must name one inside `destination`.
void CheckErrorText(const std::string& error, const std::string& package,
                    const std::string& destination, bool emptyInput) {
  using tk::fuzz::Expect;
  if (emptyInput) {
    Expect(error == "Cannot decompress package file", "empty stream gave: ", error);
    return;
  }
  if (error == "Bad package file " + package) return;
  static const char* const kPathMessages[] = {
      "cannot create directory: ",         "cannot remove directory: ", "Cannot create file ",
      "Cannot change file access rigths ", "Cannot set text file ",     "cannot list directory: ",
  };
  for (const char* message : kPathMessages) {
    if (!error.starts_with(message)) continue;
    const std::string path = error.substr(std::string(message).size());
    Expect(path == destination || path.starts_with(destination + "/"),
           "error names a path outside the destination: ", error);
    return;
  }
  Expect(false, "unexpected error text: ", error);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using tk::fuzz::Expect;
  static tk::fuzz::ScratchDirectory scratch("install");
  static auto codec = std::make_unique<tk::LzhufCodec>();
  const std::string plain = scratch.Path("plain.stream");
  const std::string package = scratch.Path("input.pkg");
  const std::string destination = scratch.Path("dest");
  Expect(tk::fuzz::WriteWholeFile(plain, tk::fuzz::AsString(data, size)), "cannot write ", plain);
  if (!StaysInsideDestination(plain)) return -1;  // not worth keeping in the corpus

  std::vector<uint8_t> packed;
  tk::LzhufEncodeBuffer(*codec, std::span(data, size), packed);
  Expect(tk::fuzz::WriteWholeFile(package, std::string(packed.begin(), packed.end())),
         "cannot write ", package);
  tk::TkPackage installer;
  const bool installed = installer.InstallPackage(package.c_str(), destination.c_str(), 0);
  const std::string& error = installer.ErrorText();
  Expect(installed == error.empty(), "result and error text disagree: ", error);
  if (!installed) CheckErrorText(error, package, destination, size == 0);
  Expect(!std::filesystem::is_regular_file(destination + "/input.pkg.tk_temp"),
         "temporary file left behind after: ", error);
  for (const auto& entry : std::filesystem::directory_iterator(scratch.path())) {
    const std::string name = entry.path().filename();
    Expect(name == "plain.stream" || name == "input.pkg" || name == "dest",
           "something was made beside the destination: ", name);
  }
  tk::fuzz::RemoveTree(destination);
  return 0;
}
