// Synchronisation objects: thin classes over POSIX threads used by the task runtime
// and the support library. Every object is safe for use from any number of threads.
// Errors of the underlying initialisation and locking calls are ignored.
#ifndef TAVIK_RUNTIME_SYNC_H_
#define TAVIK_RUNTIME_SYNC_H_

#include <pthread.h>
#include <semaphore.h>
#include <sys/time.h>
#include <time.h>

#include <cstdint>

// The classes of the runtime live at global scope so that each is known by its plain
// name at run time (typeid gives "7TkMutex", "6TkTask"); the tk namespace names them
// through using-declarations.

// A normal (non-recursive) mutex. Destruction unlocks it first, so a mutex held by
// the destroying thread is destroyed cleanly.
class TkMutex {
 public:
  TkMutex();
  virtual ~TkMutex();
  TkMutex(const TkMutex&) = delete;
  TkMutex& operator=(const TkMutex&) = delete;

  // pthread_mutex_lock / pthread_mutex_unlock; their results, which callers ignore.
  int Lock() noexcept;
  int Unlock() noexcept;

  // The underlying POSIX mutex, for waiting on a condition variable with it.
  pthread_mutex_t* Native() { return &mutex_; }

 private:
  pthread_mutex_t mutex_;
};

// Locks a TkMutex for the life of the guard. Lock and Unlock are noexcept, so a guard
// gives its frame no exception table: a task thread ended by a signal inside such a
// frame is unwound as through hand-paired Lock and Unlock (see runtime/task.h).
class TkLockGuard {
 public:
  explicit TkLockGuard(TkMutex& mutex) noexcept : mutex_(mutex) { mutex_.Lock(); }
  ~TkLockGuard() { mutex_.Unlock(); }
  TkLockGuard(const TkLockGuard&) = delete;
  TkLockGuard& operator=(const TkLockGuard&) = delete;

 private:
  TkMutex& mutex_;
};

// A condition with a latched signalled state and a 32-bit value. Wait() returns
// with the event's lock held in every case; the caller must call EndWait() after it,
// and must not call Set, Reset or IsSet of the same event inside that bracket.
class TkEvent {
 public:
  TkEvent();
  explicit TkEvent(bool autoReset);
  // Takes only the auto-reset flag of `other`.
  TkEvent(const TkEvent& other);
  TkEvent& operator=(const TkEvent&) = delete;
  virtual ~TkEvent();

  // Stores `value`, sets the signalled state and wakes every waiter.
  void Set(uint32_t value = 0);
  // Clears the signalled state.
  void Reset();
  // The signalled state.
  bool IsSet();
  // The value passed with the last Set; read it inside a Wait/EndWait bracket,
  // where the event's lock is held.
  uint32_t Value() const { return value_; }

  // Results of Wait.
  static constexpr int kSignalled = 0;
  static constexpr int kWaitError = -1;
  static constexpr int kTimedOut = -2;
  static constexpr int kNotSignalled = -3;

  // Waits for the event once (a spurious wake-up also ends the wait): `timeoutMs`
  // 0 polls, negative waits without limit. Returns 0 when signalled and -3 when not
  // signalled after the wait (also for a poll); -1 (wait error) and -2 (time-out)
  // are only seen when the event was nevertheless signalled at the last moment.
  // The lock is held on return in every case.
  int Wait(int32_t timeoutMs);
  // Ends the Wait bracket: consumes the signal of an auto-reset event, releases the lock.
  void EndWait();

 private:
  uint32_t value_ = 0;
  bool autoReset_ = false;
  bool signalled_ = false;
  bool inWait_ = false;
  TkMutex lock_;
  pthread_cond_t condition_;
};

// A counting semaphore private to the process.
class TkSemaphore {
 public:
  // The initial count is 1, or `count`.
  TkSemaphore();
  explicit TkSemaphore(unsigned count);
  virtual ~TkSemaphore();
  TkSemaphore(const TkSemaphore&) = delete;
  TkSemaphore& operator=(const TkSemaphore&) = delete;

  // Takes one unit, blocking until one is there.
  void Wait();
  // Takes one unit without blocking; true if one was taken.
  bool TryWait();
  // Takes up to `n` units without blocking, stopping at the first failure.
  void TryWait(int n);
  // Adds one unit.
  void Post();
  // `n` posts when `n` is positive, nothing otherwise.
  void Post(int n);
  // When `n` is positive: drains the count without blocking, then posts `n` times.
  // When `n` is 0 or negative nothing happens at all.
  void SetCount(int n);
  // The current count.
  int GetValue();

 private:
  sem_t semaphore_;
};

// Common base of the runtime's larger objects: its own lock and one flag, which
// the base itself never reads (derived classes may use it as they see fit).
class TkObject {
 public:
  TkObject() = default;
  virtual ~TkObject() = default;
  TkObject(const TkObject&) = delete;
  TkObject& operator=(const TkObject&) = delete;

 protected:
  TkMutex objectLock_;
  bool flag_ = false;
};

namespace tk {

using ::TkEvent;
using ::TkLockGuard;
using ::TkMutex;
using ::TkObject;
using ::TkSemaphore;

// The absolute deadline of a timed Wait: `now` plus `timeoutMs` (positive).
// Nanoseconds strictly greater than one second are carried into the seconds; exactly
// one second is left as it is, and the timed wait then reports an error.
timespec EventDeadline(const timeval& now, int32_t timeoutMs);

// Process-wide mutexes, created by static initialisation before main runs.
// gSignalMutex serialises installing and re-arming the fatal-signal handler;
// gTempNameMutex guards the counter of MakeTempFileName.
extern TkMutex gSignalMutex;
extern TkMutex gTempNameMutex;

}  // namespace tk

#endif  // TAVIK_RUNTIME_SYNC_H_
