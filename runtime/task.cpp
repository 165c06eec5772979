// Locks are held by TkLockGuard, whose noexcept Lock and Unlock give a frame no exception
// table (runtime/sync.h): a signal may still end a task thread at any instruction of
// Prepare or of the accessors a Run calls. Stop pairs Lock and Unlock by hand: it
// signals another thread with the lock held, but releases the lock before signalling
// its own thread, whose clean-up takes the lock before pthread_kill returns.
#include "runtime/task.h"

#include <cxxabi.h>
#include <signal.h>
#include <sys/select.h>

#include <exception>
#include <initializer_list>

using namespace tk;

namespace {

// How long Stop leaves the signalled thread to end.
constexpr long kStopPauseMicros = 200000;
// clock() counts this many ticks per second of processor time.
constexpr clock_t kClockTicksPerSecond = 1000000;
constexpr clock_t kMillisPerSecond = 1000;

void BlockSignals(std::initializer_list<int> signalNumbers) {
  sigset_t set;
  sigemptyset(&set);
  for (int signalNumber : signalNumbers) sigaddset(&set, signalNumber);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

// select with no descriptors as a sleep; once more if it was interrupted.
void PauseForStop() {
  timeval pause{0, kStopPauseMicros};
  if (select(0, nullptr, nullptr, nullptr, &pause) < 0) {
    select(0, nullptr, nullptr, nullptr, &pause);
  }
}

}  // namespace

// Lives in the thread routine around Prepare and Run. When the fatal-signal handler
// ends the thread with pthread_exit, the forced unwind runs this destructor.
class TaskCleanupGuard {
 public:
  explicit TaskCleanupGuard(TkTask* task) : task_(task) {}
  ~TaskCleanupGuard() {
    if (task_ != nullptr) task_->EndAfterSignal();
  }
  TaskCleanupGuard(const TaskCleanupGuard&) = delete;
  TaskCleanupGuard& operator=(const TaskCleanupGuard&) = delete;

  void Disarm() { task_ = nullptr; }

