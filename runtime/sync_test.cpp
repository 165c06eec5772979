#include "runtime/sync.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>
#include <vector>

namespace tk {
namespace {

using namespace std::chrono_literals;

// Long enough for a started thread to be inside its wait on any loaded machine.
constexpr auto kSettle = 300ms;

TEST(TkMutex, DestroyingAMutexHeldByThisThreadSucceeds) {
  TkMutex mutex;
  mutex.Lock();  // the destructor unlocks first; a hang or a sanitizer report shows a fault
}

// Waiters block on (or poll) one event, which the main thread sets before they start,
// after they settle or never (set and reset at once). All are woken by the one
// broadcast; each tests the state after the others left their brackets, so an
// auto-reset event lets only one through. Each event is made as a copy of a signalled
// one, which passes on its auto-reset flag and nothing else.
TEST(TkEvent, WaitsAcrossThreads) {
  enum { kNever, kBefore, kAfter };
  // auto-reset, time-out, when it is set, waiters, how many of them see it signalled
  const std::tuple<bool, int32_t, int, int, int> cases[] = {
      {false, 0, kNever, 1, 0},   {false, 0, kBefore, 2, 2},   {true, 0, kBefore, 2, 1},
      {false, -1, kAfter, 2, 2},  {false, 1500, kNever, 1, 0}, {false, 20000, kAfter, 1, 1},
      {true, 20000, kAfter, 2, 1}};
  for (const auto& [autoReset, timeoutMs, set, waiters, signalled] : cases) {
    SCOPED_TRACE(::testing::Message() << autoReset << " " << timeoutMs << " " << set);
    TkEvent original(autoReset);
    original.Set(7);
    TkEvent event(original);
    if (set == kBefore) event.Set(42);
    if (set == kNever) event.Set(42), event.Reset();
    std::atomic<int> seen{0}, notSeen{0};
    std::vector<std::thread> threads;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < waiters; ++i) {
      threads.emplace_back([&event, &seen, &notSeen, timeout = timeoutMs] {
        const int result = event.Wait(timeout);
        seen += result == TkEvent::kSignalled && event.Value() == 42;
        notSeen += result == TkEvent::kNotSignalled;
        event.EndWait();
      });
    }
    if (set == kAfter) std::this_thread::sleep_for(kSettle), event.Set(42);
    for (auto& thread : threads) thread.join();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(signalled, seen);
    EXPECT_EQ(waiters - signalled, notSeen);
    EXPECT_EQ(set != kNever && !autoReset, event.IsSet());  // the waiter consumed an auto-reset
    EXPECT_GE(elapsed, std::chrono::milliseconds(set == kNever ? timeoutMs - 100 : 0));
    EXPECT_LT(elapsed, timeoutMs == 0 ? 1000ms : 10000ms);
  }
}

TEST(EventDeadline, CarriesOnlyMoreThanOneSecondOfNanoseconds) {
  // now (seconds, microseconds), time-out, deadline (seconds, nanoseconds)
  const std::tuple<long, long, int32_t, long, long> cases[] = {
      {100, 0, 1, 100, 1000000},
      {100, 500000, 2500, 102, 1000000000},  // exactly one second stays
      {7, 1001, 60999, 68, 1000}};
  for (const auto& [sec, usec, timeoutMs, wantSec, wantNsec] : cases) {
    const timespec deadline = EventDeadline(timeval{sec, usec}, timeoutMs);
    EXPECT_EQ(wantSec, deadline.tv_sec) << usec << " + " << timeoutMs;
    EXPECT_EQ(wantNsec, deadline.tv_nsec) << usec << " + " << timeoutMs;
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
  const std::tuple<unsigned, int, int> cases[] = {
      {5, 3, 3}, {5, 0, 5}, {5, -2, 5}, {0, 4, 4}, {2, 7, 7}};
  for (const auto& [initial, n, want] : cases) {
    TkSemaphore semaphore(initial);
    semaphore.SetCount(n);
    EXPECT_EQ(want, semaphore.GetValue()) << initial << " set to " << n;
  }
}

}  // namespace
}  // namespace tk
