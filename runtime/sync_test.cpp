#include "runtime/sync.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace tk {
namespace {

using Clock = std::chrono::steady_clock;

// Long enough for a started thread to be inside its wait on any loaded machine.
constexpr auto kSettle = std::chrono::milliseconds(300);

long long MillisSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// One Wait/EndWait bracket; the result of Wait.
int WaitOnce(TkEvent& event, int32_t timeoutMs) {
  int result = event.Wait(timeoutMs);
  event.EndWait();
  return result;
}

TEST(TkMutex, DestroyingAMutexHeldByThisThreadSucceeds) {
  auto* mutex = new TkMutex;
  mutex->Lock();
  delete mutex;  // unlocks first; a hang or a sanitizer report would show a fault
  // The process-wide mutexes exist before main.
  EXPECT_EQ(0, gSignalMutex.Lock());
  EXPECT_EQ(0, gSignalMutex.Unlock());
  EXPECT_EQ(0, gTempNameMutex.Lock());
  EXPECT_EQ(0, gTempNameMutex.Unlock());
}

TEST(TkEvent, PollReportsTheStateAtOnce) {
  TkEvent event;
  auto start = Clock::now();
  EXPECT_EQ(TkEvent::kNotSignalled, WaitOnce(event, 0));
  EXPECT_LT(MillisSince(start), 1000);
  // After the bracket another thread can set it.
  std::thread([&] { event.Set(7); }).join();
  EXPECT_TRUE(event.IsSet());
  EXPECT_EQ(TkEvent::kSignalled, event.Wait(0));
  EXPECT_EQ(7u, event.Value());
  event.EndWait();
}

TEST(TkEvent, ManualEventStaysSetAutoResetEventIsConsumed) {
  TkEvent manual;
  TkEvent autoReset(true);
  manual.Set();
  autoReset.Set();
  EXPECT_EQ(0, WaitOnce(manual, 0));
  EXPECT_EQ(0, WaitOnce(manual, 0));
  EXPECT_EQ(0, WaitOnce(autoReset, 0));
  EXPECT_EQ(-3, WaitOnce(autoReset, 0));
  EXPECT_FALSE(autoReset.IsSet());
  manual.Reset();
  EXPECT_EQ(-3, WaitOnce(manual, 0));
}

TEST(TkEvent, CopyTakesOnlyTheAutoResetFlag) {
  TkEvent original(true);
  original.Set(5);
  TkEvent copy(original);
  EXPECT_FALSE(copy.IsSet());
  EXPECT_EQ(0u, copy.Value());
  copy.Set();
  EXPECT_EQ(0, WaitOnce(copy, 0));
  EXPECT_FALSE(copy.IsSet());
}

TEST(TkEvent, WaitReturnsWhenAnotherThreadSets) {
  for (int32_t timeoutMs : {-1, 20000}) {
    TkEvent event;
    std::thread setter([&] {
      std::this_thread::sleep_for(kSettle);
      event.Set(42);
    });
    auto start = Clock::now();
    int result = event.Wait(timeoutMs);
    uint32_t value = event.Value();
    event.EndWait();
    setter.join();
    EXPECT_EQ(0, result) << timeoutMs;
    EXPECT_EQ(42u, value) << timeoutMs;
    EXPECT_LT(MillisSince(start), 10000) << timeoutMs;
  }
}

TEST(TkEvent, TimedWaitOnAnUnsetEventReportsNotSignalled) {
  TkEvent event;
  auto start = Clock::now();
  EXPECT_EQ(-3, WaitOnce(event, 1500));
  long long elapsed = MillisSince(start);
  EXPECT_GE(elapsed, 1400);
  EXPECT_LT(elapsed, 10000);
}

// Both waiters are woken by the one broadcast; each tests the state only after the
// other has left its bracket.
void RunTwoWaiters(bool autoReset, int32_t timeoutMs, int expectedFailures) {
  TkEvent event(autoReset);
  std::atomic<int> results[2] = {99, 99};
  std::thread waiters[2];
  for (int i = 0; i < 2; ++i) {
    waiters[i] = std::thread([&, i] { results[i] = WaitOnce(event, timeoutMs); });
  }
  std::this_thread::sleep_for(kSettle);
  event.Set();
  for (auto& waiter : waiters) waiter.join();
  int zeros = (results[0] == 0) + (results[1] == 0);
  int notSignalled = (results[0] == -3) + (results[1] == -3);
  EXPECT_EQ(2 - expectedFailures, zeros);
  EXPECT_EQ(expectedFailures, notSignalled);
}

TEST(TkEvent, ManualEventReleasesBothWaiters) { RunTwoWaiters(false, -1, 0); }

TEST(TkEvent, AutoResetEventReleasesOnlyTheFirstWaiter) {
  // A long time-out rather than none: a waiter that came late still reports -3.
  RunTwoWaiters(true, 20000, 1);
}

TEST(EventDeadline, CarriesOnlyMoreThanOneSecondOfNanoseconds) {
  struct Case {
    long sec, usec;
    int32_t timeoutMs;
    long wantSec, wantNsec;
  } cases[] = {
      {100, 0, 1, 100, 1000000},
      {100, 500000, 2500, 102, 1000000000},  // exactly one second: left as it is
      {100, 1000, 999, 100, 1000000000},
      {100, 1001, 999, 101, 1000},
      {100, 999999, 999, 101, 998999000},
      {7, 250000, 60000, 67, 250000000},
  };
  for (const Case& c : cases) {
    timeval now{c.sec, c.usec};
    timespec deadline = EventDeadline(now, c.timeoutMs);
    EXPECT_EQ(c.wantSec, deadline.tv_sec) << c.usec << " + " << c.timeoutMs;
    EXPECT_EQ(c.wantNsec, deadline.tv_nsec) << c.usec << " + " << c.timeoutMs;
  }
}

TEST(TkSemaphore, CountsUnits) {
  TkSemaphore single;
  EXPECT_EQ(1, single.GetValue());
  single.Wait();
  EXPECT_FALSE(single.TryWait());
  TkSemaphore semaphore(2);
  semaphore.Post(3);
  semaphore.Post(0);
  semaphore.Post(-4);
  EXPECT_EQ(5, semaphore.GetValue());
  semaphore.TryWait(2);
  EXPECT_EQ(3, semaphore.GetValue());
  semaphore.TryWait(10);  // stops at the first failure
  EXPECT_EQ(0, semaphore.GetValue());
  semaphore.TryWait(-1);
  EXPECT_EQ(0, semaphore.GetValue());
}

TEST(TkSemaphore, SetCountReplacesAPositiveCountOnly) {
  struct Case {
    unsigned initial;
    int n;
    int want;
  } cases[] = {{5, 3, 3}, {5, 0, 5}, {5, -2, 5}, {0, 4, 4}, {2, 7, 7}};
  for (const Case& c : cases) {
    TkSemaphore semaphore(c.initial);
    semaphore.SetCount(c.n);
    EXPECT_EQ(c.want, semaphore.GetValue()) << c.initial << " set to " << c.n;
  }
}

TEST(TkSemaphore, WaitBlocksUntilAnotherThreadPosts) {
  TkSemaphore semaphore(0);
  std::atomic<bool> passed{false};
  std::thread waiter([&] {
    semaphore.Wait();
    passed = true;
  });
  std::this_thread::sleep_for(kSettle);
  EXPECT_FALSE(passed);
  semaphore.Post();
  waiter.join();
  EXPECT_TRUE(passed);
  EXPECT_EQ(0, semaphore.GetValue());
}

}  // namespace
}  // namespace tk
