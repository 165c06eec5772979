// The progress display and what feeds it, in-process: the text, when it is drawn, that
// it erases only its own characters, and that the file watcher and the codec commands
// report real positions.
#include "tkpack/progress.h"

#include <fcntl.h>
#include <unistd.h>

#include <random>
#include <thread>
#include <vector>

#include "tkpack/commands.h"
#include "tkpack/file_watcher.h"
#include "tkpack/output_relay.h"
#include "tkpack/tkpack_test_fixture.h"
#include "tkpack/tool.h"

namespace tk {
namespace {

using TkpackProgress = TkpackTest;

// What a terminal shows after `text` is written to it: a LF starts a new line,
// backspaces move the cursor left (never past the line's start), other characters
// overwrite. Lines lose their trailing blanks.
std::string Screen(const std::string& text) {
  std::vector<std::string> lines(1);
  std::size_t cursor = 0;
  for (const char c : text) {
    std::string& line = lines.back();
    if (c == '\n') {
      lines.emplace_back();
      cursor = 0;
    } else if (c == '\b') {
      if (cursor > 0) --cursor;
    } else {
      if (cursor == line.size()) line.push_back(c);
      else line[cursor] = c;
      ++cursor;
    }
  }
  std::string screen;
  for (const std::string& line : lines) {
    if (&line != &lines.front()) screen += "\n";
    screen += line.substr(0, line.find_last_not_of(' ') + 1);
  }
  return screen;
}

// A display drawing into a file, and what the file holds.
struct Recorder {
  FILE* file = std::tmpfile();
  ~Recorder() { std::fclose(file); }
  std::string Text() const {
    std::fflush(file);
    std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    text.resize(std::fread(text.data(), 1, text.size(), file));
    return text;
  }
};

void WaitForRedraw() { std::this_thread::sleep_for(kRedrawInterval + kRedrawInterval / 2); }

TEST(ProgressText, ShowsDoneTotalAndRate) {
  struct Case {
    int64_t done;
    int64_t total;
    double seconds;
    const char* text;
  };
  const Case cases[] = {
      {0, 0, 1.0, "  [x 0 B of 0 B (100%), 0 B/s]"},
      {512, 2048, 2.0, "  [x 512 B of 2.0 KiB (25%), 256 B/s]"},
      {3 << 20, 12 << 20, 0.5, "  [x 3.0 MiB of 12.0 MiB (25%), 6.0 MiB/s]"},
      {int64_t{5} << 30, -1, 4.0, "  [x 5.0 GiB, 1.2 GiB/s]"},
      {100, 50, 0.0, "  [x 100 B of 50 B (100%), 97.7 KiB/s]"},
  };
  for (const Case& c : cases) EXPECT_EQ(FormatProgress("x", c.done, c.total, c.seconds), c.text);
}

TEST(ProgressDisplayTest, DrawsOnlyLargeStagesOnATerminalAfterAnInterval) {
  Recorder off;
  ProgressDisplay disabled(off.file, false);
  disabled.Update("s", 1, kLargeInputBytes);
  WaitForRedraw();
  disabled.Update("s", 2, kLargeInputBytes);
  EXPECT_EQ(off.Text(), "");

  Recorder on;
  ProgressDisplay display(on.file, true);
  display.Update("small", 10, kLargeInputBytes - 1);
  WaitForRedraw();
  display.Update("small", 20, kLargeInputBytes - 1);
  EXPECT_EQ(on.Text(), "");
  display.Update("large", 0, kLargeInputBytes);
  EXPECT_EQ(on.Text(), "") << "a new stage waits an interval";
  WaitForRedraw();
  display.Update("large", kLargeInputBytes / 2, kLargeInputBytes);
  EXPECT_TRUE(Screen(on.Text()).starts_with("  [large 512.0 KiB of 1.0 MiB (50%), "))
      << on.Text();
}

TEST(ProgressDisplayTest, ErasesOnlyItsOwnText) {
  Recorder screen;
  std::fputs("Directory Bin", screen.file);
  ProgressDisplay display(screen.file, true);
  display.Update("decoding", 0, int64_t{100} << 20);
  WaitForRedraw();
  display.Update("decoding", int64_t{99} << 20, int64_t{100} << 20);
  WaitForRedraw();
  display.Update("decoding", int64_t{2} << 20, -1);  // a shorter text after a longer one
  EXPECT_TRUE(Screen(screen.Text()).starts_with("Directory Bin  [decoding 2.0 MiB, "))
      << Screen(screen.Text());
  display.Clear();
  EXPECT_EQ(Screen(screen.Text()), "Directory Bin");
}

TEST_F(TkpackProgress, WatcherFindsTheDescriptorThatReadsOrWrites) {
  WriteFile("data", std::string(100000, 'd'));
  const WatchedFile reading{"r", Path("data"), WatchedFile::Access::kReading};
  const WatchedFile writing{"w", Path("data"), WatchedFile::Access::kWriting};
  int64_t done = -5;
  int64_t total = -5;
  EXPECT_FALSE(SampleWatchedFile(reading, done, total));
  EXPECT_FALSE(SampleWatchedFile(writing, done, total));

  const int in = open(Path("data").c_str(), O_RDONLY);
  ASSERT_GE(in, 0);
  ASSERT_EQ(lseek(in, 4321, SEEK_SET), 4321);
  EXPECT_TRUE(SampleWatchedFile(reading, done, total));
  EXPECT_EQ(done, 4321);
  EXPECT_EQ(total, 100000);
  EXPECT_FALSE(SampleWatchedFile(writing, done, total));

  const int out = open(Path("data").c_str(), O_WRONLY | O_APPEND);
  ASSERT_EQ(write(out, "xyz", 3), 3);
  EXPECT_TRUE(SampleWatchedFile(writing, done, total));
  EXPECT_EQ(done, 100003);
  EXPECT_EQ(total, -1);
  close(in);
  close(out);
}

TEST_F(TkpackProgress, RelayedEngineLinesAndTheDisplayNeverOverwriteEachOther) {
  WriteFile("data", std::string(kLargeInputBytes, 'd'));
  const int in = open(Path("data").c_str(), O_RDONLY);
  ASSERT_EQ(lseek(in, kLargeInputBytes / 4, SEEK_SET), kLargeInputBytes / 4);
  // One "terminal" file that both standard output and the display append to.
  const std::string terminal = Path("terminal");
  const int screen = open(terminal.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  FILE* err = std::fopen(terminal.c_str(), "a");
  std::fflush(stdout);
  const int savedStdout = dup(STDOUT_FILENO);
  dup2(screen, STDOUT_FILENO);
  {
    OutputRelay relay;
    const bool started = relay.Start();
    ProgressDisplay display(err, true);
    FileProgressWatcher watcher(display, {{"reading", Path("data")}}, &relay);
    for (const char* line : {"\nUncompressing package file", "\nDirectory Bin"}) {
      std::fputs(line, stdout);
      std::fflush(stdout);
      WaitForRedraw();
      WaitForRedraw();
    }
    watcher.Stop();
    relay.Finish();
    EXPECT_TRUE(started);
  }
  std::fflush(stdout);
  dup2(savedStdout, STDOUT_FILENO);
  close(savedStdout);
  close(screen);
  std::fclose(err);
  close(in);
  const std::string text = ReadFile(terminal);
  EXPECT_NE(text.find("Uncompressing package file  [reading 256.0 KiB of 1.0 MiB (25%), "),
            std::string::npos)
      << text;
  EXPECT_EQ(Screen(text), "\nUncompressing package file\nDirectory Bin");
}

TEST_F(TkpackProgress, CompressShowsItsProgressOnlyOnATerminal) {
  // Letters at random: enough work for the codec to outlast a redraw interval.
  std::mt19937 generator(3);
  std::string text(6 * kLargeInputBytes, ' ');
  for (char& c : text) c = static_cast<char>('a' + generator() % 26);
  WriteFile("big.txt", text);
  for (const bool terminal : {false, true}) {
    Recorder out;
    Recorder err;
    ToolIo io{out.file, err.file, terminal};
    CommandLine line;
    line.operands = {Path("big.txt"), Path("big.lzh")};
    EXPECT_EQ(RunCompress(line, io), kExitSuccess);
    EXPECT_EQ(Screen(err.Text()), "");
    EXPECT_EQ(err.Text().find("  [compressing ") != std::string::npos, terminal)
        << err.Text();
  }
}

}  // namespace
}  // namespace tk