 private:
  TkTask* task_;
};

// ---- TkTask ----

TkTask::~TkTask() {
  {
    TkLockGuard hold(lock_);
    autoDelete_ = false;  // the Finish of a stopped thread must not delete us again
  }
  Stop();
}

void TkTask::OnException(const char*) {}

bool TkTask::Prepare() {
  TkLockGuard hold(lock_);
  threadId_ = pthread_self();
  return true;
}

void TkTask::Finish() {
  bool autoDelete;
  {
    TkLockGuard hold(lock_);
    threadId_ = 0;
    running_ = false;
    autoDelete = autoDelete_;
  }
  if (autoDelete) delete this;
}

bool TkTask::Start(bool inCallerThread, bool autoDelete) {
  {
    TkLockGuard hold(lock_);
    autoDelete_ = autoDelete;
    if (running_) return !inCallerThread;
    inline_ = inCallerThread;
    result_ = 1;
    stopRequested_ = false;  // a Stop that came too late for the last run
  }
  return inCallerThread ? RunInline() : StartThread();
}

bool TkTask::RunInline() {
  bool prepared = Prepare();
  int result = 0;
  if (prepared && CallHooks(false, &result)) StoreResult(result);
  Finish();  // may delete the task
  return prepared;
}

// Failure is recognised by -1 only, although pthread_create reports errors by a
// positive number: a failed creation then leaves the task marked running.
bool TkTask::StartThread() {
  SetRunning(true);
  pthread_attr_t attributes;
  pthread_t thread;
  bool failed = pthread_attr_init(&attributes) == -1;
  if (!failed) {
    pthread_attr_setscope(&attributes, PTHREAD_SCOPE_SYSTEM);
    failed = pthread_create(&thread, &attributes, &TkTask::ThreadMain, this) == -1;
    pthread_attr_destroy(&attributes);
  }
  if (failed) SetRunning(false);
  return !failed;
}

void* TkTask::ThreadMain(void* argument) {
  auto* task = static_cast<TkTask*>(argument);
  BlockSignals({SIGINT, SIGTERM});  // those are for the main thread
  {
    TaskCleanupGuard guard(task);
    task->StoreResult(1);
    int result = 0;
    // Returns with SIGSEGV blocked: from here on a Stop can no longer end the thread.
    // Its signal stays pending until the thread is gone, so Finish runs exactly once
    // and never holds a lock that a signalled end would need.
    if (task->CallHooks(true, &result)) task->StoreResult(result);
    guard.Disarm();
  }
  task->Finish();  // may delete the task
  pthread_detach(pthread_self());
  return nullptr;
}

namespace {

// The frame below Run while a Stop may land on a task thread. It owns nothing with a
// destructor, has no try block and is left out of ThreadSanitizer's instrumentation
// (which would wrap it in a clean-up), so it has no exception table and the forced
// unwind of pthread_exit passes it from any instruction; in a frame with a table, an
// interrupted instruction outside the table's call sites ends in std::terminate.

[[gnu::noipa, gnu::no_sanitize("thread")]] bool PrepareAndRunStoppable(TkTask* task, int* result) {
  bool ran = task->Prepare();
  if (ran) *result = task->Run();
  BlockSignals({SIGSEGV});
  return ran;
}

}  // namespace

// A task thread comes here with SIGSEGV open and leaves with it blocked; an exception
// leaves PrepareAndRunStoppable before its block, so the handlers block it first (a
// Stop landing in the few instructions before that ends the process, not the thread).
// The forced unwind has no C++ object behind it: the runtime binds the handler's
// reference to null, which the undefined-behaviour sanitizer must not stop on.
[[gnu::no_sanitize("null")]] bool TkTask::CallHooks(bool threaded, int* result) {
  try {
    if (threaded) return PrepareAndRunStoppable(this, result);
    *result = Run();
    return true;
  } catch (abi::__forced_unwind&) {
    throw;  // a thread ended by pthread_exit must be unwound to its end
  } catch (const std::exception& error) {
    if (threaded) BlockSignals({SIGSEGV});
    OnException(error.what());
  } catch (...) {
    if (threaded) BlockSignals({SIGSEGV});
    OnException(kUnknownExceptionReport);
  }
  return false;
}

void TkTask::StoreResult(int result) {
  TkLockGuard hold(lock_);
  result_ = result;
}

void TkTask::SetRunning(bool running) {
  TkLockGuard hold(lock_);
  running_ = running;
}

void TkTask::EndAfterSignal() {
  bool stopped;
  {
    TkLockGuard hold(lock_);
    stopped = stopRequested_;
    stopRequested_ = false;
  }
  if (!stopped) OnException(kSignalEndReport);
  Finish();
}

// The signal is sent with the lock held, so the thread cannot finish and vanish
// between the test and the signal; a thread that reaches Finish meanwhile has
// SIGSEGV blocked and ignores it. A task stopping itself must let go of the lock
// first, since its own clean-up runs before pthread_kill returns.
void TkTask::Stop() {
  if (!IsRunning()) return;
  lock_.Lock();
  if (threadId_ == 0) {
    lock_.Unlock();
    return;
  }
  stopRequested_ = true;
  pthread_t thread = threadId_;
  if (pthread_equal(thread, pthread_self())) {
    lock_.Unlock();
    pthread_kill(thread, SIGSEGV);
  } else {
    pthread_kill(thread, SIGSEGV);
    lock_.Unlock();
  }
  PauseForStop();
}

bool TkTask::IsRunning() {
  TkLockGuard hold(lock_);
  return running_;
}

int TkTask::Result() {
  TkLockGuard hold(lock_);
  return result_;
}

pthread_t TkTask::ThreadId() {
  TkLockGuard hold(lock_);
  return threadId_;
}

// ---- TkMsg ----

void TkMsg::StartTimer() {
  if (stopped_ || !timingEnabled_) return;
  start_ = clock();
}

void TkMsg::StopTimer() {
  stopped_ = true;
  if (!timingEnabled_) return;
  elapsed_ = clock() - start_;
  start_ = clock();
}

bool TkMsg::IsTimedOut() {
  if (stopped_ || !timingEnabled_) return false;
  return (clock() - start_) / kClockTicksPerSecond > timeout_;
}

int32_t TkMsg::ElapsedMilliseconds() const {
  if (!stopped_ || !timingEnabled_) return 0;
  return ClockTicksToMilliseconds(elapsed_);
}

// Ticks * 1000 is cut to a signed 32-bit number before the division, so 3 s of
// processor time give -1294 ms; pinned by TkMsg.ClockTicksToMillisecondsCutsTheProductTo32Bits.
int32_t tk::ClockTicksToMilliseconds(clock_t ticks) {
  auto scaled = static_cast<int32_t>(ticks * kMillisPerSecond);
  return static_cast<int32_t>(scaled / kClockTicksPerSecond);
}
