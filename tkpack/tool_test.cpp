// The command line as a whole: help and version, and usage errors (exit status 2,
// nothing done) for the tool and its commands.
#include "tkpack/tkpack_test_fixture.h"

namespace tk {
namespace {

using TkpackTool = TkpackTest;

constexpr const char* kToolUsage =
    "usage: tkpack COMMAND ARGUMENTS... [--help]\n       tkpack --help | --version\n";

TEST_F(TkpackTool, HelpAndVersionGoToStandardOutput) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"--version"}, "tkpack 1."},
      {{"--help"}, kToolUsage},
      {{"build", "--help"}, "usage: tkpack build DESCRIPTION PACKAGE [--base DIR]\n"},
      {{"check", "d.txt", "--help"}, "usage: tkpack check DESCRIPTION [--base DIR]\n"},
      {{"install", "--help", "x"}, "usage: tkpack install PACKAGE DESTDIR [--quiet]\n"},
      {{"header", "--help"}, "usage: tkpack header PACKAGE\n"},
      {{"list", "--long", "--help"}, "usage: tkpack list PACKAGE [--long]\n"},
      {{"verify", "--help"}, "usage: tkpack verify PACKAGE\n"},
      {{"compress", "--help"}, "usage: tkpack compress IN OUT\n"},
      {{"decompress", "--help"}, "usage: tkpack decompress IN OUT [--limit N]\n"},
  };
  for (const auto& [words, start] : cases) {
    const test::ChildResult result = Tkpack(words);
    EXPECT_EQ(result.exitStatus, kExitSuccess) << start;
    EXPECT_TRUE(result.out.starts_with(start)) << result.out;
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(TkpackTool, UsageErrorsExitWithTwoAndDoNothing) {
  const std::string build = "usage: tkpack build DESCRIPTION PACKAGE [--base DIR]\n";
  const std::string decompress = "usage: tkpack decompress IN OUT [--limit N]\n";
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, std::string("tkpack: no command given\n") + kToolUsage},
      {{"pack", "x"}, std::string("tkpack: unknown command 'pack'\n") + kToolUsage},
      {{"-v"}, std::string("tkpack: unknown option '-v'\n") + kToolUsage},
      {{"build", "d"}, "tkpack: build: missing operand (expected DESCRIPTION PACKAGE)\n" + build},
      {{"build", "d", "a", "b"}, "tkpack: build: unexpected operand 'b'\n" + build},
      {{"build", "d", "a", "--fast"}, "tkpack: build: unknown option '--fast'\n" + build},
      {{"build", "d", "a", "--base"},
       "tkpack: build: option '--base' needs a value (DIR)\n" + build},
      {{"install", "a", "b", "--quiet=1"},
       "tkpack: install: option '--quiet' takes no value\n"
       "usage: tkpack install PACKAGE DESTDIR [--quiet]\n"},
      {{"decompress", "a", "b", "--limit", "12k"},
       "tkpack: decompress: option '--limit' wants a number of bytes, not '12k'\n" + decompress},
      {{"decompress", "a", "b", "--limit=99999999999999999999"},
       "tkpack: decompress: option "
       "'--limit' wants a number of bytes, not '99999999999999999999'\n" +
           decompress},
  };
  for (const auto& [words, err] : cases) ExpectRun(Tkpack(words), kExitUsage, "", err);
  EXPECT_EQ(Snapshot("."), (std::map<std::string, std::string>{{"tmp", "dir"}}));
}

}  // namespace
}  // namespace tk
