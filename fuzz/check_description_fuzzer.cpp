// Runs the package builder's description parser in validation mode: the input is
// written as a description file and checked with CheckDescription against a small fixed
// source tree (MakeSourceTree), so that commands can name sources that exist.
//
// What must hold: the result agrees with the error text ("" when the description is
// valid, otherwise one of the builder's messages); validation writes nothing, so the
// scratch directory holds exactly the description and the source tree afterwards.
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "package/package.h"

namespace {

// The scratch directory with its source tree, made once per process.
struct Workspace {
  tk::fuzz::ScratchDirectory scratch{"description"};
  std::string base = scratch.Path("base");
  std::string description = scratch.Path("description.txt");
  int entries = 0;

  Workspace() {
    tk::fuzz::MakeSourceTree(base);
    tk::fuzz::WriteWholeFile(description, "");
    entries = tk::fuzz::CountEntries(scratch.path());
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using tk::fuzz::Expect;
  static Workspace workspace;
  Expect(tk::fuzz::WriteWholeFile(workspace.description, tk::fuzz::AsString(data, size)),
         "cannot write the description");
  tk::TkPackage builder;
  const bool valid =
      builder.CheckDescription(workspace.description.c_str(), workspace.base.c_str());
  const std::string& error = builder.ErrorText();
  Expect(valid == error.empty(), "result and error text disagree: ", error);
  if (!valid) {
    Expect(error == "No source file" || error == "No target file" ||
               tk::fuzz::StartsWithAny(error, {"Bad directory: ", "Bad file: "}),
           "unexpected error text: ", error);
  }
  Expect(tk::fuzz::CountEntries(workspace.scratch.path()) == workspace.entries,
         "validation changed the files after: ", error);
  return 0;
}
