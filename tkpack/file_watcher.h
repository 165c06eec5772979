// Progress of engine calls that offer no progress hook (BuildPackage, InstallPackage,
// the codec's file front end). Every byte such a call reads or writes goes through a
// descriptor of this process, so a thread of its own looks, a few times a second, for
// the descriptor open on a watched file (same device and inode, right access mode) and
// shows its offset, or the file's size while it is being written, on a ProgressDisplay.
//
// Thread-safe in the sense needed: the watcher thread is the only user of the display
// between construction and Stop(); the caller must not use the display in that time.
#ifndef TAVIK_TKPACK_FILE_WATCHER_H_
#define TAVIK_TKPACK_FILE_WATCHER_H_

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tkpack/output_relay.h"
#include "tkpack/progress.h"

namespace tk {

// One stage of a long call: the file it works through and how it does so.
struct WatchedFile {
  enum class Access {
    kReading,  // progress = the reading descriptor's offset, of the file's size
    kWriting,  // progress = the file's size so far, total unknown
  };
  std::string label;  // "decoding", "installing", ...
  std::string path;
  Access access = Access::kReading;
};

// How far a descriptor of this process has come through `file`: true with `done` and
// `total` (-1: unknown) when a regular file at that path is open in the stage's mode.
bool SampleWatchedFile(const WatchedFile& file, int64_t& done, int64_t& total);

class FileProgressWatcher {
 public:
  // Starts the thread when `display` is enabled, else does nothing at all. Each round
  // first passes on what the engine printed through `relay` (when given and running),
  // taking the display's text away before it, then shows the last stage of `stages`
  // that is under way.
  FileProgressWatcher(ProgressDisplay& display, std::vector<WatchedFile> stages,
                      OutputRelay* relay = nullptr);
  ~FileProgressWatcher() { Stop(); }
  FileProgressWatcher(const FileProgressWatcher&) = delete;
  FileProgressWatcher& operator=(const FileProgressWatcher&) = delete;

  // Ends the thread (idempotent) and erases the display.
  void Stop();

 private:
  void Run();
  void PassEngineOutput();
  void ShowCurrentStage();

  ProgressDisplay& display_;
  std::vector<WatchedFile> stages_;
  OutputRelay* relay_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace tk

#endif  // TAVIK_TKPACK_FILE_WATCHER_H_
