// Reads one value with ReadIniValue. The input is four lines and then the file:
//   section LF key LF default value LF output size (decimal, at most 512) LF file bytes
// so that seeds stay readable and the fuzzer can change each part on its own.
//
// The output buffer is allocated at exactly the size the caller must provide (the
// output size, or the default value with its terminator when that is longer), so any
// write past it is caught. What must hold: a key that cannot be in the file gives the
// default value unchanged. Since the line clean-up only removes blanks and turns tabs
// into blanks, a key without blanks, tabs, "=", "[" or "]" can only be found when its
// first 99 bytes (the key text is cut there) occur in the file, letter case aside.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/fuzz_support.h"
#include "support/ini_file.h"

namespace {

constexpr unsigned kMaxOutputSize = 512;
constexpr size_t kKeyTextLimit = 99;

struct Request {
  std::string section, key, defaultValue;
  unsigned outSize = 0;
  std::string file;
};

// Splits off the text up to the next LF (all of the rest when there is none).
std::string TakeLine(std::string& rest) {
  const size_t end = rest.find('\n');
  std::string line = rest.substr(0, end);
  rest.erase(0, end == std::string::npos ? rest.size() : end + 1);
  return line;
}

Request ParseRequest(std::string input) {
  Request request;
  request.section = TakeLine(input);
  request.key = TakeLine(input);
  request.defaultValue = TakeLine(input);
  request.outSize = std::strtoul(TakeLine(input).c_str(), nullptr, 10) % (kMaxOutputSize + 1);
  request.file = std::move(input);
  return request;
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// True when `key` cannot match any line of `file` (see the top comment).
bool KeyCannotMatch(const std::string& key, const std::string& file) {
  if (key.empty() || key.find_first_of(" \t=[]") != std::string::npos) return false;
  return Lower(file).find(Lower(key.substr(0, kKeyTextLimit))) == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using tk::fuzz::Expect;
  static tk::fuzz::ScratchDirectory scratch("ini");
  static const std::string path = scratch.Path("values.ini");
  const Request request = ParseRequest(tk::fuzz::AsString(data, size));
  // Names and values are NUL-terminated strings: an embedded NUL ends them.
  const std::string section = request.section.c_str();
  const std::string key = request.key.c_str();
  const std::string defaultValue = request.defaultValue.c_str();
  Expect(tk::fuzz::WriteWholeFile(path, request.file), "cannot write ", path);

  const size_t bufferSize = std::max<size_t>(request.outSize, defaultValue.size() + 1);
  auto out = std::make_unique<char[]>(bufferSize);
  tk::ReadIniValue(path.c_str(), out.get(), request.outSize, section.c_str(), key.c_str(),
                   defaultValue.c_str());
  const std::string value(out.get(), strnlen(out.get(), bufferSize));
  if (KeyCannotMatch(key, request.file)) {
    Expect(value == defaultValue, "a key that is not in the file gave: ", value);
  }
  return 0;
}
