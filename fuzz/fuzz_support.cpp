#include "fuzz/fuzz_support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace tk::fuzz {

namespace {

std::string TempRoot() {
  const char* tmp = std::getenv("TMPDIR");
  return tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
}

}  // namespace

ScratchDirectory::ScratchDirectory(const std::string& tag) {
  std::error_code ignored;
  std::filesystem::create_directories(TempRoot(), ignored);
  std::string pattern = TempRoot() + "/tk_fuzz_" + tag + ".XXXXXX";
  Expect(mkdtemp(pattern.data()) != nullptr, "cannot create a scratch directory ", pattern);
  path_ = pattern;
}

ScratchDirectory::~ScratchDirectory() { RemoveTree(path_); }

bool WriteWholeFile(const std::string& path, std::string_view bytes) {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  return !out.fail();
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
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
