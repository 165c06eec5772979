#include "runtime/task.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <typeinfo>

#include "runtime/signals.h"

namespace tk {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr const char* kSegvLine = "**************** Signal occured 11\n";

// Where a Stop is expected to land: a frame of its own that owns nothing with a
// destructor and has no exception table (see task.h), left out of ThreadSanitizer's
// instrumentation, which would give it one. It is called through a pointer the
// compiler cannot see through, so that it does not take the call for nothrow and
// leave it out of the table of Run's frame. A test signals a spinning task only once
// it has seen the count move: Run's own frame has a table, and the unwind from an
// instruction of it that is not a call would end in std::terminate.
std::atomic<long> gSpins{0};
[[gnu::noinline, gnu::no_sanitize("thread")]] void SpinForever() {
  for (;;) gSpins.fetch_add(1, std::memory_order_relaxed);
}
void (*volatile gSpinForever)() = &SpinForever;

template <typename Done>
bool WaitUntil(Done done) {
  const auto deadline = Clock::now() + 10s;
  while (!done() && Clock::now() < deadline) std::this_thread::sleep_for(5ms);
  return done();
}

enum Work { kReturn, kThrowStandard, kThrowOther, kEndless, kRaiseSigchld };

// A task that does one kind of work and records every hook it sees. A task made with
// new lives in one static slot: the auto-delete of a stopped task runs inside the signal
// handler of its thread, where allocator calls are not safe.
class ProbeTask : public TkTask {
 public:
  explicit ProbeTask(Work work) : work_(work) { report[0] = '\0'; }
  ~ProbeTask() override { Stop(); }
  static void* operator new(size_t size) {
    if (size > sizeof(slot) || !slotFree.exchange(false)) throw std::bad_alloc();
    return slot;
  }
  static void operator delete(void*) { slotFree = true; }  // the last touch of the slot

  int Run() override {
    runs++;
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    interruptsBlocked = sigismember(&mask, SIGINT) && sigismember(&mask, SIGTERM);
    if (work_ == kThrowStandard) throw std::runtime_error("disk full");
    if (work_ == kThrowOther) throw 5;
    if (work_ == kEndless) gSpinForever();
    if (work_ == kRaiseSigchld) raise(SIGCHLD);  // caught and ignored
    return 7;
  }
  // Also called in the clean-up of a signalled thread, where nothing may allocate.
  void OnException(const char* text) override { std::strncpy(report, text, sizeof(report) - 1); }
  bool Prepare() override { return prepareResult && TkTask::Prepare(); }
  void Finish() override {
    finishes++;
    TkTask::Finish();
  }

