// Installs the input the way `tkpack install` does without --trust, into a fresh
// destination in which symbolic links to an outside directory and to an outside file
// are planted (one relative, one absolute). The first input byte chooses the variant:
// bit 0 skips the checks made before installing, so that the tree alone must hold the
// line; bit 1 walks paths component by component instead of with openat2. The rest is
// the plain record stream.
//
// What must hold, whatever the records: nothing outside the destination is created,
// changed or removed (the outside tree, the working directory, the scratch directory's
// other entries), and a planted link that is still there points where it pointed.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "fuzz/fuzz_support.h"
#include "package/package.h"
#include "support/files.h"
#include "tkpack/beneath.h"
#include "tkpack/beneath_tree.h"
#include "tkpack/install_guard.h"

namespace {

namespace fs = std::filesystem;
using tk::fuzz::Expect;

constexpr uint8_t kSkipChecks = 1;
constexpr uint8_t kComponentWalk = 2;

// Names, kinds, modes, contents and link targets of everything below `root`.
std::string Describe(const std::string& root) {
  std::string text;
  std::error_code error;
  for (fs::recursive_directory_iterator it(root, error), end; !error && it != end;
       it.increment(error)) {
    struct stat info {};
    lstat(it->path().c_str(), &info);
    text += it->path().string() + " " + std::to_string(info.st_mode) + " ";
    if (S_ISLNK(info.st_mode)) text += fs::read_symlink(it->path(), error).string();
    if (S_ISREG(info.st_mode)) text += tk::fuzz::ReadWholeFile(it->path());
    text += "\n";
  }
  return text;
}

struct Layout {
  tk::fuzz::ScratchDirectory scratch{"safe_install"};
  std::string outside = scratch.Path("outside");
  std::string destination = scratch.Path("dest");
  std::string plain = scratch.Path("plain.stream");
  std::string outsideBefore;

  Layout() {
    tk::fuzz::WriteWholeFile(outside + "/f", "outside file\r\n");
    tk::fuzz::WriteWholeFile(outside + "/dir/g", "outside dir\n");
    fs::create_directories(scratch.Path("cwd"));
    Expect(chdir(scratch.Path("cwd").c_str()) == 0, "cannot enter ", scratch.Path("cwd"));
    outsideBefore = Describe(outside);
  }

  void Plant() const {
    tk::fuzz::WriteWholeFile(destination + "/Bin/keep", "keep\r\n");
    fs::create_symlink("../outside", destination + "/out");
    fs::create_symlink(outside + "/dir", destination + "/abs");
    fs::create_symlink("../../outside/f", destination + "/Bin/f");
  }

  void Check(const std::string& what) const {
    Expect(Describe(outside) == outsideBefore, "the outside tree changed after: ", what);
    Expect(fs::is_empty(scratch.Path("cwd")), "the working directory changed after: ", what);
    for (const auto& entry : fs::directory_iterator(scratch.path())) {
      const std::string name = entry.path().filename();
      Expect(name == "outside" || name == "dest" || name == "cwd" || name == "plain.stream",
             "something was made beside the destination: ", name);
    }
    std::error_code gone;  // records may remove a link, as a link, but never retarget it
    const fs::path link = fs::read_symlink(destination + "/out", gone);
    Expect(gone || link == "../outside", "a planted link points elsewhere: ", link.string());
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Layout layout;
  if (size == 0) return -1;
  const uint8_t variant = data[0];
  layout.Plant();
  Expect(tk::fuzz::WriteWholeFile(layout.plain, tk::fuzz::AsString(data + 1, size - 1)),
         "cannot write ", layout.plain);
  tk::UniqueFile stream(std::fopen(layout.plain.c_str(), "r"));
  Expect(stream != nullptr, "cannot open ", layout.plain);
  tk::UseComponentWalk((variant & kComponentWalk) != 0);
  tk::TkPackage package;
  if ((variant & kSkipChecks) != 0) {
    tk::BeneathInstallTree tree(layout.destination);
    package.InstallStream(stream.get(), "input.pkg", layout.destination.c_str(), 0, tree);
  } else {
    tk::VerifyReport hazards;
    tk::InstallChecked(stream.get(), "input.pkg", layout.destination, false, package, hazards);
  }
  stream.reset();
  tk::UseComponentWalk(false);
  layout.Check(package.ErrorText());
  tk::fuzz::RemoveTree(layout.destination);
  return 0;
}
