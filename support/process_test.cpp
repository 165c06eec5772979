#include "support/process.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace tk {
namespace {

using Clock = std::chrono::steady_clock;

class RunCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tk_process_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  std::string Path(const char* name) const { return dir_ + "/" + name; }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
  }
  static double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
  }

  std::string dir_;
};

TEST_F(RunCommandTest, NormalEndReportsExitCode) {
  struct Case {
    const char* command;
    int result;
    int32_t exitStatus;
  } cases[] = {
      {"true", 0, 0},
      {"exit 3", 0, 3},
      {"\t exit   200 \r\n", 0, 200},
      {"exit 255", 0, 255},
      {"exit 127", -1, 0},
      {"tk_no_such_command_anywhere 2>/dev/null", -1, 0},
      {"kill -TERM $$", -1, 0},
  };
  for (const Case& c : cases) {
    int32_t status = -7;
    EXPECT_EQ(RunCommand(c.command, &status, kRunWaitForever), c.result) << c.command;
    EXPECT_EQ(status, c.exitStatus) << c.command;
  }
}

TEST_F(RunCommandTest, NullOrBlankCommandFailsWithoutRunning) {
  for (const char* command : {static_cast<const char*>(nullptr), "", "   ", " \t\r\n\t "}) {
    int32_t status = 9;
    EXPECT_EQ(RunCommand(command, &status, kRunWaitForever), -1);
    EXPECT_EQ(status, 0);
  }
}

TEST_F(RunCommandTest, ChildSharesEnvironmentAndWorkingDirectory) {
  setenv("TK_PROCESS_TEST_VALUE", "from parent", 1);
  const std::string command = "printf '%s|%s' \"$TK_PROCESS_TEST_VALUE\" \"$(pwd)\" > " +
                              Path("out");
  int32_t status = -1;
  ASSERT_EQ(RunCommand(command.c_str(), &status, kRunWaitForever), 0);
  EXPECT_EQ(status, 0);
  char cwd[4096];
  ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
  EXPECT_EQ(Read(Path("out")), std::string("from parent|") + cwd);
  unsetenv("TK_PROCESS_TEST_VALUE");
}

TEST_F(RunCommandTest, WaitsForASlowCommandWithoutLimit) {
  const Clock::time_point start = Clock::now();
  int32_t status = -1;
  EXPECT_EQ(RunCommand(("sleep 1; echo done > " + Path("out")).c_str(), &status,
                       kRunWaitForever),
            0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Read(Path("out")), "done\n");
  EXPECT_GE(SecondsSince(start), 1.0);
}

TEST_F(RunCommandTest, TimeoutKillsAndReapsTheChild) {
  const Clock::time_point start = Clock::now();
  int32_t status = -1;
  const std::string command = "echo $$ > " + Path("pid") + "; sleep 5; touch " + Path("late");
  EXPECT_EQ(RunCommand(command.c_str(), &status, 2), -2);
  const double elapsed = SecondsSince(start);
  EXPECT_EQ(status, 0);
  EXPECT_GE(elapsed, 2.0);
  EXPECT_LT(elapsed, 6.0);
  // The shell was reaped: its pid no longer names a child of ours.
  const pid_t shell = static_cast<pid_t>(std::atoi(Read(Path("pid")).c_str()));
  ASSERT_GT(shell, 0);
  EXPECT_EQ(waitpid(shell, nullptr, WNOHANG), -1);
}

TEST_F(RunCommandTest, TimeoutZeroLeavesTheChildRunning) {
  const Clock::time_point start = Clock::now();
  int32_t status = -1;
  const std::string command = "sleep 1; echo late > " + Path("late");
  EXPECT_EQ(RunCommand(command.c_str(), &status, kRunNoWait), 0);
  EXPECT_EQ(status, 0);
  EXPECT_LT(SecondsSince(start), 0.9);
  EXPECT_EQ(access(Path("late").c_str(), F_OK), -1);
  while (Read(Path("late")) != "late\n" && SecondsSince(start) < 20) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_EQ(Read(Path("late")), "late\n");
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

TEST_F(RunCommandTest, LongCommandIsCutAtTheLimit) {
  const std::string prefix = ">" + Path("out") + " printf %s ";
  const std::string command = prefix + std::string(9000 - prefix.size(), 'a');
  int32_t status = -1;
  ASSERT_EQ(RunCommand(command.c_str(), &status, kRunWaitForever), 0);
  EXPECT_EQ(Read(Path("out")), std::string(kMaxCommandLength - prefix.size(), 'a'));
}

TEST(SharedLibraryTest, GuardsRejectEmptyInputAndPassTheRestToTheLoader) {
  EXPECT_EQ(OpenSharedLibrary(nullptr), nullptr);
  EXPECT_EQ(OpenSharedLibrary(""), nullptr);
  EXPECT_EQ(OpenSharedLibrary("libtk_no_such_library.so"), nullptr);
  EXPECT_EQ(FindSharedSymbol(nullptr, "strlen"), nullptr);
  CloseSharedLibrary(nullptr);

  void* libc = OpenSharedLibrary("libc.so.6");
  ASSERT_NE(libc, nullptr);
  EXPECT_NE(FindSharedSymbol(libc, "strlen"), nullptr);
  EXPECT_EQ(FindSharedSymbol(libc, nullptr), nullptr);
  EXPECT_EQ(FindSharedSymbol(libc, ""), nullptr);
  EXPECT_EQ(FindSharedSymbol(libc, "tk_no_such_symbol"), nullptr);
  CloseSharedLibrary(libc);
}

}  // namespace
}  // namespace tk
