// TkPackage::BuildPackage: description file -> DescriptionBuilder -> plain record
// stream in SiblingTempPath(packagePath) -> LzhufEncodeFile -> package file.
#include <memory>
#include <string>

#include "lzhuf/lzhuf.h"
#include "package/description_builder.h"
#include "package/package.h"
#include "package/temp_paths.h"
#include "support/files.h"
#include "support/strings.h"

namespace tk {

namespace {

// Description lines come in pieces of at most kDescriptionLineSize - 2 characters.
constexpr int kDescriptionLineSize = 2048;

}  // namespace

bool TkPackage::CheckDescription(const char* descriptionPath, const char* baseDirectory) {
  error_.clear();
  if (descriptionPath == nullptr) return false;
  return BuildPackage(descriptionPath, baseDirectory, nullptr);
}

bool TkPackage::BuildPackage(const char* descriptionPath, const char* baseDirectory,
                             const char* packagePath) {
  return Build(descriptionPath, baseDirectory, packagePath, BuildOptions());
}

bool TkPackage::BuildPackage(const char* descriptionPath, const char* baseDirectory,
                             const char* packagePath, const BuildOptions& options) {
  if (packagePath == nullptr) {
    error_.clear();
    return Fail("No package file");
  }
  return Build(descriptionPath, baseDirectory, packagePath, options);
}

// The temporary stream is closed and deleted on every way out; nothing reaches the
// package path before compression.
bool TkPackage::Build(const char* descriptionPath, const char* baseDirectory,
                      const char* packagePath, const BuildOptions& options) {
  error_.clear();
  sortCaptures_ = options.sortNames;
  // Direct AddPackageEntry calls after the build capture in listing order again.
  struct SortReset {
    bool& sort;
    ~SortReset() { sort = false; }
  } reset{sortCaptures_};
  if (descriptionPath == nullptr) return Fail("No description file");
  std::string base = baseDirectory != nullptr ? baseDirectory : "";
  NormalizeWhitespace(base);
  AddTrailingSlash(base);
  UniqueFile description(OpenFile(descriptionPath, "r"));
  if (description == nullptr) {
    return Fail("Cannot open description file " + std::string(descriptionPath));
  }
  std::unique_ptr<TempFileGuard> temp;
  UniqueFile out;
  if (packagePath != nullptr) {
    const std::string tempPath = SiblingTempPath(packagePath);
    out.reset(OpenFile(tempPath.c_str(), "w"));
    if (out == nullptr) return Fail("Cannot open temporary package file " + tempPath);
    temp = std::make_unique<TempFileGuard>(tempPath);
    PackageRecordWriter writer(out.get());
    if (!writer.WriteMagic()) return Fail("Cannot write package file");
    for (const std::string& text : options.leadingLines) {
      if (!writer.WriteLine(text)) return Fail("Cannot write package file");
    }
  }

  DescriptionBuilder builder(*this, error_, base, out.get());
  char line[kDescriptionLineSize];
  while (ReadTextLine(line, kDescriptionLineSize, description.get()) != 0) {
    if (!builder.ProcessLine(line)) return false;
  }
  description.reset();
  // A failure of this last flush loses the temporary stream, so the compression that
  // follows has nothing to work on.
  const bool flushed = builder.FlushSection();
  if (packagePath == nullptr) return flushed;
  const bool closed = std::fclose(out.release()) == 0;
  if (!flushed) return Fail("Cannot compress package file");
  if (!closed) return Fail("Cannot write package file");
  if (options.beforeCompression) {
    std::string failure = options.beforeCompression(temp->path());
    if (!failure.empty()) return Fail(std::move(failure));
  }
  auto codec = std::make_unique<LzhufCodec>();
  LzhufEncodeOptions encoding;
  encoding.threads = options.threads;
  if (LzhufEncodeFile(*codec, temp->path().c_str(), packagePath, encoding) != kLzhufOk) {
    return Fail("Cannot compress package file");
  }
  return true;
}

}  // namespace tk
