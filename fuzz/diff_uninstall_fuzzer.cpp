// Installs the input as a package with the engine (as tkinstall does) into a fresh
// directory, then holds tkpack diff and tkpack uninstall to their word. The input is
// the plain record stream; streams that verify finds problems in (names that escape,
// records before the first [Dir], malformed records) are skipped, as neither command
// follows them.
//
// What must hold after an installation that succeeded: diff, extras included, finds no
// difference; uninstall keeps nothing and leaves the directory empty (it held nothing
// else); nothing outside the directory is touched.
#include <fcntl.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "fuzz/fuzz_support.h"
#include "package/package.h"
#include "support/files.h"
#include "testing/packages.h"
#include "tkpack/commands.h"
#include "tkpack/opened_package.h"
#include "tkpack/record_report.h"
#include "tkpack/tool.h"
#include "tkpack/tree_compare.h"
#include "tkpack/tree_model.h"

namespace {

namespace fs = std::filesystem;
using tk::fuzz::Expect;

// True for a stream that verify passes and whose records leave the engine's own
// temporary copy of the package alone: a [TextDir] of the installation directory (or a
// [TextFile] of that copy) rewrites it while the installation reads it, which tkpack
// install, decoding elsewhere, never does and diff does not follow.
bool Followable(const std::string& plain) {
  tk::UniqueFile stream(std::fopen(plain.c_str(), "r"));
  Expect(stream != nullptr, "cannot open ", plain);
  tk::PackageRecordReader reader(stream.get());
  bool rewritesItsCopy = false;
  const tk::VerifyReport report =
      tk::VerifyRecordStream(reader, [&](const tk::PackageRecord& record, auto&) {
        const std::string name = tk::TreeModel::Normalize(record.name);
        rewritesItsCopy |= (record.kind == tk::RecordKind::kTextDir && name.empty()) ||
                           (record.kind == tk::RecordKind::kTextFile && name.ends_with(".tk_temp"));
      });
  return report.problems.empty() && !rewritesItsCopy;
}

void ExpectNoDifference(const std::string& package, const std::string& destination) {
  tk::OpenedPackage opened;
  std::string error;
  Expect(opened.Open(package, error), "cannot decode the package: ", error);
  tk::PackageRecordReader reader(opened.stream());
  tk::TreeModel model;
  Expect(model.Replay(reader, error), "cannot follow the records: ", error);
  tk::UniqueDescriptor root(open(destination.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  tk::TreeComparer comparer(root.get(), opened.stream(), opened.scratchDirectory(), nullptr);
  for (const tk::TreeDifference& difference : comparer.Compare(model, true)) {
    Expect(false, "diff after a fresh installation: ", tk::DifferenceLine(difference));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static tk::fuzz::ScratchDirectory scratch("diff");
  static const bool outsideMade = tk::fuzz::WriteWholeFile(scratch.Path("outside/f"), "outside\n");
  Expect(outsideMade, "cannot write the outside file");
  const std::string plain = scratch.Path("plain.stream");
  const std::string package = scratch.Path("input.pkg");
  const std::string destination = scratch.Path("dest");
  Expect(tk::fuzz::WriteWholeFile(plain, tk::fuzz::AsString(data, size)), "cannot write ", plain);
  if (size == 0 || !Followable(plain)) return -1;
  Expect(tk::test::WritePackage(package, tk::fuzz::AsString(data, size)), "cannot write ", package);
  fs::create_directories(destination);
  tk::TkPackage engine;
  if (engine.InstallPackage(package.c_str(), destination.c_str(), 0)) {
    ExpectNoDifference(package, destination);
    tk::CommandLine line;
    line.operands = {package, destination};
    FILE* sink = std::fopen("/dev/null", "w");
    tk::ToolIo io{sink, sink, false};
    const int status = tk::RunUninstall(line, io);
    std::fclose(sink);
    Expect(status == tk::kExitSuccess, "uninstall kept something after a fresh installation");
    for (const auto& left : fs::directory_iterator(destination)) {
      Expect(false, "uninstall left something: ", left.path().string());
    }
  }
  Expect(tk::fuzz::ReadWholeFile(scratch.Path("outside/f")) == "outside\n",
         "a file outside the directory changed");
  tk::fuzz::RemoveTree(destination);
  return 0;
}
