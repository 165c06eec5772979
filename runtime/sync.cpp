// Locks are held by TkLockGuard except where the lock outlives the call: Wait returns
// with the event's lock held and EndWait releases it (the bracket of TkEvent), and the
// event's destructor takes the lock for good, as the mutex is destroyed right after.
#include "runtime/sync.h"

#include <cerrno>

using namespace tk;

namespace {

constexpr long kMillisPerSecond = 1000;
constexpr long kMicrosPerMilli = 1000;
constexpr long kNanosPerMicro = 1000;
constexpr long kNanosPerSecond = 1000000000;

}  // namespace

// ---- TkMutex ----

TkMutex::TkMutex() { pthread_mutex_init(&mutex_, nullptr); }

// A mutex still held by the destroying thread is released first. The try-lock makes
// sure the unconditional unlock always releases a held mutex, never an idle one.
TkMutex::~TkMutex() {
  pthread_mutex_trylock(&mutex_);
  pthread_mutex_unlock(&mutex_);
  pthread_mutex_destroy(&mutex_);
}

int TkMutex::Lock() noexcept { return pthread_mutex_lock(&mutex_); }

int TkMutex::Unlock() noexcept { return pthread_mutex_unlock(&mutex_); }

TkMutex tk::gSignalMutex;
TkMutex tk::gTempNameMutex;

// ---- TkEvent ----

TkEvent::TkEvent() { pthread_cond_init(&condition_, nullptr); }

TkEvent::TkEvent(bool autoReset) : autoReset_(autoReset) {
  pthread_cond_init(&condition_, nullptr);
}

TkEvent::TkEvent(const TkEvent& other) : autoReset_(other.autoReset_) {
  pthread_cond_init(&condition_, nullptr);
}

// The lock is taken so that nobody is between Set and its broadcast; a waiter still
// inside its bracket holds it already. The member lock_ is destroyed after this body.
TkEvent::~TkEvent() {
  if (!inWait_) lock_.Lock();
  pthread_cond_destroy(&condition_);
}

void TkEvent::Set(uint32_t value) {
  TkLockGuard hold(lock_);
  value_ = value;
  signalled_ = true;
  pthread_cond_broadcast(&condition_);
}

void TkEvent::Reset() {
  TkLockGuard hold(lock_);
  signalled_ = false;
}

bool TkEvent::IsSet() {
  TkLockGuard hold(lock_);
  return signalled_;
}

timespec tk::EventDeadline(const timeval& now, int32_t timeoutMs) {
  timespec deadline;
  deadline.tv_sec = now.tv_sec + timeoutMs / kMillisPerSecond;
  long micros = now.tv_usec + (timeoutMs % kMillisPerSecond) * kMicrosPerMilli;
  deadline.tv_nsec = micros * kNanosPerMicro;
  // Only a value strictly above one second is carried; exactly one second stays.
  if (deadline.tv_nsec > kNanosPerSecond) {
    deadline.tv_nsec -= kNanosPerSecond;
    deadline.tv_sec += 1;
  }
  return deadline;
}

int TkEvent::Wait(int32_t timeoutMs) {
  lock_.Lock();
  int result = kSignalled;
  if (signalled_) {
    inWait_ = true;
    return result;
  }
  if (timeoutMs == 0) return kNotSignalled;
  if (timeoutMs > 0) {
    timeval now;
    gettimeofday(&now, nullptr);
    timespec deadline = EventDeadline(now, timeoutMs);
    int rc = pthread_cond_timedwait(&condition_, lock_.Native(), &deadline);
    if (rc == ETIMEDOUT) {
      result = kTimedOut;
    } else if (rc != 0) {
      result = kWaitError;
    }
  } else {
    pthread_cond_wait(&condition_, lock_.Native());
  }
  // One wake-up ends the wait. The state is tested after the wait result, so a
  // time-out or error stands when the event was set at the very last moment.
  if (!signalled_) result = kNotSignalled;
  inWait_ = true;
  return result;
}

void TkEvent::EndWait() {
  if (autoReset_) signalled_ = false;
  inWait_ = false;
  lock_.Unlock();
}

// ---- TkSemaphore ----

TkSemaphore::TkSemaphore() : TkSemaphore(1) {}

TkSemaphore::TkSemaphore(unsigned count) { sem_init(&semaphore_, 0, count); }

TkSemaphore::~TkSemaphore() { sem_destroy(&semaphore_); }

void TkSemaphore::Wait() { sem_wait(&semaphore_); }

bool TkSemaphore::TryWait() { return sem_trywait(&semaphore_) == 0; }

void TkSemaphore::TryWait(int n) {
  for (int i = 0; i < n; ++i) {
    if (!TryWait()) break;
  }
}

void TkSemaphore::Post() { sem_post(&semaphore_); }

void TkSemaphore::Post(int n) {
  for (int i = 0; i < n; ++i) Post();
}

void TkSemaphore::SetCount(int n) {
  if (n <= 0) return;
  while (TryWait()) {
  }
  Post(n);
}

int TkSemaphore::GetValue() {
  int value = 0;
  sem_getvalue(&semaphore_, &value);
  return value;
}
