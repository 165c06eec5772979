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
#include <random>
#include <tuple>
#include <vector>

#include "package/package.h"
#include "package/temp_paths.h"
#include "testing/fault.h"
#include "testing/packages.h"
#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using test::FileRecord;
using test::kStreamStart;

constexpr rlim_t kNoLimit = RLIM_INFINITY;

// `size` random bytes: content that no codec shrinks.
std::string RandomBytes(size_t size) {
  std::mt19937 random(static_cast<unsigned>(size));
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

class PackageFaultTest : public test::TempDirTest {
 protected:
  // In a child whose files may not grow past `limit` bytes and which, when `unprivileged`,
  // has dropped its privileges: installs p.pkg into `target`, or builds the package
  // `target` from desc.txt over "base". "ok" or the error text it saw.
  std::string InChild(bool install, const std::string& target, rlim_t limit, bool unprivileged) {
    const auto report = test::RunInChild([&] {
      if ((limit != kNoLimit && !test::LimitFileSize(limit)) ||
          (unprivileged && !test::DropPrivileges())) {
        return std::string("fault not set up");
      }
      const bool ok = install
                          ? package_.InstallPackage(Path("p.pkg").c_str(), Path(target).c_str(), 0)
                          : package_.BuildPackage(Path("desc.txt").c_str(), Path("base").c_str(),
                                                  Path(target).c_str());
      return ok ? std::string("ok") : package_.ErrorText();
    });
    return report.value_or("child failed");
  }
  TkPackage package_;
};

// A short write of the temporary record stream ends the build with "Cannot write package
// file", whether it shows at a record or only when the stream is closed; a failed copy
// of a file's content is "Cannot read file: "; a failed flush of the last section leaves
// nothing to compress; a package path on the full device keeps what the codec wrote (the
// link); a package directory the user may not write cannot hold the temporary stream.
TEST_F(PackageFaultTest, BuildsThatCannotWriteLeaveNoTemporaryFile) {
  ASSERT_TRUE(WriteFile("base/Bin/small", "x") && WriteFile("base/Bin/big", RandomBytes(100000)));
  std::string many = "[Bin]\n";
  for (int i = 0; i < 500; ++i) many += "exec: command_" + std::to_string(i) + "\n";
  std::filesystem::create_symlink("/dev/full", Path("full.pkg"));
  ASSERT_TRUE(std::filesystem::create_directory(Path("ro")));
  ASSERT_EQ(chmod(path().c_str(), 0755) | chmod(Path("ro").c_str(), 0555), 0);
  const std::tuple<std::string, std::string, rlim_t, bool, std::string> cases[] = {
      // description, package, file-size limit, unprivileged; error
      {"[Bin]\nsmall\n", "out.pkg", 0, false, "Cannot write package file"},
      {many + "[Next]\n", "out.pkg", 4096, false, "Cannot write package file"},
      {"[Bin]\nbig\n[Next]\n", "out.pkg", 4096, false, "Cannot read file: " + Path("base/Bin/big")},
      {many, "out.pkg", 4096, false, "Cannot compress package file"},
      {"[Bin]\nsmall\n", "full.pkg", kNoLimit, false, "Cannot compress package file"},
      {"[Bin]\nsmall\n", "ro/p.pkg", kNoLimit, true,
       "Cannot open temporary package file " + Path("ro/p.pkg.tk_temp")}};
  for (const auto& [description, package, limit, unprivileged, error] : cases) {
    if (unprivileged && !test::CanDropPrivileges()) continue;
    ASSERT_TRUE(WriteFile("desc.txt", description));
    EXPECT_EQ(InChild(false, package, limit, unprivileged), error);
    EXPECT_EQ(Exists(package), package == "full.pkg") << package;
    EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0) << package;
  }
}