  alignas(std::max_align_t) static inline unsigned char slot[2048];
  static inline std::atomic<bool> slotFree{true};
  std::atomic<int> runs{0}, finishes{0};
  static inline char report[64];               // the last report of any probe
  std::atomic<bool> interruptsBlocked{false};  // in the thread that ran Run
  bool prepareResult = true;
  Work work_;
};

// Installs the fatal-signal handler for one test and puts the previous actions back, so
// that a crash elsewhere in this binary is not taken for the end of a task thread.
struct TaskTest : ::testing::Test {
  void SetUp() override {
    for (size_t i = 0; i < std::size(saved_); ++i) sigaction(kFatalSignals[i], nullptr, &saved_[i]);
    InstallSignalHandlers();
  }
  void TearDown() override {
    for (size_t i = 0; i < std::size(saved_); ++i) sigaction(kFatalSignals[i], &saved_[i], nullptr);
  }
  struct sigaction saved_[std::size(kFatalSignals)];
};

// Index of a virtual function in the table, from the Itanium ABI representation of a
// pointer to a virtual member function (1 + byte offset in the table).
template <typename MemberFunction>
std::ptrdiff_t SlotOf(MemberFunction function) {
  std::ptrdiff_t representation[2];
  static_assert(sizeof(function) == sizeof(representation));
  std::memcpy(&representation, &function, sizeof(representation));
  return (representation[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(RuntimeTypes, ClassesKeepTheirNamesAndVirtualSlots) {
  std::string names[] = {typeid(TkObject).name(),    typeid(TkMutex).name(), typeid(TkEvent).name(),
                         typeid(TkSemaphore).name(), typeid(TkMsg).name(),   typeid(TkTask).name()};
  EXPECT_THAT(names, ::testing::ElementsAre("8TkObject", "7TkMutex", "7TkEvent", "11TkSemaphore",
                                            "5TkMsg", "6TkTask"));
  // Slots 0 and 1 are the two destructors.
  std::ptrdiff_t slots[] = {SlotOf(&TkTask::Run),      SlotOf(&TkTask::OnException),
                            SlotOf(&TkTask::Prepare),  SlotOf(&TkTask::Finish),
                            SlotOf(&TkTask::Start),    SlotOf(&TkMsg::StartTimer),
                            SlotOf(&TkMsg::StopTimer), SlotOf(&TkMsg::IsTimedOut)};
  EXPECT_THAT(slots, ::testing::ElementsAre(2, 3, 4, 5, 6, 2, 3, 4));
}

// A task thread also leaves the interrupts to the main thread, and a SIGCHLD raised by
// Run is ignored. A Stop of a finished task sends nothing and does not pause.
TEST_F(TaskTest, RunsThroughItsHooksInlineOrOnAThreadOfItsOwn) {
  // work, in the caller's thread, what Prepare returns, result, report
  const std::tuple<Work, bool, bool, int, std::string> cases[] = {
      {kReturn, true, true, 7, ""},
      {kReturn, false, true, 7, ""},
      {kThrowStandard, true, true, 1, "disk full"},
      {kThrowOther, false, true, 1, "Unknown"},
      {kReturn, true, false, 1, ""},
      {kReturn, false, false, 1, ""},  // Run skipped
      {kRaiseSigchld, false, true, 7, ""}};
  for (const auto& [work, inCaller, prepare, result, report] : cases) {
    SCOPED_TRACE(::testing::Message() << work << inCaller << prepare);
    ProbeTask task(work);
    task.prepareResult = prepare;
    EXPECT_EQ(prepare || !inCaller, task.Start(inCaller, false));
    ASSERT_TRUE(WaitUntil([&] { return task.finishes == 1 && !task.IsRunning(); }));
    EXPECT_EQ(result, task.Result());
    EXPECT_EQ(prepare ? 1 : 0, task.runs);
    EXPECT_EQ(report, task.report);
    EXPECT_EQ(prepare && !inCaller, task.interruptsBlocked);
    const auto start = Clock::now();
    task.Stop();
    EXPECT_LT(Clock::now() - start, 150ms);
  }
}

// A signal ends only the task's thread, after the handler's line (none for SIGABRT)
// and, unless Stop sent it, the task's report; the process goes on and the task can
// run again. Nothing starts during a threaded run. Stop pauses 200 ms for the thread
// to go. With auto-delete the ended task is deleted, as one that finishes by itself is.
TEST_F(TaskTest, ASignalEndsOnlyTheTaskThread) {
  constexpr int kByStop = 0;
  // the signal (kByStop: sent by Stop), auto-delete, the handler's line, the report
  const std::tuple<int, bool, std::string, std::string> cases[] = {
      {kByStop, false, kSegvLine, ""},
      {SIGSEGV, false, kSegvLine, kSignalEndReport},
      {kByStop, true, kSegvLine, ""},
      {SIGFPE, false, "**************** Signal occured 8\n", kSignalEndReport},
      {SIGABRT, true, "", kSignalEndReport}};
  ProbeTask* task = nullptr;
  for (const auto& [signalNumber, autoDelete, line, report] : cases) {
    SCOPED_TRACE(signalNumber);
    if (ProbeTask::slotFree) task = new ProbeTask(kEndless);
    ProbeTask::report[0] = '\0';
    ASSERT_TRUE(task->Start(false, autoDelete));
    ASSERT_TRUE(WaitUntil([before = gSpins.load()] { return gSpins != before; }));  // spinning
    EXPECT_FALSE(task->Start(true, autoDelete));
    EXPECT_TRUE(task->Start(false, autoDelete));
    ::testing::internal::CaptureStdout();
    const auto start = Clock::now();
    if (signalNumber == kByStop) {
      task->Stop();
      EXPECT_GE(Clock::now() - start, 190ms);
    } else {
      pthread_kill(task->ThreadId(), signalNumber);
    }
    ASSERT_TRUE(autoDelete ? WaitUntil([] { return ProbeTask::slotFree.load(); })
                           : WaitUntil([&] { return !task->IsRunning(); }));
    EXPECT_LT(Clock::now() - start, 3000ms);  // give or take a loaded machine
    EXPECT_EQ(line, ::testing::internal::GetCapturedStdout());
    EXPECT_EQ(report, ProbeTask::report);
    if (!autoDelete) {
      EXPECT_EQ(1, task->runs.exchange(0));  // the Starts during the run ran nothing
    }
  }
  EXPECT_TRUE((new ProbeTask(kReturn))->Start(true, true));
  EXPECT_TRUE(ProbeTask::slotFree);
}

// ---- TkMsg ----

// Uses processor time until `ticks` more of it have passed, or the wall-clock limit.
void BurnProcessorTime(clock_t ticks) {
  const auto deadline = Clock::now() + 60s;
  for (clock_t start = clock(); clock() - start < ticks && Clock::now() < deadline;) {
  }
}

// Sleeping uses no processor time; then more whole seconds of it than the time-out
// must pass. Disabled timing never times out and measures nothing.
TEST(TkMsg, TimesOutAfterMoreWholeSecondsOfProcessorTimeUntilStopped) {
  TkMsg message(0), disabled(-1);
  disabled.SetTimingEnabled(false);
  const clock_t start = clock();
  message.StartTimer();
  std::this_thread::sleep_for(1500ms);
  EXPECT_FALSE(message.IsTimedOut());
  BurnProcessorTime(980000 - (clock() - start));
  EXPECT_FALSE(message.IsTimedOut());
  BurnProcessorTime(40000);
  EXPECT_TRUE(message.IsTimedOut());
  message.StopTimer();
  EXPECT_EQ(message.ElapsedMilliseconds() / 1000, 1);  // a little over a second
  BurnProcessorTime(20000);
  message.StartTimer();  // a stopped timer does not start again: the next stop still
  message.StopTimer();   // measures from the last one
  EXPECT_GE(message.ElapsedMilliseconds(), 15);
  EXPECT_FALSE(disabled.IsTimedOut());
  disabled.StopTimer();
  EXPECT_EQ(0, disabled.ElapsedMilliseconds());
}

TEST(TkMsg, ClockTicksToMillisecondsCutsTheProductTo32Bits) {
  const std::pair<clock_t, int32_t> cases[] = {{0, 0},           {1999, 1},        {2147483, 2147},
                                               {2147484, -2147}, {3000000, -1294}, {4294968, 0}};
  for (const auto& [ticks, milliseconds] : cases)
    EXPECT_EQ(milliseconds, ClockTicksToMilliseconds(ticks)) << ticks;
}

}  // namespace
}  // namespace tk
