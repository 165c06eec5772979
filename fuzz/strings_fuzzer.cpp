// Properties of the string functions that the package readers and the escaping rely on:
// - TrimWhitespace never makes a string longer, whatever its flags; with
//   collapseSpaces it leaves no tab, CR, LF, outer blank or doubled blank, and the
//   readers' normalisation (collapse on, removal off) is idempotent; with
//   removeAllSpaces no blank or tab is left. TrimWhitespaceBuffer never grows either.
// - UrlUnescape(UrlEscape(x)) == x for text without "+" (decoded as a blank), NUL
//   ("%00" decodes to nothing) or "$$" (the functions' marker texts all begin with it,
//   and input holding one is changed on purpose).
// - XmlEscape is idempotent on text without "$$", and returns what it leaves in place.
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "support/strings.h"
#include "support/text_file.h"

namespace {

using tk::fuzz::Expect;

void CheckTrimWhitespace(const std::string& input) {
  for (const bool removeAll : {false, true}) {
    for (const bool collapse : {false, true}) {
      std::string s = input;
      tk::TrimWhitespace(s, removeAll, collapse);
      Expect(s.size() <= input.size(), "TrimWhitespace made the text longer");
      if (collapse) {
        Expect(s.find_first_of("\t\r\n") == std::string::npos &&
                   s.find("  ") == std::string::npos && !s.starts_with(' ') && !s.ends_with(' '),
               "TrimWhitespace left whitespace behind: ", s);
      }
      if (removeAll) {
        Expect(s.find_first_of(" \t") == std::string::npos, "TrimWhitespace kept blanks: ", s);
      }
      if (collapse && !removeAll) {
        std::string again = s;
        tk::TrimWhitespace(again, false, true);
        Expect(again == s, "normalising twice changed the text: ", s);
      }
    }
  }
}

void CheckTrimWhitespaceBuffer(const std::string& input) {
  const std::string text = input.c_str();  // the buffer form ends at the first NUL
  for (const bool removeAll : {false, true}) {
    for (const bool collapse : {false, true}) {
      std::vector<char> buffer(text.begin(), text.end());
      buffer.push_back('\0');
      tk::TrimWhitespaceBuffer(buffer.data(), removeAll, collapse);
      Expect(std::string(buffer.data()).size() <= text.size(),
             "TrimWhitespaceBuffer made the text longer");
    }
  }
}

void CheckUrlRoundTrip(const std::string& input) {
  if (input.find_first_of(std::string("+\0", 2)) != std::string::npos ||
      input.find("$$") != std::string::npos) {
    return;
  }
  std::string s = input;
  const size_t escapedSize = tk::UrlEscape(s, false, true);
  Expect(escapedSize == s.size(), "UrlEscape returned the wrong length");
  Expect(s.find_first_of("<>\"#{}|\\^~[]`;/?:@=&\x7f") == std::string::npos,
         "UrlEscape left a reserved byte: ", s);
  const size_t unescapedSize = tk::UrlUnescape(s, false, true);
  Expect(unescapedSize == s.size(), "UrlUnescape returned the wrong length");
  Expect(s == input, "UrlUnescape(UrlEscape(x)) differs from x: ", s);
}

void CheckXmlEscape(const std::string& input) {
  if (input.find("$$") != std::string::npos) return;
  std::string once = input;
  const std::string returned = tk::XmlEscape(once);
  Expect(returned == once, "XmlEscape returned something else than it left");
  Expect(once.find_first_of("<>'\"") == std::string::npos, "XmlEscape left markup: ", once);
  std::string twice = once;
  tk::XmlEscape(twice);
  Expect(twice == once, "XmlEscape escaped twice: ", once + " -> " + twice);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input = tk::fuzz::AsString(data, size);
  CheckTrimWhitespace(input);
  CheckTrimWhitespaceBuffer(input);
  CheckUrlRoundTrip(input);
  CheckXmlEscape(input);
  return 0;
}
