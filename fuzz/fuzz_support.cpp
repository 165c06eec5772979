#include "fuzz/fuzz_support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace tk::fuzz {

ScratchDirectory::ScratchDirectory(const std::string& tag) : TempDir("fuzz_" + tag) {
  Expect(!path().empty(), "cannot create a scratch directory for ", tag);
}

void RemoveTree(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

int CountEntries(const std::string& path) {
  std::error_code error;
  int count = 0;
  std::filesystem::recursive_directory_iterator it(path, error), end;
  for (; !error && it != end; it.increment(error)) ++count;
  return error ? -1 : count;
}

void MakeSourceTree(const std::string& base) {
  static const struct {
    const char* path;
    std::string_view bytes;
  } kFiles[] = {
      {"Bin/tavik", "#!/bin/sh\necho tavik\n"},
      {"Bin/Readme.TXT", "read me\r\nsecond line\r\n"},
      {"Conf/tavik.ini", "[Main]\r\nName = tavik\r\nPort=8080\r\n[Exec]\nName = x\n\n"},
      {"Conf/skip", "skipped by excludefile\n"},
      {"Doc/notes.txt", "notes\nline two"},
      {"Lib/libx.so", std::string_view("\177ELF\0\0\r\n[File]\nSize = 9\n\xff", 23)},
      {"Lib/sub/liby.so", "y"},
      {"Lib/sub/old.bak", "excluded"},
      {"Lib/tmp/z", "in an excluded directory"},
      {"Lib/.hidden", "never captured"},
      {"Scripts/run.pl", "print 1;\n"},
      {"top.txt", "top\n"},
  };
  for (const auto& file : kFiles) {
    Expect(WriteWholeFile(base + "/" + file.path, file.bytes), "cannot write ", file.path);
  }
}

const char* const kSeedDescription =
    "; Every command of the description language once.\n"
    "// a comment\n"
    "\\\\ another comment\n"
    "[HEADER]\n"
    "Product = fuzz seed\n"
    "Version = 1\n"
    "[Bin]\n"
    "copyfile: tavik\n"
    "exec: tavik\n"
    "readme.txt\n"
    "removefile: *.old\n"
    "removefile: core\n"
    "removefile: log*\n"
    "[Conf]\n"
    "copydir:\n"
    "excludefile: skip\n"
    "textfile: tavik.ini\n"
    "[Lib]\n"
    "removedirsub:\n"
    "copydirsub:\n"
    "excludedir: tmp\n"
    "excludefile: *.bak\n"
    "[\\Doc\\]\n"
    "removedir: ignored\n"
    "copyfile: notes.txt = #/Doc/notes.txt\n"
    "copyfile: copy.txt=./notes.txt\n"
    "textdir:\n"
    "[/]\n"
    "  COPYFILE :  top.txt \n"
    "[Scripts]\n"
    "copyfile: run.pl\n";

const char* const kPerlSeedDescription =
    "[Scripts]\n"
    "perlencode:\n"
    "copyfile: run.pl\n"
    "copyperlfile: again.pl=run.pl\n";

bool StartsWithAny(const std::string& text, std::initializer_list<const char*> prefixes) {
  for (const char* prefix : prefixes) {
    if (text.starts_with(prefix)) return true;
  }
  return false;
}

void Expect(bool ok, const char* what, const std::string& detail) {
  if (ok) return;
  std::fprintf(stderr, "fuzz expectation failed: %s%s\n", what, detail.c_str());
  std::abort();
}

}  // namespace tk::fuzz
