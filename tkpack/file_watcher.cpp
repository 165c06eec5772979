#include "tkpack/file_watcher.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace tk {

namespace {

// The engine's descriptors are among the first ones a process opens; looking further
// would only cost system calls.
constexpr int kScannedDescriptors = 1024;
// How often the watcher looks.
constexpr std::chrono::milliseconds kWatchInterval{100};

bool AccessMatches(int descriptor, WatchedFile::Access access) {
  const int flags = fcntl(descriptor, F_GETFL);
  if (flags < 0) return false;
  const int mode = flags & O_ACCMODE;
  return access == WatchedFile::Access::kReading ? mode == O_RDONLY : mode != O_RDONLY;
}

// A descriptor open on the file `target` with the stage's access mode, or -1.
int FindDescriptor(const struct stat& target, WatchedFile::Access access) {
  const int last = static_cast<int>(std::min<long>(sysconf(_SC_OPEN_MAX), kScannedDescriptors));
  for (int descriptor = 0; descriptor < last; ++descriptor) {
    struct stat info;
    if (fstat(descriptor, &info) != 0) continue;
    if (info.st_dev != target.st_dev || info.st_ino != target.st_ino) continue;
    if (AccessMatches(descriptor, access)) return descriptor;
  }
  return -1;
}

}  // namespace

bool SampleWatchedFile(const WatchedFile& file, int64_t& done, int64_t& total) {
  struct stat target;
  if (stat(file.path.c_str(), &target) != 0 || !S_ISREG(target.st_mode)) return false;
  const int descriptor = FindDescriptor(target, file.access);
  if (descriptor < 0) return false;
  if (file.access == WatchedFile::Access::kWriting) {
    done = target.st_size;
    total = -1;
    return true;
  }
  const off_t offset = lseek(descriptor, 0, SEEK_CUR);
  if (offset < 0) return false;
  total = target.st_size;
  done = std::min<int64_t>(offset, total);
  return true;
}

FileProgressWatcher::FileProgressWatcher(ProgressDisplay& display, std::vector<WatchedFile> stages,
                                         OutputRelay* relay)
    : display_(display), stages_(std::move(stages)), relay_(relay) {
  if (display_.enabled()) thread_ = std::thread([this] { Run(); });
}

void FileProgressWatcher::Stop() {
  if (!thread_.joinable()) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
  display_.Clear();
}

void FileProgressWatcher::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stopping_) {
    lock.unlock();
    PassEngineOutput();
    ShowCurrentStage();
    lock.lock();
    wake_.wait_for(lock, kWatchInterval, [this] { return stopping_; });
  }
}

void FileProgressWatcher::PassEngineOutput() {
  if (relay_ == nullptr) return;
  const std::string text = relay_->Take();
  if (text.empty()) return;
  display_.Clear();
  relay_->Pass(text);
}

void FileProgressWatcher::ShowCurrentStage() {
  for (auto stage = stages_.rbegin(); stage != stages_.rend(); ++stage) {
    int64_t done = 0;
    int64_t total = 0;
    if (SampleWatchedFile(*stage, done, total)) {
      display_.Update(stage->label, done, total);
      return;
    }
  }
}

}  // namespace tk
