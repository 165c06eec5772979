// The command-line grammar shared by every tkpack command: a fixed number of operands
// and long options ("--long", "--base DIR" or "--base=DIR") in any order, "--" ending
// the options, and "--help" anywhere asking for the command's help text. The parser
// only reads; what a command does with its options is the command's business.
//
// Thread-safe: no shared state.
#ifndef TAVIK_TKPACK_COMMAND_LINE_H_
#define TAVIK_TKPACK_COMMAND_LINE_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tk {

struct OptionSyntax {
  enum class Value { kNone, kText, kByteCount };  // kByteCount: see ParseByteCount

  const char* name;       // with its dashes: "--base"
  Value value;            // what follows the option, if anything
  const char* valueName;  // "DIR" for the help text when the option takes a value
  const char* help;       // one line for the help text
};

// What a command accepts and how it describes itself.
struct CommandSyntax {
  const char* name;         // "build"
  const char* operands;     // "DESCRIPTION PACKAGE"
  int operandCount;         // exactly this many operands are required
  const char* summary;      // one line in the list of commands
  const char* description;  // the body of the command's help text
  std::vector<OptionSyntax> options;
};

// A parsed command line: the operands in order, and the options seen (a flag maps to
// "", an option to its value; a repeated option keeps its last value).
struct CommandLine {
  std::vector<std::string> operands;
  std::map<std::string, std::string> options;

  bool Has(const char* option) const { return options.contains(option); }
  // The option's value, or `fallback` when it was not given.
  std::string Value(const char* option, const std::string& fallback) const;
};

enum class ParseResult { kOk, kHelp, kUsageError };

// Parses `arguments` (the words after the command name) against `syntax`. kHelp when
// "--help" stands among the options; kUsageError with `error` saying what is wrong
// (an unknown option, a missing or malformed value, a wrong number of operands).
ParseResult ParseCommandLine(const CommandSyntax& syntax, const std::vector<std::string>& arguments,
                             CommandLine& line, std::string& error);

// "usage: tkpack build DESCRIPTION PACKAGE [--base DIR]"
std::string UsageLine(const CommandSyntax& syntax);

// The text of "tkpack COMMAND --help": usage, description, options; ends with a LF.
std::string CommandHelp(const CommandSyntax& syntax);

// Parses a whole decimal number of bytes ("0" to 2^64 - 1, digits only). False for
// anything else, `value` then unchanged.
bool ParseByteCount(const std::string& text, uint64_t& value);

}  // namespace tk

#endif  // TAVIK_TKPACK_COMMAND_LINE_H_
