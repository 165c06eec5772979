// The package engine when the machine misbehaves: writes that fail (a full device, or a
// file-size limit, which is how a full disk looks to the process), a descriptor table
// that is full for a while, and directories the process may not write. Each case checks
// the exact error text and that no temporary file is left, only what the design keeps:
// the destination directory, the results of records applied before the failure, a
// partly written file, and a partial package file after a failed compression.
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "package/package_test_fixture.h"
#include "support/fault_injection_fixture.h"

namespace tk {
namespace {

using Tree = std::map<std::string, std::string>;

class PackageFaultTest : public PackageTest {
 protected:
  // `size` random bytes: content that no codec shrinks.
  static std::string RandomBytes(size_t size) {
    std::mt19937 random(static_cast<unsigned>(size));
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    return bytes;
  }

  static std::string FileRecord(const std::string& name, const std::string& content) {
    return "[File]\nName = " + name + "\nSize = " + std::to_string(content.size()) + "\n" +
           content + "\n\n";
  }

  // Builds root/out.pkg from `description` over root/base in a child whose files may not
  // grow past `limit` bytes; returns the error text ("built" on success).
  std::string BuildWithFileLimit(const std::string& description, rlim_t limit) {
    WriteFile("desc.txt", description);
    const auto report = fault::RunInChild([&] {
      if (!fault::LimitFileSize(limit)) return std::string("no limit");
      const bool built = package_.BuildPackage(Path("desc.txt").c_str(), Path("base").c_str(),
                                               Path("out.pkg").c_str());
      return built ? std::string("built") : package_.ErrorText();
    });
    return report.value_or("child failed");
  }

