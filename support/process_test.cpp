#include "support/process.h"

#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <tuple>

#include "testing/temp_dir_fixture.h"

namespace tk {
namespace {

using RunCommandTest = test::TempDirTest;
using Clock = std::chrono::steady_clock;

// Each command runs without a time limit; the status starts at 0 whatever happens.
TEST_F(RunCommandTest, ReportsTheExitCodeOfANormalEnd) {
  const std::tuple<const char*, int, int> cases[] = {
      {"\texit  200\r\n", 0, 200}, {"sleep 1; exit 3", 0, 3},
      {"exit 127", -1, 0},         {nullptr, -1, 0},
      {"kill -TERM $$", -1, 0},    {" \t\r\n\t ", -1, 0},
      {"tk_no_such 2>&-", -1, 0}};
  for (const auto& [command, result, status] : cases) {
    int32_t got = -7;
    EXPECT_EQ(RunCommand(command, &got, kRunWaitForever), result) << command;
    EXPECT_EQ(got, status) << command;
  }
  // The child shares the caller's environment and working directory.
  setenv("TK_PROCESS_TEST", "from parent", 1);
  const std::string shared = "[ \"$TK_PROCESS_TEST|$(pwd)\" = 'from parent|" +
                             std::filesystem::current_path().string() + "' ] || kill $$";
  EXPECT_EQ(RunCommand(shared.c_str(), nullptr, kRunWaitForever), 0);
  unsetenv("TK_PROCESS_TEST");
}

// Time-out 0 returns at once and leaves the child running; time-out 2 on a longer
// command ends it with SIGTERM and reaps it, while the first child goes on.
TEST_F(RunCommandTest, TimeOutsLeaveOrEndTheChild) {
  const auto start = Clock::now();
  int32_t status = -1;
  EXPECT_EQ(RunCommand(("sleep 1; echo late > " + Path("late")).c_str(), &status, kRunNoWait), 0);
  EXPECT_EQ(status, 0);
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(900));
  status = -1;
  // The sleep closes its output, so that, left behind, it keeps no pipe of the caller open.
  const std::string command = "echo $$ > " + Path("pid") + "; sleep 5 >&- 2>&-";
  EXPECT_EQ(RunCommand(command.c_str(), &status, 2), -2);
  EXPECT_EQ(status, 0);
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(2));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
  EXPECT_EQ(ReadFile("late"), "late\n");
  // The shell was reaped: its pid no longer names a child of ours.
  EXPECT_EQ(waitpid(std::stoi(ReadFile("pid")), nullptr, WNOHANG), -1);
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

TEST_F(RunCommandTest, LongCommandIsCutAtTheLimit) {
  const std::string prefix = ">" + Path("out") + " printf %s ";
  const std::string command = prefix + std::string(9000 - prefix.size(), 'a');
  ASSERT_EQ(RunCommand(command.c_str(), nullptr, kRunWaitForever), 0);
  EXPECT_EQ(ReadFile("out"), std::string(kMaxCommandLength - prefix.size(), 'a'));
}

// Null and empty names never reach the loader; the rest is the loader's answer.
TEST_F(RunCommandTest, SharedLibraryGuards) {
  void* libc = OpenSharedLibrary("libc.so.6");
  ASSERT_NE(libc, nullptr);
  EXPECT_NE(FindSharedSymbol(libc, "strlen"), nullptr);
  for (const char* name : {static_cast<const char*>(nullptr), "", "tk_no_such_name"}) {
    EXPECT_EQ(OpenSharedLibrary(name), nullptr);
    EXPECT_EQ(FindSharedSymbol(libc, name), nullptr);
  }
  EXPECT_EQ(FindSharedSymbol(nullptr, "strlen"), nullptr);
  CloseSharedLibrary(nullptr);
  CloseSharedLibrary(libc);
}

}  // namespace
}  // namespace tk
