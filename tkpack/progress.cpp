#include "tkpack/progress.h"

#include <algorithm>

namespace tk {

namespace {

constexpr double kUnitStep = 1024.0;
constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
constexpr int kUnitCount = sizeof kUnits / sizeof kUnits[0];
// A stage younger than this has no meaningful rate yet.
constexpr double kShortestStage = 0.001;

bool IsLarge(int64_t done, int64_t total) {
  return (total >= 0 ? total : done) >= kLargeInputBytes;
}

}  // namespace

std::string FormatBytes(double bytes) {
  int unit = 0;
  while (bytes >= kUnitStep && unit + 1 < kUnitCount) {
    bytes /= kUnitStep;
    ++unit;
  }
  char text[64];
  if (unit == 0) {
    std::snprintf(text, sizeof text, "%.0f B", bytes);
  } else {
    std::snprintf(text, sizeof text, "%.1f %s", bytes, kUnits[unit]);
  }
  return text;
}

std::string FormatProgress(const std::string& label, int64_t done, int64_t total, double seconds) {
  std::string text = "  [" + label + " " + FormatBytes(static_cast<double>(done));
  if (total >= 0) {
    const int64_t percent = total > 0 ? std::min<int64_t>(done * 100 / total, 100) : 100;
    text +=
        " of " + FormatBytes(static_cast<double>(total)) + " (" + std::to_string(percent) + "%)";
  }
  const double rate = static_cast<double>(done) / std::max(seconds, kShortestStage);
  return text + ", " + FormatBytes(rate) + "/s]";
}

void ProgressDisplay::Update(const std::string& label, int64_t done, int64_t total) {
  if (!enabled_) return;
  const Clock::time_point now = Clock::now();
  if (label != label_) {
    label_ = label;
    stageStart_ = now;
    lastDraw_ = now;  // the first drawing waits a whole interval: short stages stay quiet
  }
  if (!IsLarge(done, total) || now - lastDraw_ < kRedrawInterval) return;
  lastDraw_ = now;
  const std::chrono::duration<double> age = now - stageStart_;
  Draw(FormatProgress(label, done, total, age.count()));
}

void ProgressDisplay::Draw(const std::string& text) {
  std::string frame(drawn_, '\b');
  frame += text;
  if (text.size() < drawn_) {
    // Blank out the tail of the longer old text and come back to the end of the new.
    const std::size_t tail = drawn_ - text.size();
    frame += std::string(tail, ' ') + std::string(tail, '\b');
  }
  drawn_ = text.size();
  std::fputs(frame.c_str(), out_);
  std::fflush(out_);
}

void ProgressDisplay::Clear() {
  if (drawn_ == 0) return;
  const std::string back(drawn_, '\b');
  std::fputs((back + std::string(drawn_, ' ') + back).c_str(), out_);
  std::fflush(out_);
  drawn_ = 0;
}

}  // namespace tk
