#include "runtime/sync.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace tk {
namespace {

using Clock = std::chrono::steady_clock;

// Long enough for a started thread to be inside its wait on any loaded machine.
constexpr auto kSettle = std::chrono::milliseconds(300);

TEST(TkMutex, DestroyingAMutexHeldByThisThreadSucceeds) {
  TkMutex mutex;
  mutex.Lock();  // the destructor unlocks first; a hang or a sanitizer report shows a fault
}

// Waiters block on (or poll) one event, which the main thread sets before they start,
// after they settle or never. All are woken by the one broadcast; each tests the state
// after the others left their brackets, so an auto-reset event lets only one through.
TEST(TkEvent, WaitsAcrossThreads) {
  enum { kNever, kBefore, kAfter };
  struct Case {
    bool autoReset;
    int32_t timeoutMs;
    int set, waiters, signalled;
  } cases[] = {{false, 0, kNever, 1, 0},    {false, 0, kBefore, 2, 2},
               {true, 0, kBefore, 2, 1},    {false, -1, kAfter, 2, 2},
               {false, 1500, kNever, 1, 0}, {false, 20000, kAfter, 1, 1},
               {true, 20000, kAfter, 2, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.autoReset << " " << c.timeoutMs << " " << c.set);
    TkEvent event(c.autoReset);
    if (c.set == kBefore) event.Set(42);
    std::atomic<int> signalled{0}, notSignalled{0};
    std::vector<std::thread> waiters;
    auto start = Clock::now();
    for (int i = 0; i < c.waiters; ++i) {
      waiters.emplace_back([&] {
        int result = event.Wait(c.timeoutMs);
        signalled += result == TkEvent::kSignalled && event.Value() == 42;
        notSignalled += result == TkEvent::kNotSignalled;
        event.EndWait();
      });
    }
    if (c.set == kAfter) std::this_thread::sleep_for(kSettle), event.Set(42);
    for (auto& waiter : waiters) waiter.join();
    auto elapsed = Clock::now() - start;
    EXPECT_EQ(c.signalled, signalled);
    EXPECT_EQ(c.waiters - c.signalled, notSignalled);
    EXPECT_GE(elapsed, std::chrono::milliseconds(c.set == kNever ? c.timeoutMs - 100 : 0));
    EXPECT_LT(elapsed, std::chrono::milliseconds(c.timeoutMs == 0 ? 1000 : 10000));
  }
}

TEST(TkEvent, ResetClearsAndACopyTakesOnlyTheAutoResetFlag) {
  TkEvent original(true);
  original.Set(5);
  TkEvent copy(original);
  EXPECT_FALSE(copy.IsSet());
  copy.Set();
  EXPECT_EQ(0, copy.Wait(0));
  copy.EndWait();
  EXPECT_FALSE(copy.IsSet());  // consumed
  original.Reset();
  EXPECT_FALSE(original.IsSet());
}

TEST(EventDeadline, CarriesOnlyMoreThanOneSecondOfNanoseconds) {
  struct Case {
    long sec, usec;
    int32_t timeoutMs;
    long wantSec, wantNsec;
  } cases[] = {{100, 0, 1, 100, 1000000},
               {100, 500000, 2500, 102, 1000000000},  // one second stays
               {100, 1001, 999, 101, 1000},
               {7, 250000, 60000, 67, 250000000}};
  for (const Case& c : cases) {
    timespec deadline = EventDeadline(timeval{c.sec, c.usec}, c.timeoutMs);
    EXPECT_EQ(c.wantSec, deadline.tv_sec) << c.usec << " + " << c.timeoutMs;
    EXPECT_EQ(c.wantNsec, deadline.tv_nsec) << c.usec << " + " << c.timeoutMs;
  }
}

TEST(TkSemaphore, CountsUnitsAndBlocksAtZero) {
  TkSemaphore semaphore;  // one unit
  semaphore.Post(3);
  semaphore.Post(-4);
  semaphore.TryWait(2);
  EXPECT_EQ(2, semaphore.GetValue());
  semaphore.TryWait(10);  // stops at the first failure
  std::atomic<bool> passed{false};
  std::thread waiter([&] { semaphore.Wait(), passed = true; });
  std::this_thread::sleep_for(kSettle);
  EXPECT_FALSE(passed);
  semaphore.Post();
  waiter.join();
  EXPECT_EQ(0, semaphore.GetValue());
}

TEST(TkSemaphore, SetCountReplacesAPositiveCountOnly) {
  struct Case {
    unsigned initial;
    int n, want;
  } cases[] = {{5, 3, 3}, {5, 0, 5}, {5, -2, 5}, {0, 4, 4}, {2, 7, 7}};
  for (const Case& c : cases) {
    TkSemaphore semaphore(c.initial);
    semaphore.SetCount(c.n);
    EXPECT_EQ(c.want, semaphore.GetValue()) << c.initial << " set to " << c.n;
  }
}

}  // namespace
}  // namespace tk