  // Installs `package` into `destination` in a child that has dropped its privileges;
  // returns the error text ("installed" on success).
  std::string InstallUnprivileged(const std::string& package, const std::string& destination) {
    const auto report = fault::RunInChild([&] {
      if (!fault::DropPrivileges()) return std::string("still privileged");
      const bool installed = package_.InstallPackage(package.c_str(), destination.c_str(), 0);
      return installed ? std::string("installed") : package_.ErrorText();
    });
    return report.value_or("child failed");
  }
};

// A short write of the temporary record stream ends the build with "Cannot write package
// file", whether it shows at a record or only when the stream is closed; a failed copy
// of a file's content is "Cannot read file: "; a failure in the flush of the last
// section leaves nothing to compress. No temporary file and no package stay.
TEST_F(PackageFaultTest, BuildWithFailingWritesRemovesTheTemporaryFile) {
  WriteFile("base/Bin/small", "x");
  WriteFile("base/Bin/big", RandomBytes(100000));
  std::string manyRecords = "[Bin]\n";
  for (int i = 0; i < 500; ++i) manyRecords += "exec: command_" + std::to_string(i) + "\n";
  const struct {
    std::string description;
    rlim_t limit;
    std::string error;
  } cases[] = {
      {"[Bin]\nsmall\n", 0, "Cannot write package file"},
      {manyRecords + "[Next]\n", 4096, "Cannot write package file"},
      {"[Bin]\nbig\n[Next]\n", 4096, "Cannot read file: " + Path("base") + "/Bin/big"},
      {manyRecords, 4096, "Cannot compress package file"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(BuildWithFileLimit(c.description, c.limit), c.error) << c.limit;
    EXPECT_FALSE(std::filesystem::exists(Path("out.pkg")));
    EXPECT_EQ(TempFilesLeft(), 0);
  }
}

// The codec's 145 on the package file becomes "Cannot compress package file"; the
// temporary stream goes, the package path keeps whatever the codec wrote (here, the
// link to the full device).
TEST_F(PackageFaultTest, CompressionThatCannotWriteRemovesTheTemporaryFile) {
  WriteFile("base/Bin/a", "A");
  WriteFile("desc.txt", "[Bin]\na\n");
  std::filesystem::create_symlink("/dev/full", Path("full.pkg"));
  EXPECT_FALSE(package_.BuildPackage(Path("desc.txt").c_str(), Path("base").c_str(),
                                     Path("full.pkg").c_str()));
  EXPECT_EQ(package_.ErrorText(), "Cannot compress package file");
  EXPECT_EQ(TempFilesLeft(), 0);
  EXPECT_TRUE(std::filesystem::is_symlink(Path("full.pkg")));
}

// Decompression into a destination that may not hold the stream: "Cannot decompress
// package file"; the destination that installation created stays, empty.
TEST_F(PackageFaultTest, DecompressionThatCannotWriteRemovesTheTemporaryFile) {
  const std::string package = WriteStream(std::string(kMagic) + "[Dir]\nName = Bin\n\n" +
                                          FileRecord("big", RandomBytes(100000)));
  const auto report = fault::RunInChild([&] {
    if (!fault::LimitFileSize(4096)) return std::string("no limit");
    const bool installed = package_.InstallPackage(package.c_str(), Path("dest").c_str(), 0);
    return installed ? std::string("installed") : package_.ErrorText();
  });
  EXPECT_EQ(report, "Cannot decompress package file");
  EXPECT_EQ(Snapshot(Path("dest")), Tree{});
  EXPECT_EQ(TempFilesLeft(), 0);
}

// A [File] whose content cannot be written: "Cannot create file " + path; the records
// before it stay applied, those after it are not, and the temporary stream goes. A
// [TextFile] whose rewrite cannot be written: "Cannot set text file " + path, with the
// file as it was. The file that cannot be written is a link to the full device.
TEST_F(PackageFaultTest, RecordsThatCannotWriteStopTheInstallation) {
  const std::string dest = Path("dest");
  const std::string head = std::string(kMagic) + "[Dir]\nName = Bin\n\n" + FileRecord("first", "1");
  const struct {
    std::string records;
    std::string fullFile;
    std::string error;
  } cases[] = {
      {FileRecord("big", RandomBytes(100000)) + FileRecord("after", "2"), "Bin/big",
       "Cannot create file " + dest + "/Bin/big"},
      {FileRecord("notes.txt", "a\r\nb\r\n") + "[TextFile]\nName = notes.txt\n\n\n" +
           FileRecord("after", "2"),
       "Bin/notes.txt.tk_temp", "Cannot set text file " + dest + "/Bin/notes.txt"},
  };
  for (const auto& c : cases) {
    std::filesystem::remove_all(dest);
    std::filesystem::create_directories(dest + "/Bin");
    std::filesystem::create_symlink("/dev/full", dest + "/" + c.fullFile);
    EXPECT_FALSE(package_.InstallPackage(WriteStream(head + c.records).c_str(), dest.c_str(), 0));
    EXPECT_EQ(package_.ErrorText(), c.error);
    EXPECT_EQ(ReadFile(dest + "/Bin/first"), "1");
    EXPECT_FALSE(std::filesystem::exists(dest + "/Bin/after"));
    EXPECT_EQ(TempFilesLeft(), 0);
  }
  EXPECT_EQ(ReadFile(dest + "/Bin/notes.txt"), "a\r\nb\r\n");
}

// Frees the descriptors it is given after a second. A plain pthread: with no descriptor
// left, UBSan's check of std::thread's virtual call cannot probe memory (it needs a pipe).
void* FreeDescriptorsAfterASecond(void* descriptors) {
  sleep(1);
  for (const int fd : *static_cast<std::vector<int>*>(descriptors)) close(fd);
  return nullptr;
}

// UBSan checks the type behind a virtual call by probing memory through a pipe, which
// cannot be made while the descriptor table is full; the object is sound, so this one
// call goes unchecked.
__attribute__((no_sanitize("vptr"))) bool InstallWithoutTypeCheck(TkPackage& package,
                                                                  const std::string& path,
                                                                  const std::string& destination) {
  return package.InstallPackage(path.c_str(), destination.c_str(), 0);
}

// Every file of an installation is opened through OpenFile, so an installation that
// starts while the descriptor table is full waits for descriptors and then completes.
TEST_F(PackageFaultTest, InstallationWaitsForAFullDescriptorTable) {
  const std::string package =
      WriteStream(std::string(kMagic) + "[Dir]\nName = Bin\n\n" + FileRecord("a", "x\r\ny\r\n") +
                  "[TextFile]\nName = a\n\n\n[Exec]\nName = a\n\n\n");
  const auto report = fault::RunInChild([&] {
    std::vector<int> held = fault::ExhaustDescriptors(8);
    if (held.empty()) return std::string("descriptor table not filled");
    pthread_t freer;
    if (pthread_create(&freer, nullptr, FreeDescriptorsAfterASecond, &held) != 0) {
      return std::string("no thread");
    }
    const bool installed = InstallWithoutTypeCheck(package_, package, Path("dest"));
    pthread_join(freer, nullptr);
    return installed ? std::string("installed") : package_.ErrorText();
  });
  EXPECT_EQ(report, "installed");
  EXPECT_EQ(Snapshot(Path("dest")), (Tree{{"Bin", "dir"}, {"Bin/a", "493:x\ny\n"}}));
  EXPECT_EQ(TempFilesLeft(), 0);
}

// Directories the installing user may not write: the record or step that needs to
// write there fails with its own text, and nothing is left but what was there before.
// A root run installs from a child that has become "nobody".
TEST_F(PackageFaultTest, DirectoriesWithoutWritePermission) {
  if (!fault::CanDropPrivileges()) GTEST_SKIP() << "cannot run as an unprivileged user";
  const std::string dest = Path("dest"), locked = dest + "/locked", readOnly = Path("ro");
  std::filesystem::create_directories(locked);
  std::filesystem::create_directories(readOnly);
  ASSERT_EQ(chmod(root_.c_str(), 0755), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(dest.c_str(), fault::kUnprivilegedId, fault::kUnprivilegedId), 0);
  }
  ASSERT_EQ(chmod(locked.c_str(), 0555), 0);
  ASSERT_EQ(chmod(readOnly.c_str(), 0555), 0);
  const struct {
    std::string records;
    std::string destination;
    std::string error;
  } cases[] = {
      {"[Dir]\nName = locked/sub\n\n", dest, "cannot create directory: " + locked + "/sub"},
      {"[Dir]\nName = locked\n\n" + FileRecord("f", "x"), dest,
       "Cannot create file " + locked + "/f"},
      {"[Dir]\nName = a\n\n", readOnly + "/new",
       "cannot create target directory: " + readOnly + "/new"},
      {"[Dir]\nName = a\n\n", readOnly, "Cannot decompress package file"},
  };
  for (const auto& c : cases) {
    const std::string package = WriteStream(kMagic + c.records);
    EXPECT_EQ(InstallUnprivileged(package, c.destination), c.error);
    EXPECT_EQ(Snapshot(dest), (Tree{{"locked", "dir"}}));
    EXPECT_EQ(Snapshot(readOnly), Tree{});
    EXPECT_EQ(TempFilesLeft(), 0);
  }
  chmod(locked.c_str(), 0755);
  chmod(readOnly.c_str(), 0755);
}

// A package directory the building user may not write: the temporary stream cannot be
// opened, and nothing is made.
TEST_F(PackageFaultTest, BuildIntoADirectoryWithoutWritePermission) {
  if (!fault::CanDropPrivileges()) GTEST_SKIP() << "cannot run as an unprivileged user";
  WriteFile("base/Bin/a", "A");
  WriteFile("desc.txt", "[Bin]\na\n");
  std::filesystem::create_directories(Path("ro"));
  ASSERT_EQ(chmod(root_.c_str(), 0755), 0);
  ASSERT_EQ(chmod(Path("ro").c_str(), 0555), 0);
  const std::string package = Path("ro/p.pkg");
  const auto report = fault::RunInChild([&] {
    if (!fault::DropPrivileges()) return std::string("still privileged");
    const bool built =
        package_.BuildPackage(Path("desc.txt").c_str(), Path("base").c_str(), package.c_str());
    return built ? std::string("built") : package_.ErrorText();
  });
  EXPECT_EQ(report, "Cannot open temporary package file " + package + ".tk_temp");
  EXPECT_EQ(Snapshot(Path("ro")), Tree{});
  chmod(Path("ro").c_str(), 0755);
}

}  // namespace
}  // namespace tk
