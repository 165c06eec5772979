// The command line as a whole: help, version, and usage errors (exit status 2, with
// nothing done) for the tool and every command.
#include "tkpack/tool.h"

#include "tkpack/tkpack_test_fixture.h"

namespace tk {
namespace {

using TkpackTool = TkpackTest;

constexpr const char* kToolUsage =
    "usage: tkpack COMMAND ARGUMENTS... [--help]\n"
    "       tkpack --help | --version\n";

TEST_F(TkpackTool, VersionAndHelpGoToStandardOutput) {
  const test::ChildResult version = Tkpack({"--version"});
  EXPECT_EQ(version.exitStatus, kExitSuccess);
  EXPECT_TRUE(version.out.starts_with("tkpack ")) << version.out;
  EXPECT_EQ(version.err, "");

  const test::ChildResult help = Tkpack({"--help"});
  EXPECT_EQ(help.exitStatus, kExitSuccess);
  EXPECT_TRUE(help.out.starts_with(kToolUsage)) << help.out;
  for (const char* command :
       {"build", "check", "install", "header", "list", "verify", "compress", "decompress"}) {
    EXPECT_NE(help.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
  }
  EXPECT_EQ(help.err, "");
}

TEST_F(TkpackTool, EveryCommandHasHelp) {
  struct Case {
    std::vector<std::string> words;
    const char* usage;
  };
  const Case cases[] = {
      {{"build", "--help"}, "usage: tkpack build DESCRIPTION PACKAGE [--base DIR]\n"},
      {{"check", "d.txt", "--help"}, "usage: tkpack check DESCRIPTION [--base DIR]\n"},
      {{"install", "--help", "x"}, "usage: tkpack install PACKAGE DESTDIR [--quiet]\n"},
      {{"header", "--help"}, "usage: tkpack header PACKAGE\n"},
      {{"list", "--long", "--help"}, "usage: tkpack list PACKAGE [--long]\n"},
      {{"verify", "--help"}, "usage: tkpack verify PACKAGE\n"},
      {{"compress", "--help"}, "usage: tkpack compress IN OUT\n"},
      {{"decompress", "--help"}, "usage: tkpack decompress IN OUT [--limit N]\n"},
  };
  for (const Case& c : cases) {
    const test::ChildResult result = Tkpack(c.words);
    EXPECT_EQ(result.exitStatus, kExitSuccess) << c.usage;
    EXPECT_TRUE(result.out.starts_with(c.usage)) << result.out;
    EXPECT_NE(result.out.find("\n  --help          show this text\n"), std::string::npos);
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(TkpackTool, UsageErrorsExitWithTwoAndDoNothing) {
  WriteSample();
  struct Case {
    std::vector<std::string> words;
    std::string err;
  };
  const std::string buildUsage = "usage: tkpack build DESCRIPTION PACKAGE [--base DIR]\n";
  const Case cases[] = {
      {{}, std::string("tkpack: no command given\n") + kToolUsage},
      {{"pack", "x"}, std::string("tkpack: unknown command 'pack'\n") + kToolUsage},
      {{"-v"}, std::string("tkpack: unknown option '-v'\n") + kToolUsage},
      {{"build", "src/desc.txt"},
       "tkpack: build: missing operand (expected DESCRIPTION PACKAGE)\n" + buildUsage},
      {{"build", "src/desc.txt", "a.pkg", "b.pkg"},
       "tkpack: build: unexpected operand 'b.pkg'\n" + buildUsage},
      {{"build", "src/desc.txt", "a.pkg", "--fast"},
       "tkpack: build: unknown option '--fast'\n" + buildUsage},
      {{"build", "src/desc.txt", "a.pkg", "--base"},
       "tkpack: build: option '--base' needs a value (DIR)\n" + buildUsage},
      {{"install", "a.pkg", "dest", "--quiet=yes"},
       "tkpack: install: option '--quiet' takes no value\n"
       "usage: tkpack install PACKAGE DESTDIR [--quiet]\n"},
      {{"decompress", "a", "b", "--limit", "12k"},
       "tkpack: decompress: option '--limit' wants a number of bytes, not '12k'\n"
       "usage: tkpack decompress IN OUT [--limit N]\n"},
      {{"decompress", "a", "b", "--limit=99999999999999999999"},
       "tkpack: decompress: option '--limit' wants a number of bytes, not "
       "'99999999999999999999'\nusage: tkpack decompress IN OUT [--limit N]\n"},
      {{"verify"}, "tkpack: verify: missing operand (expected PACKAGE)\n"
                   "usage: tkpack verify PACKAGE\n"},
  };
  const auto before = Everything();
  for (const Case& c : cases) {
    ExpectRun(Tkpack(c.words), kExitUsage, "", c.err);
  }
  EXPECT_EQ(Everything(), before);
}

TEST_F(TkpackTool, DoubleDashEndsTheOptions) {
  WriteFile("--odd.txt", "abc");
  ExpectRun(Tkpack({"compress", "--", "--odd.txt", "odd.lzh"}), kExitSuccess,
            "--odd.txt (3 bytes) -> odd.lzh (7 bytes)\n", "");
}

}  // namespace
}  // namespace tk
