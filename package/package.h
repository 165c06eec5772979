// TkPackage, the package object: installs package files into a directory tree, reads
// their header, and builds them from a description file. A package file is the record
// stream of record_reader.h / record_writer.h compressed as a whole by the LZHUF codec.
//
// Error-text convention: operations that can fail return true on success and false on
// failure; on failure the error text is replaced by one message, a fixed literal often
// followed by a path ("Bad package file " + path). Nothing is printed on failure; only
// InstallPackage prints its progress lines, and only when asked to.
//
// Not thread-safe: one object per thread. The object holds nothing between calls but its
// error text, so it can install several packages in a row.
#ifndef TAVIK_PACKAGE_PACKAGE_H_
#define TAVIK_PACKAGE_PACKAGE_H_

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "package/decoded_package.h"
#include "package/install_tree.h"
#include "package/record_reader.h"
#include "package/record_writer.h"

namespace tk {

// What a build may do beyond its description. The default options build exactly the
// bytes of BuildPackage(description, base, package).
struct BuildOptions {
  // Lines written right after the version line, each with its LF, before anything of
  // the description (a HEADER section of the tool's own, say).
  std::vector<std::string> leadingLines;
  // Called with the path of the complete plain record stream just before it is
  // compressed, to check or patch it in place. A non-empty result fails the build with
  // that text as the error.
  std::function<std::string(const std::string& streamPath)> beforeCompression;
  // Directory captures list files and subdirectories in byte order of their names
  // instead of the order the file system returns them, so that the record stream
  // depends only on the tree's names and contents.
  bool sortNames = false;
  // Threads that compress the record stream (LzhufEncodeOptions::threads): 1 is the
  // single-threaded encoder; any number gives the same bytes.
  int threads = 1;
};

class TkPackage {
 public:
  TkPackage();
  virtual ~TkPackage();
  TkPackage(const TkPackage&) = delete;
  TkPackage& operator=(const TkPackage&) = delete;

  // ---- Installation (package/package_install.cpp) -------------------------------

  // Decompresses `packagePath` into InstallTempPath (creating the destination and
  // its missing parents first) and applies every record in file order. With `verbose`
  // not 0, prints progress lines to standard output. True when every record was applied;
  // false at the first failure, with what was applied so far left on disk and the
  // temporary file deleted in every case.
  bool InstallPackage(const char* packagePath, const char* destination, int verbose);

  // InstallPackage for a package already decompressed into `stream` (open for reading,
  // at its start) that goes through `tree`: creates the destination, prints the same
  // progress lines and applies the records with the same results and error texts.
  // `packagePath` only names the package in messages.
  bool InstallStream(FILE* stream, const char* packagePath, const char* destination, int verbose,
                     InstallTree& tree);

  // ---- Text conversion (package/package_text_file.cpp) --------------------------

  // Rewrites the file at `path` so that every line ends with a single LF (CR LF becomes
  // LF, a last line gains its LF), through SiblingTempPath(path). Leaves the error text
  // alone on success.
  bool SetTextFile(const char* path);

  // ---- Header (package/package.cpp) ----------------------------------------------

  // Clears `lines`, then fills it with the "="-holding lines of the HEADER sections that
  // stand before any other section, decoding only the first 100000 bytes of the stream.
  // True when the package could be decoded and its magic line is right.
  bool ReadPackageHeader(const char* packagePath, std::vector<std::string>& lines);

  // ---- Building (package/package_build.cpp) --------------------------------------

  // Reads the description file and writes the package to `packagePath` (through
  // SiblingTempPath(packagePath), compressed at the end). Source paths resolve against
  // `baseDirectory` (null: the working directory). With `packagePath` null, only checks
  // the description: nothing is written. True when the package (or check) is complete.
  bool BuildPackage(const char* descriptionPath, const char* baseDirectory,
                    const char* packagePath);

  // BuildPackage with `options` (see BuildOptions); `packagePath` must not be null.
  bool BuildPackage(const char* descriptionPath, const char* baseDirectory, const char* packagePath,
                    const BuildOptions& options);

  // BuildPackage without a package path. False with an empty error text when
  // `descriptionPath` is null.
  bool CheckDescription(const char* descriptionPath, const char* baseDirectory);

  // ---- Capture (package/package_capture.cpp) ------------------------------------

  // Writes records to `out`: the [File] record of `sourcePath` named `targetName` when not
  // `isDirectory`; else an [RmDir] record (`isRemoveDir`) or a [TextDir] record
  // (`isTextDir`) for the directory `sourcePath`; else the capture of the directory tree
  // `sourcePath` (subdirectories only `withSubdirectories`) whose installation-relative
  // path is `relativePath`, skipping names matched by the exclusion lists (null: none).
  // `perlEncode` hands ".pl" scripts that are not yet encoded to EncodePerlFile.
  bool AddPackageEntry(const std::string& targetName, const std::string& sourcePath, FILE* out,
                       bool isDirectory, bool withSubdirectories, bool isRemoveDir, bool isTextDir,
                       const std::string& relativePath,
                       const std::vector<std::string>* excludeFiles,
                       const std::vector<std::string>* excludeDirs, bool perlEncode);

  // The hook through which a script would be stored perl-encoded. This build encodes
  // nothing: it writes nothing and returns true.
  bool EncodePerlFile(FILE* source, FILE* out, const std::string& targetName);

  // The message of the last failure ("" after a successful InstallPackage,
  // ReadPackageHeader or BuildPackage).
  const std::string& ErrorText() const { return error_; }

 private:
  bool Fail(std::string message);
  bool ApplyStream(FILE* stream, const char* packagePath, const std::string& destination,
                   bool verbose, InstallTree& tree);
  bool Build(const char* descriptionPath, const char* baseDirectory, const char* packagePath,
             const BuildOptions& options);
  bool CaptureFile(const std::string& targetName, const std::string& sourcePath,
                   PackageRecordWriter& writer, bool perlEncode);
  bool CaptureDirectory(const std::string& sourcePath, PackageRecordWriter& writer,
                        bool withSubdirectories, const std::string& relativePath,
                        const std::vector<std::string>* excludeFiles,
                        const std::vector<std::string>* excludeDirs, bool perlEncode);
  bool CaptureSubdirectories(const std::string& sourcePath, PackageRecordWriter& writer,
                             const std::string& relativePath,
                             const std::vector<std::string>* excludeFiles,
                             const std::vector<std::string>* excludeDirs, bool perlEncode);

  std::string error_;
  bool sortCaptures_ = false;  // BuildOptions::sortNames of the build under way
};

}  // namespace tk

#endif  // TAVIK_PACKAGE_PACKAGE_H_
