// Tasks and operation timers.
//
// TkTask is the base of work that runs either in the caller's thread or on a detached
// thread of its own, through a fixed sequence of hooks: Prepare, Run, OnException for
// an exception escaping Run, and Finish, which may delete the task. A threaded task is
// stopped from outside with Stop, which sends SIGSEGV to its thread; the fatal-signal
// handler (runtime/signals.h) must be installed for that, and ends the thread with
// pthread_exit. Its forced unwind runs the destructors of the thread's frames and a
// clean-up guard in the thread routine, which reports "Uncatched exception (signal
// occured)" unless Stop asked for the end, and calls Finish.
// Writing a Run that may be stopped: the unwind starts at whatever instruction was
// interrupted. A frame that owns objects with destructors or has try blocks can only be
// unwound while it is inside a call that the compiler takes as possibly throwing;
// interrupted anywhere else in it, the process ends in std::terminate. Keep long computations and
// waiting loops in functions that own no such objects (g++ gives every function the unwind tables
// this needs). OnException and Finish then run inside the signal handler of the ending thread,
// which may have interrupted malloc or a lock holder: overrides reached that way should
// neither allocate nor take locks the task's code holds. The same goes for the
// deletion of a stopped task with auto-delete, which frees the task right there.
// The flags of a task are guarded by its lock, so Start, Stop and IsRunning may be
// called from any thread; the hooks run without the lock.
//
// TkMsg times one operation in processor time (the clock of the whole process) against
// a time-out in seconds. It is meant for one owner and is not thread-safe.
#ifndef TAVIK_RUNTIME_TASK_H_
#define TAVIK_RUNTIME_TASK_H_

#include <pthread.h>

#include <cstdint>
#include <ctime>

#include "runtime/sync.h"

namespace tk {

// The report of a task thread ended by a signal that Stop did not send.
inline constexpr const char* kSignalEndReport = "Uncatched exception (signal occured)";
// The report of an exception from Run that is not a std::exception.
inline constexpr const char* kUnknownExceptionReport = "Unknown";

// Milliseconds of `ticks` of processor time (clock() counts 1000000 a second) as
// TkMsg::ElapsedMilliseconds gives them: from about 2.1 s on the result wraps around.
int32_t ClockTicksToMilliseconds(clock_t ticks);

}  // namespace tk

class TkTask : public TkObject {
 public:
  TkTask() = default;
  // Clears auto-delete and stops a running thread (see Stop). A derived class whose Run
  // may still be running must stop it in its own destructor, before its members go.
  ~TkTask() override;

  // The work; its return value becomes the result.
  virtual int Run() = 0;
  // Receives the text of an exception that escaped Run (on a task thread, also Prepare):
  // what() of a std::exception, "Unknown" for anything else, and kSignalEndReport for a
  // thread ended by a signal that Stop did not send. Does nothing by default.
  virtual void OnException(const char* text);
  // Runs first; Run is called only if it returns true. The default records the calling
  // thread as the task's thread and returns true.
  virtual bool Prepare();
  // Ends every run: clears the thread and the running flag and, with auto-delete,
  // deletes the task. Nothing may touch the task after Finish.
  virtual void Finish();
  // Runs the task in the caller's thread (`inCallerThread`) or on a new detached
  // thread. Inline: returns what Prepare returned, after Finish. Threaded: returns true
  // once the thread is created; false only when the thread calls report -1, which
  // pthread_create never does, so a failed creation leaves the task marked running.
  // While a threaded run is in progress nothing is started and the result is false for
  // an inline request, true for a threaded one; auto-delete is stored in every case.
  virtual bool Start(bool inCallerThread, bool autoDelete);

  // Ends the task's thread by SIGSEGV (without the kSignalEndReport report) and pauses
  // 200 ms for it to go. Does nothing unless a threaded run is in progress and its
  // thread has passed Prepare.
  void Stop();
  // True from a threaded Start until the task finishes.
  bool IsRunning();
  // The value returned by the last Run; 1 while no result is known.
  int Result();
  // The thread running the task, recorded by Prepare; 0 when none.
  pthread_t ThreadId();

 private:
  friend class TaskCleanupGuard;
  static void* ThreadMain(void* task);
  bool StartThread();
  bool RunInline();
  // Calls Run (threaded: Prepare, then Run if it agreed), handing an escaping exception
  // to OnException. True with `*result` set if Run returned.
  bool CallHooks(bool threaded, int* result);
  void StoreResult(int result);
  void SetRunning(bool running);
  // The clean-up of a thread ended by a signal while inside Prepare or Run.
  void EndAfterSignal();

  TkMutex lock_;
  bool autoDelete_ = false;
  bool running_ = false;
  pthread_t threadId_ = 0;
  bool stopRequested_ = false;
  int32_t result_ = 1;
  bool inline_ = false;
};

class TkMsg : public TkObject {
 public:
  static constexpr int32_t kDefaultTimeoutSeconds = 300;

  // Timing is enabled, the start reading is 0 until StartTimer.
  TkMsg() : TkMsg(kDefaultTimeoutSeconds, 0) {}
  explicit TkMsg(int32_t timeoutSeconds) : TkMsg(timeoutSeconds, 0) {}
  TkMsg(int32_t timeoutSeconds, uint32_t code) : timeout_(timeoutSeconds), code_(code) {}

  // Takes the start reading, unless the timer was stopped or timing is disabled.
  virtual void StartTimer();
  // Stops the timer for good and, when timing, measures the time since the start.
  virtual void StopTimer();
  // True when more whole seconds of processor time than the time-out have passed since
  // the start; never once stopped or with timing disabled.
  virtual bool IsTimedOut();
  // The measured time in milliseconds (see ClockTicksToMilliseconds) once stopped with
  // timing enabled, else 0.
  int32_t ElapsedMilliseconds() const;

  void SetTimingEnabled(bool enabled) { timingEnabled_ = enabled; }

 private:
  clock_t start_ = 0;
  clock_t elapsed_ = 0;
  bool stopped_ = false;
  bool timingEnabled_ = true;
  int32_t timeout_;
  [[maybe_unused]] uint32_t code_;  // the creator's word, kept and not interpreted here
};

#endif  // TAVIK_RUNTIME_TASK_H_
