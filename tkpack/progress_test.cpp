// The progress display and what feeds it, in-process: its text, that it draws only
// large stages on a terminal, that it erases only its own characters, and that the
// relayed engine lines and the display never write over each other.
#include "tkpack/progress.h"

#include <fcntl.h>
#include <unistd.h>

#include <random>
#include <thread>

#include "testing/temp_dir_fixture.h"
#include "tkpack/commands.h"
#include "tkpack/file_watcher.h"
#include "tkpack/output_relay.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

using TkpackProgress = test::TempDirTest;

// What a terminal shows after `text`: LF starts a line, backspace moves left (never
// past the line's start), anything else overwrites. Trailing blanks are dropped.
std::string Screen(const std::string& text) {
  std::string screen;
  std::size_t lineStart = 0, cursor = 0;
  for (const char c : text) {
    if (c == '\b') {
      cursor = std::max(cursor, lineStart + 1) - 1;
    } else if (c == '\n') {
      screen.erase(screen.find_last_not_of(' ') + 1).push_back(c);
      lineStart = cursor = screen.size();
    } else {
      screen.resize(std::max(screen.size(), cursor + 1), ' ');
      screen[cursor++] = c;
    }
  }
  return screen.erase(screen.find_last_not_of(' ') + 1);
}

void WaitForRedraw() { std::this_thread::sleep_for(kRedrawInterval * 2); }

TEST_F(TkpackProgress, DrawsLargeStagesOnATerminalAndErasesOnlyItsOwnText) {
  for (const bool terminal : {false, true}) {
    FILE* screen = std::fopen(Path("screen").c_str(), "w");
    const auto shown = [&] {
      std::fflush(screen);
      return ReadFile("screen");
    };
    std::fputs("Directory Bin", screen);
    ProgressDisplay display(screen, terminal);
    display.Update("small", 0, kLargeInputBytes - 1);
    WaitForRedraw();
    display.Update("small", kLargeInputBytes - 2, kLargeInputBytes - 1);
    display.Update("large", 0, int64_t{100} << 20);
    EXPECT_EQ(shown(), "Directory Bin") << "a small stage, and a new one before an interval";
    WaitForRedraw();
    display.Update("large", int64_t{99} << 20, int64_t{100} << 20);
    WaitForRedraw();
    display.Update("large", int64_t{2} << 20, -1);  // shorter text over a longer one
    EXPECT_EQ(Screen(shown()).starts_with("Directory Bin  [large 2.0 MiB, "), terminal) << shown();
    display.Clear();
    EXPECT_EQ(Screen(shown()), "Directory Bin");
    std::fclose(screen);
  }
}

TEST_F(TkpackProgress, RelayedEngineLinesAndTheDisplayNeverOverwriteEachOther) {
  WriteFile("data", std::string(kLargeInputBytes, 'd'));
  const int in = open(Path("data").c_str(), O_RDONLY);
  ASSERT_EQ(lseek(in, kLargeInputBytes / 4, SEEK_SET), kLargeInputBytes / 4);
  // One "terminal" that standard output and the display both append to.
  FILE* terminal = std::fopen(Path("terminal").c_str(), "a");
  std::fflush(stdout);
  const int savedStdout = dup(STDOUT_FILENO);
  dup2(fileno(terminal), STDOUT_FILENO);
  {
    OutputRelay relay;
    EXPECT_TRUE(relay.Start());
    ProgressDisplay display(terminal, true);
    // Of the stages under way, the last is shown.
    FileProgressWatcher watcher(display, {{"earlier", Path("data")}, {"reading", Path("data")}},
                                &relay);
    for (const char* line : {"\nUncompressing package file", "\nDirectory Bin"}) {
      std::fputs(line, stdout);
      std::fflush(stdout);
      WaitForRedraw();
    }
    watcher.Stop();
    relay.Finish();
  }
  dup2(savedStdout, STDOUT_FILENO);
  for (const int descriptor : {savedStdout, in}) close(descriptor);
  std::fclose(terminal);
  const std::string text = ReadFile("terminal");
  EXPECT_NE(text.find("Uncompressing package file  [reading 256.0 KiB of 1.0 MiB (25%), "),
            std::string::npos)
      << text;
  EXPECT_EQ(Screen(text), "\nUncompressing package file\nDirectory Bin");
}

TEST_F(TkpackProgress, CompressShowsItsProgressOnlyOnATerminal) {
  std::mt19937 generator(3);  // random letters keep the codec busy past an interval
  std::string text(6 * kLargeInputBytes, ' ');
  for (char& c : text) c = static_cast<char>('a' + generator() % 26);
  WriteFile("big.txt", text);
  // One thread: two would finish before the display's first interval is up.
  const CommandLine line{{Path("big.txt"), Path("big.lzh")}, {{kThreadsOption, "1"}}};
  for (const bool terminal : {false, true}) {
    ToolIo io{std::fopen(Path("out").c_str(), "w"), std::fopen(Path("err").c_str(), "w"), terminal};
    EXPECT_EQ(RunCompress(line, io), kExitSuccess);
    std::fclose(io.out);
    std::fclose(io.err);
    EXPECT_EQ(ReadFile("err").find("  [compressing ") != std::string::npos, terminal);
    EXPECT_EQ(Screen(ReadFile("err")), "");
  }
}

}  // namespace
}  // namespace tk
