#include "tkpack/command_line.h"

#include <limits>

namespace tk {

namespace {

constexpr const char* kHelpOption = "--help";
constexpr const char* kEndOfOptions = "--";
// Column where the option texts of a help page start.
constexpr std::size_t kOptionColumn = 18;

const OptionSyntax* FindOption(const CommandSyntax& syntax, const std::string& name) {
  for (const OptionSyntax& option : syntax.options) {
    if (name == option.name) return &option;
  }
  return nullptr;
}

bool LooksLikeOption(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

// Takes the option at arguments[at] (and its value, which may be the next word);
// `at` is left on the last word used.
bool TakeOption(const CommandSyntax& syntax, const std::vector<std::string>& arguments,
                std::size_t& at, CommandLine& line, std::string& error) {
  const std::string& word = arguments[at];
  const std::size_t equals = word.find('=');
  const std::string name = word.substr(0, equals);
  const OptionSyntax* option = FindOption(syntax, name);
  if (option == nullptr) {
    error = "unknown option '" + name + "'";
    return false;
  }
  if (option->value == OptionSyntax::Value::kNone) {
    if (equals != std::string::npos) {
      error = "option '" + name + "' takes no value";
      return false;
    }
    line.options[name] = "";
    return true;
  }
  if (equals == std::string::npos && at + 1 >= arguments.size()) {
    error = "option '" + name + "' needs a value (" + option->valueName + ")";
    return false;
  }
  const std::string value = equals != std::string::npos ? word.substr(equals + 1) : arguments[++at];
  uint64_t count = 0;
  if (option->value == OptionSyntax::Value::kByteCount && !ParseByteCount(value, count)) {
    error = "option '" + name + "' wants a number of bytes, not '" + value + "'";
    return false;
  }
  line.options[name] = value;
  return true;
}

bool HelpRequested(const std::vector<std::string>& arguments) {
  for (const std::string& word : arguments) {
    if (word == kEndOfOptions) return false;
    if (word == kHelpOption) return true;
  }
  return false;
}

// "  --base DIR      text", the texts of all options starting in one column.
std::string OptionHelpLine(std::string left, const char* help) {
  left.insert(0, "  ");
  left.resize(left.size() < kOptionColumn ? kOptionColumn : left.size() + 1, ' ');
  return left + help + "\n";
}

}  // namespace

std::string CommandLine::Value(const char* option, const std::string& fallback) const {
  const auto found = options.find(option);
  return found != options.end() ? found->second : fallback;
}

ParseResult ParseCommandLine(const CommandSyntax& syntax, const std::vector<std::string>& arguments,
                             CommandLine& line, std::string& error) {
  line = CommandLine();
  if (HelpRequested(arguments)) return ParseResult::kHelp;
  bool optionsEnded = false;
  for (std::size_t at = 0; at < arguments.size(); ++at) {
    const std::string& word = arguments[at];
    if (!optionsEnded && word == kEndOfOptions) {
      optionsEnded = true;
    } else if (!optionsEnded && LooksLikeOption(word)) {
      if (!TakeOption(syntax, arguments, at, line, error)) return ParseResult::kUsageError;
    } else {
      line.operands.push_back(word);
    }
  }
  const int count = static_cast<int>(line.operands.size());
  if (count < syntax.operandCount) {
    error = "missing operand (expected " + std::string(syntax.operands) + ")";
    return ParseResult::kUsageError;
  }
  if (count > syntax.operandCount) {
    error = "unexpected operand '" + line.operands[syntax.operandCount] + "'";
    return ParseResult::kUsageError;
  }
  return ParseResult::kOk;
}

std::string UsageLine(const CommandSyntax& syntax) {
  std::string usage = std::string("usage: tkpack ") + syntax.name + " " + syntax.operands;
  for (const OptionSyntax& option : syntax.options) {
    usage += std::string(" [") + option.name;
    if (option.value != OptionSyntax::Value::kNone) usage += std::string(" ") + option.valueName;
    usage += "]";
  }
  return usage;
}

std::string CommandHelp(const CommandSyntax& syntax) {
  std::string help = UsageLine(syntax) + "\n\n" + syntax.description + "\n";
  help += "\nOptions:\n";
  for (const OptionSyntax& option : syntax.options) {
    std::string left = option.name;
    if (option.value != OptionSyntax::Value::kNone) left += std::string(" ") + option.valueName;
    help += OptionHelpLine(left, option.help);
  }
  return help + OptionHelpLine(kHelpOption, "show this text");
}

bool ParseByteCount(const std::string& text, uint64_t& value) {
  if (text.empty()) return false;
  uint64_t result = 0;
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  for (const char c : text) {
    if (c < '0' || c > '9') return false;
    const uint64_t digit = static_cast<uint64_t>(c - '0');
    if (result > (kMax - digit) / 10) return false;
    result = result * 10 + digit;
  }
  value = result;
  return true;
}

}  // namespace tk