// Decompression into a destination that may not hold the stream leaves the destination,
// empty. A [File] whose content cannot be written (a link to the full device) and a
// [TextFile] whose rewrite cannot be written stop the installation: the records before
// stay applied, those after are not, the text file stays as it was. Directories the
// installing user may not write (a root run installs as "nobody") fail the record or step
// that needs them, and nothing is left there but what was there before.
TEST_F(PackageFaultTest, InstallationsWhoseWritesFailStopThere) {
  const std::string head = kStreamStart + test::DirRecord("Bin") + FileRecord("first", "1");
  const std::string big = FileRecord("big", RandomBytes(100000)), after = FileRecord("after", "2");
  const std::string text =
      FileRecord("notes.txt", "a\r\nb\r\n") + "[TextFile]\nName = notes.txt\n\n\n";
  const std::string start = kStreamStart, locked = Path("dp/locked");
  ASSERT_TRUE(WriteFile("dp/locked/keep", "") && std::filesystem::create_directory(Path("ro")));
  ASSERT_EQ(chmod(path().c_str(), 0755) | chmod(Path("dp").c_str(), 0777) |
                chmod(locked.c_str(), 0555) | chmod(Path("ro").c_str(), 0555),
            0);
  const std::tuple<std::string, std::string, rlim_t, std::string, bool, std::string> cases[] = {
      // destination, records, file-size limit, a link to the full device, unprivileged; error
      {"d0", head + big, 4096, "", false, "Cannot decompress package file"},
      {"d1", head + big + after, kNoLimit, "Bin/big", false,
       "Cannot create file " + Path("d1/Bin/big")},
      {"d2", head + text + after, kNoLimit, "Bin/notes.txt.tk_temp", false,
       "Cannot set text file " + Path("d2/Bin/notes.txt")},
      {"dp", start + "[Dir]\nName = locked/sub\n\n", kNoLimit, "", true,
       "cannot create directory: " + locked + "/sub"},
      {"dp", start + "[Dir]\nName = locked\n\n" + FileRecord("f", ""), kNoLimit, "", true,
       "Cannot create file " + locked + "/f"},
      {"dp", start + "[RmDir]\nName = locked\nWithsubdir = NO\n\n", kNoLimit, "", true,
       "cannot remove directory: " + locked},
      {"ro/new", head, kNoLimit, "", true, "cannot create target directory: " + Path("ro/new")},
      {"ro", head, kNoLimit, "", true, "Cannot decompress package file"}};
  for (const auto& [dest, records, limit, link, unprivileged, error] : cases) {
    if (unprivileged && !test::CanDropPrivileges()) continue;
    if (!link.empty()) {
      std::filesystem::create_directories(Path(dest + "/Bin"));
      std::filesystem::create_symlink("/dev/full", Path(dest + "/" + link));
    }
    ASSERT_TRUE(test::WritePackage(Path("p.pkg"), records));
    EXPECT_EQ(InChild(true, dest, limit, unprivileged), error);
    EXPECT_EQ(ReadFile(dest + "/Bin/first"), link.empty() ? "" : "1");
    EXPECT_FALSE(Exists(dest + "/Bin/after"));
    EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0) << dest;
  }
  EXPECT_EQ(Listing("d0"), std::vector<std::string>{});
  EXPECT_EQ(ReadFile("d2/Bin/notes.txt"), "a\r\nb\r\n");
  EXPECT_EQ(Listing("dp"), (std::vector<std::string>{"locked/", "locked/keep"}));
  EXPECT_EQ(Listing("ro"), std::vector<std::string>{});
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
  const std::string package = Path("p.pkg"), dest = Path("dest");
  ASSERT_TRUE(test::WritePackage(package, kStreamStart + test::DirRecord("Bin") +
                                              FileRecord("a", "x\r\ny\r\n") +
                                              "[TextFile]\nName = a\n\n\n[Exec]\nName = a\n\n\n"));
  const auto report = test::RunInChild([&] {
    std::vector<int> held = test::ExhaustDescriptors(8);
    if (held.empty()) return std::string("descriptor table not filled");
    pthread_t freer;
    if (pthread_create(&freer, nullptr, FreeDescriptorsAfterASecond, &held) != 0) {
      return std::string("no thread");
    }
    const bool installed = InstallWithoutTypeCheck(package_, package, dest);
    pthread_join(freer, nullptr);
    return installed ? std::string("ok") : package_.ErrorText();
  });
  EXPECT_EQ(report, "ok");
  EXPECT_EQ(Snapshot("dest"), (test::Tree{{"Bin", "dir"}, {"Bin/a", "755:x\ny\n"}}));
  EXPECT_EQ(CountFilesEndingWith(kTempSuffix), 0);
}

}  // namespace
}  // namespace tk
