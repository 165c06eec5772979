#include "tkpack/tool.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "lzhuf/lzhuf.h"
#include "tkpack/command_line.h"
#include "tkpack/commands.h"

namespace tk {

namespace {

using Value = OptionSyntax::Value;

// Column where the summaries of the command list start.
constexpr std::size_t kSummaryColumn = 14;

struct ToolCommand {
  CommandSyntax syntax;
  int (*run)(const CommandLine& line, ToolIo& io);
};

const OptionSyntax kBaseOption = {"--base", Value::kText, "DIR",
                                  "resolve sources against DIR (default: the description's "
                                  "directory)"};

const OptionSyntax kSortOptionSyntax = {
    kSortOption, Value::kNone, nullptr,
    "capture directories in byte order of names (reproducible packages)"};

const OptionSyntax kJsonOptionSyntax = {kJsonOption, Value::kNone, nullptr,
                                        "print one JSON document (see tkpack(1))"};

const OptionSyntax kPubkeyOptionSyntax = {kPubkeyOption, Value::kText, "FILE",
                                          "check PACKAGE.minisig against this public key"};

const OptionSyntax kThreadsOptionSyntax = {kThreadsOption, Value::kByteCount, "N",
                                           "compress with N threads, the same bytes (default: "
                                           "the processors available, at most 8)"};

const std::vector<ToolCommand>& ToolCommands() {
  static const std::vector<ToolCommand> commands = {
      {{"build",
        "DESCRIPTION PACKAGE",
        2,
        "build a package from a description file",
        "Reads the description file and writes the package file. With --digest, the\n"
        "package's header begins with a \"Digest = sha256:...\" line, the SHA-256 of its\n"
        "record stream, which verify checks. With --sort, directory captures list their\n"
        "files and subdirectories in byte order of their names, so that the same tree\n"
        "gives the same package whatever order its files were made in.",
        {kBaseOption,
         {"--digest", Value::kNone, nullptr, "write an integrity digest into the header"},
         kSortOptionSyntax,
         kThreadsOptionSyntax}},
       RunBuild},
      {{"check",
        "DESCRIPTION",
        1,
        "validate a description file, writing nothing",
        "Checks every command and source of the description file; writes nothing.",
        {kBaseOption, kSortOptionSyntax}},
       RunCheck},
      {{"install",
        "PACKAGE DESTDIR",
        2,
        "install a package into a directory",
        "Installs the package into DESTDIR (created when missing), printing the\n"
        "installer's progress lines. First it checks the whole package against DESTDIR\n"
        "and refuses it, writing nothing, when any record would act outside DESTDIR\n"
        "(a \"..\" or absolute name, a record before the first [Dir], a path through a\n"
        "symbolic link that leads out) or is malformed; while installing it never\n"
        "follows a link out of DESTDIR. With --pubkey, the package's minisign signature\n"
        "PACKAGE.minisig is checked before anything else, also with --trust.",
        {{"--quiet", Value::kNone, nullptr, "print no progress lines"},
         {"--trust", Value::kNone, nullptr,
          "skip the checks and install exactly as tkinstall does"},
         kPubkeyOptionSyntax}},
       RunInstall},
      {{"header",
        "PACKAGE",
        1,
        "print the header lines of a package",
        "Prints the \"key = value\" lines of the package's HEADER sections, one a line.",
        {kJsonOptionSyntax}},
       RunHeader},
      {{"list",
        "PACKAGE",
        1,
        "list the records of a package",
        "Prints one line per record in file order: its kind and the path it acts on,\n"
        "relative to the installation directory.",
        {{"--long", Value::kNone, nullptr, "add content sizes and a summary line"},
         kJsonOptionSyntax}},
       RunList},
      {{"verify",
        "PACKAGE",
        1,
        "check every record of a package",
        "Decodes the whole package and walks every record without installing anything;\n"
        "reports each problem with the record's position. Exit status 1 when there is any.\n"
        "With --pubkey, first checks the package's minisign signature PACKAGE.minisig\n"
        "against the public key and stops with status 1 when it is missing or bad.",
        {kPubkeyOptionSyntax, kJsonOptionSyntax}},
       RunVerify},
      {{"diff",
        "PACKAGE DIR",
        2,
        "compare a directory with what a package installs",
        "Follows the package's records without writing anything and compares DIR with\n"
        "the tree they make: one line per difference, \"missing\", \"notdir\",\n"
        "\"notfile\", \"size\", \"content\", \"mode\" (execute bits), \"removed\" (a path the\n"
        "package removes is there), \"outside\" (a link on the way leads out of DIR),\n"
        "\"extra\" (with --extra: not the package's). Text conversions count: a file is\n"
        "compared with what [TextFile] and [TextDir] make of it. Exit status 0 when DIR\n"
        "matches, 1 when it does not.",
        {{"--extra", Value::kNone, nullptr, "also list what the package does not know"},
         {"--quiet", Value::kNone, nullptr, "print nothing; the exit status tells"},
         kJsonOptionSyntax}},
       RunDiff},
      {{"uninstall",
        "PACKAGE DIR",
        2,
        "remove what a package installed",
        "Removes the files of the package whose content is still what it installed, then\n"
        "the directories it makes that are left empty, deepest first. Files changed since\n"
        "are kept and listed, files the package does not know are never touched, DIR\n"
        "itself stays, and no symbolic link is followed out of DIR. Exit status 1 when\n"
        "anything was kept.",
        {{"--force", Value::kNone, nullptr, "remove changed files too"},
         {"--dry-run", Value::kNone, nullptr, "only list what would go"},
         {"--quiet", Value::kNone, nullptr, "print nothing; the exit status tells"}}},
       RunUninstall},
      {{"sign",
        "PACKAGE",
        1,
        "sign a package with a minisign secret key",
        "Writes the detached signature PACKAGE.minisig with the secret key, in the format\n"
        "of minisign (checked with 'minisign -Vm PACKAGE -p PUBLIC_KEY_FILE'). A key with\n"
        "a password asks for it on the terminal unless --password-file names a file\n"
        "whose first line it is.",
        {{"--key", Value::kText, "SECRET_KEY_FILE", "the minisign secret key (required)"},
         {"--password-file", Value::kText, "FILE", "read the key's password from FILE"}}},
       RunSign},
      {{"compress",
        "IN OUT",
        2,
        "compress a file with the LZHUF codec",
        "Compresses the file IN into the file OUT.",
        {kThreadsOptionSyntax}},
       RunCompress},
      {{"decompress",
        "IN OUT",
        2,
        "decompress a file compressed with the LZHUF codec",
        "Decompresses the file IN into the file OUT.",
        {{"--limit", Value::kByteCount, "N", "stop after about N bytes of output"}}},
       RunDecompress},
  };
  return commands;
}

const ToolCommand* FindToolCommand(const std::string& name) {
  for (const ToolCommand& command : ToolCommands()) {
    if (name == command.syntax.name) return &command;
  }
  return nullptr;
}

std::string ToolUsage() {
  return "usage: tkpack COMMAND ARGUMENTS... [--help]\n"
         "       tkpack --help | --version\n";
}

std::string ToolHelp() {
  std::string help = ToolUsage() +
                     "\nBuilds, checks, installs, lists, verifies and signs TAVIK package files.\n"
                     "\nCommands:\n";
  for (const ToolCommand& command : ToolCommands()) {
    std::string name = std::string("  ") + command.syntax.name;
    name.resize(kSummaryColumn, ' ');
    help += name + command.syntax.summary + "\n";
  }
  return help +
         "\nRun 'tkpack COMMAND --help' for the arguments of a command.\n"
         "Exit status: 0 success, 1 failure or problems found, 2 usage error.\n";
}

int UsageError(const std::string& message, const std::string& usage) {
  std::fprintf(stderr, "tkpack: %s\n%s", message.c_str(), usage.c_str());
  return kExitUsage;
}

int RunToolCommand(const ToolCommand& command, const std::vector<std::string>& arguments) {
  CommandLine line;
  std::string error;
  switch (ParseCommandLine(command.syntax, arguments, line, error)) {
    case ParseResult::kHelp:
      std::fputs(CommandHelp(command.syntax).c_str(), stdout);
      return kExitSuccess;
    case ParseResult::kUsageError:
      return UsageError(std::string(command.syntax.name) + ": " + error,
                        UsageLine(command.syntax) + "\n");
    case ParseResult::kOk:
      break;
  }
  ToolIo io;
  io.errIsTerminal = isatty(fileno(stderr)) != 0;
  return command.run(line, io);
}

}  // namespace

int ThreadsOption(const CommandLine& line) {
  uint64_t threads = 0;  // the parser has checked the number
  ParseByteCount(line.Value(kThreadsOption, "0"), threads);
  if (threads == 0) return LzhufAvailableThreads();
  return static_cast<int>(std::min<uint64_t>(threads, kLzhufMaxThreads));
}

int ReportFailure(ToolIo& io, const std::string& message) {
  std::fprintf(io.err, "tkpack: %s\n", message.c_str());
  return kExitFailure;
}

int TkpackMain(int argc, char** argv) {
  if (argc < 2) return UsageError("no command given", ToolUsage());
  const std::string first = argv[1];
  if (first == "--help") {
    std::fputs(ToolHelp().c_str(), stdout);
    return kExitSuccess;
  }
  if (first == "--version") {
    std::printf("tkpack %s\n", TK_VERSION);
    return kExitSuccess;
  }
  const ToolCommand* command = FindToolCommand(first);
  if (command == nullptr) {
    const char* what = first.starts_with("-") ? "unknown option '" : "unknown command '";
    return UsageError(what + first + "'", ToolUsage());
  }
  return RunToolCommand(*command, std::vector<std::string>(argv + 2, argv + argc));
}

}  // namespace tk
