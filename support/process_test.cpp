#include "support/process.h"

#include <sys/wait.h>

#include <cstdlib>

#include "support/test_util.h"

namespace tk {
namespace {

using Clock = std::chrono::steady_clock;
using RunCommandTest = test::TempDirTest;
using test::SecondsSince;

// Each command runs without a time limit, sharing the caller's environment and working
// directory; the status starts at 0 whatever happens.
TEST_F(RunCommandTest, ReportsTheExitCodeOfANormalEnd) {
  setenv("TK_PROCESS_TEST_VALUE", "from parent", 1);
  const std::string shared = "[ \"$TK_PROCESS_TEST_VALUE|$(pwd)\" = 'from parent|" +
                             std::filesystem::current_path().string() + "' ] || exit 9";
  const struct {
    const char* command;
    int result, status;
  } cases[] = {
      {"true", 0, 0},
      {"\t exit   200 \r\n", 0, 200},
      {"exit 255", 0, 255},
      {"sleep 1; exit 3", 0, 3},
      {shared.c_str(), 0, 0},
      {"exit 127", -1, 0},
      {"kill -TERM $$", -1, 0},
      {"", -1, 0},
      {" \t\r\n\t ", -1, 0},
      {nullptr, -1, 0},
      {"tk_no_such_command_anywhere 2>/dev/null", -1, 0},
  };
  for (const auto& c : cases) {
    int32_t status = -7;
    EXPECT_EQ(RunCommand(c.command, &status, kRunWaitForever), c.result) << c.command;
    EXPECT_EQ(status, c.status) << c.command;
  }
  unsetenv("TK_PROCESS_TEST_VALUE");
}

// Time-out 0 returns at once and leaves the child running; time-out 2 on a longer
// command ends it with SIGTERM and reaps it, while the first child goes on.
TEST_F(RunCommandTest, TimeOutsLeaveOrEndTheChild) {
  const Clock::time_point start = Clock::now();
  int32_t status = -1;
  EXPECT_EQ(RunCommand(("sleep 1; echo late > " + P("late")).c_str(), &status, kRunNoWait), 0);
  EXPECT_EQ(status, 0);
  EXPECT_LT(SecondsSince(start), 0.9);
  EXPECT_EQ(Read("late"), "");
  const std::string command = "echo $$ > " + P("pid") + "; sleep 5; touch " + P("never");
  status = -1;
  EXPECT_EQ(RunCommand(command.c_str(), &status, 2), -2);
  EXPECT_EQ(status, 0);
  EXPECT_GE(SecondsSince(start), 2.0);
  EXPECT_LT(SecondsSince(start), 6.0);
  EXPECT_EQ(Read("late"), "late\n");
  // The shell was reaped: its pid no longer names a child of ours.
  const pid_t shell = static_cast<pid_t>(std::atoi(Read("pid").c_str()));
  ASSERT_GT(shell, 0);
  EXPECT_EQ(waitpid(shell, nullptr, WNOHANG), -1);
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

TEST_F(RunCommandTest, LongCommandIsCutAtTheLimit) {
  const std::string prefix = ">" + P("out") + " printf %s ";
  const std::string command = prefix + std::string(9000 - prefix.size(), 'a');
  ASSERT_EQ(RunCommand(command.c_str(), nullptr, kRunWaitForever), 0);
  EXPECT_EQ(Read("out"), std::string(kMaxCommandLength - prefix.size(), 'a'));
}

TEST(SharedLibraryTest, GuardsRejectEmptyInputAndPassTheRestToTheLoader) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "libtk_no_such_library.so"}) {
    EXPECT_EQ(OpenSharedLibrary(name), nullptr);
  }
  EXPECT_EQ(FindSharedSymbol(nullptr, "strlen"), nullptr);
  CloseSharedLibrary(nullptr);
  void* libc = OpenSharedLibrary("libc.so.6");
  ASSERT_NE(libc, nullptr);
  EXPECT_NE(FindSharedSymbol(libc, "strlen"), nullptr);
  for (const char* name : {static_cast<const char*>(nullptr), "", "tk_no_such_symbol"}) {
    EXPECT_EQ(FindSharedSymbol(libc, name), nullptr);
  }
  CloseSharedLibrary(libc);
}

}  // namespace
}  // namespace tk
