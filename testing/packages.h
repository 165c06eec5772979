// Hand-made record streams and packages for tests, fuzz targets and benchmarks: the
// bytes a builder would write, compressed or decompressed with the LZHUF codec, so
// that a test can give the engine or the tools packages that no builder makes.
//
// Test code only. Thread-safe: every call uses a codec state of its own.
#ifndef TAVIK_TESTING_PACKAGES_H_
#define TAVIK_TESTING_PACKAGES_H_

#include <string>

namespace tk::test {

// The magic and version lines that open every record stream.
inline constexpr const char* kStreamStart = "TAVIK PACKAGE FILE\n1\n";

// The [File] record of `content` named `name`, as the builder writes it.
std::string FileRecord(const std::string& name, const std::string& content);

// "[Dir]\nName = NAME\n\n", as the builder writes it.
std::string DirRecord(const std::string& name);

// "[KIND]\nName = NAME\n\n\n": a [RemoveFile], [Exec] or [TextFile] record (KIND
// without its brackets), as the builder writes it.
std::string ActionRecord(const std::string& kind, const std::string& name);

// "[RmDir]\nName = NAME\nWithsubdir = YES\n\n" (or NO).
std::string RmDirRecord(const std::string& name, bool withSubdirs);

// "[TextDir]\nName = NAME\nName = NAME\n\n\n".
std::string TextDirRecord(const std::string& name);

// Compresses `records` (a plain record stream) into the package file `packagePath`.
// False when the codec fails.
bool WritePackage(const std::string& packagePath, const std::string& records);

// The plain record stream inside the package `packagePath` ("" when it cannot be
// decoded).
std::string ReadPackageStream(const std::string& packagePath);

}  // namespace tk::test

#endif  // TAVIK_TESTING_PACKAGES_H_
