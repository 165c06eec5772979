// The progress display of long tkpack runs: one short text on standard error saying
// how many bytes of the current stage are through, of how many, and at what rate,
// redrawn a few times a second. It is drawn only on a terminal and only for large
// inputs, so scripts and logs never see it.
//
// The display never touches text it did not write: it redraws by backspacing over its
// own last text, so it can sit at the end of a line the engine printed on a shared
// terminal, and Clear() leaves the cursor where the first drawing began.
//
// Not thread-safe: one thread at a time may use a display.
#ifndef TAVIK_TKPACK_PROGRESS_H_
#define TAVIK_TKPACK_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace tk {

// Stages smaller than this end too soon for a display to help.
constexpr int64_t kLargeInputBytes = int64_t{1} << 20;
// The display is redrawn at most this often.
constexpr std::chrono::milliseconds kRedrawInterval{200};

// "  [decoding 12.0 MiB of 40.0 MiB (30%), 5.1 MiB/s]"; a `total` below 0 is unknown
// and leaves out the "of" part and the percentage. `seconds` is the stage's age.
std::string FormatProgress(const std::string& label, int64_t done, int64_t total, double seconds);

// "512 B", "3.5 KiB", "12.0 MiB", "2.3 GiB".
std::string FormatBytes(double bytes);

class ProgressDisplay {
 public:
  using Clock = std::chrono::steady_clock;

  // Draws on `out` only when `enabled` (the caller tells whether `out` is a terminal).
  ProgressDisplay(FILE* out, bool enabled) : out_(out), enabled_(enabled) {}
  ~ProgressDisplay() { Clear(); }
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  // Reports that `done` of `total` bytes (`total` < 0: unknown) of the stage `label`
  // are through. A new label starts a new stage (and its rate). Draws only a large
  // input's stage, at most every kRedrawInterval and not before it is that old.
  void Update(const std::string& label, int64_t done, int64_t total);

  // Erases whatever the display drew.
  void Clear();

  bool enabled() const { return enabled_; }

 private:
  void Draw(const std::string& text);

  FILE* out_;
  bool enabled_;
  std::string label_;
  Clock::time_point stageStart_{};
  Clock::time_point lastDraw_{};
  std::size_t drawn_ = 0;  // length of the text on screen
};

}  // namespace tk

#endif  // TAVIK_TKPACK_PROGRESS_H_
