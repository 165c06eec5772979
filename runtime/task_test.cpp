#include "runtime/task.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>

#include "runtime/signals.h"

namespace tk {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr const char* kSegvLine = "**************** Signal occured 11\n";

// The target of a faulting store: a page nobody may touch (set up by the test that
// uses it; not a null pointer, which the undefined-behaviour sanitizer would catch).
int* volatile gNowhere = nullptr;

// Where a Stop is expected to land: frames of their own that own nothing with a
// destructor and have no exception table (see task.h), left out of ThreadSanitizer's
// instrumentation, which would give them one. They are called through pointers the
// compiler cannot see through, so that it does not take the calls for nothrow and
// leave them out of the table of Run's frame. A test signals a spinning task only once
// it has seen the count move: Run's own frame has a table, and the unwind from an
// instruction of it that is not a call would end in std::terminate.
std::atomic<long> gSpins{0};
[[gnu::noinline, gnu::no_sanitize("thread")]] void SpinForever() {
  for (;;) gSpins.fetch_add(1, std::memory_order_relaxed);
}
[[gnu::noinline, gnu::no_sanitize("thread")]] void StoreToNowhere() { *gNowhere = 1; }
void (*volatile gSpinForever)() = &SpinForever;
void (*volatile gStoreToNowhere)() = &StoreToNowhere;

template <typename Done>
bool WaitUntil(Done done) {
  auto deadline = Clock::now() + 10s;
  while (!done() && Clock::now() < deadline) std::this_thread::sleep_for(5ms);
  return done();
}

bool Spinning() {
  const long before = gSpins;
  return WaitUntil([&] { return gSpins != before; });
}

enum Work { kReturn, kThrowStandard, kThrowOther, kEndless, kFault };

// A task that does one kind of work and records every hook it sees. A task made with
// new lives in one static slot: the auto-delete of a stopped task runs inside the signal
// handler of its thread, where allocator calls are not safe.
class ProbeTask : public TkTask {
 public:
  explicit ProbeTask(Work work) : work_(work) {}
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
    switch (work_) {
      case kReturn:
        return 7;
      case kThrowStandard:
        throw std::runtime_error("disk full");
      case kThrowOther:
        throw 5;
      case kEndless:
        gSpinForever();
        return 0;
      case kFault:
        gStoreToNowhere();
        return 0;
    }
    return 0;
  }
  // Also called in the clean-up of a signalled thread, where nothing may allocate.
  void OnException(const char* text) override {
    reportCount++;
    std::strncpy(report, text, sizeof(report) - 1);
  }
  bool Prepare() override { return prepareResult && TkTask::Prepare(); }
  void Finish() override {
    finishes++;
    TkTask::Finish();
  }

  alignas(std::max_align_t) static inline unsigned char slot[2048];
  static inline std::atomic<bool> slotFree{true};
  std::atomic<int> runs{0}, finishes{0}, reportCount{0};
  char report[64] = {};
  std::atomic<bool> interruptsBlocked{false};  // in the thread that ran Run
  bool prepareResult = true;
  Work work_;
};

// Installs the fatal-signal handler for one test and puts the previous actions back, so
// that a crash elsewhere in this binary is not taken for the end of a task thread.
struct TaskTest : ::testing::Test {
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
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

TEST_F(TaskTest, RunsThroughItsHooksInlineOrOnAThreadOfItsOwn) {
  struct Case {
    Work work;
    bool inCaller, prepare;
    int result;
    const char* report;
  } cases[] = {{kReturn, true, true, 7, ""},
               {kReturn, false, true, 7, ""},
               {kThrowStandard, true, true, 1, "disk full"},
               {kThrowStandard, false, true, 1, "disk full"},
               {kThrowOther, true, true, 1, "Unknown"},
               {kThrowOther, false, true, 1, "Unknown"},
               {kReturn, true, false, 1, ""},
               {kReturn, false, false, 1, ""}};  // Run skipped
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << int(c.work) << c.inCaller << c.prepare);
    ProbeTask task(c.work);
    task.prepareResult = c.prepare;
    EXPECT_EQ(c.prepare || !c.inCaller, task.Start(c.inCaller, false));
    ASSERT_TRUE(WaitUntil([&] { return task.finishes == 1 && !task.IsRunning(); }));
    EXPECT_EQ(c.result, task.Result());
    EXPECT_EQ(c.prepare ? 1 : 0, task.runs);
    EXPECT_STREQ(c.report, task.report);
    auto start = Clock::now();
    task.Stop();  // of a finished task: no signal, no pause
    EXPECT_LT(Clock::now() - start, 150ms);
    // A task thread leaves the interrupts to the main thread.
    EXPECT_EQ(c.prepare && !c.inCaller, task.interruptsBlocked);
  }
}

TEST_F(TaskTest, StopEndsAnEndlessRunQuietlyAndTheTaskCanRunAgain) {
  auto* task = new ProbeTask(kEndless);
  ASSERT_TRUE(task->Start(false, false));
  ASSERT_TRUE(Spinning());
  // Start during a threaded run starts nothing.
  EXPECT_FALSE(task->Start(true, false));
  EXPECT_TRUE(task->Start(false, false));
  ::testing::internal::CaptureStdout();
  auto start = Clock::now();
  task->Stop();
  ASSERT_TRUE(WaitUntil([&] { return !task->IsRunning(); }));
  auto elapsed = Clock::now() - start;
  EXPECT_EQ(kSegvLine, ::testing::internal::GetCapturedStdout());
  EXPECT_GE(elapsed, 190ms);   // Stop's own pause
  EXPECT_LT(elapsed, 3000ms);  // the thread went during it, give or take a loaded machine
  EXPECT_EQ(0, task->reportCount);
  EXPECT_EQ(1, task->runs);
  // The process and the task go on: a second run, with auto-delete, is stopped the
  // same way and the task deleted; so is a task that finishes by itself.
  ASSERT_TRUE(task->Start(false, true));
  ASSERT_TRUE(Spinning());
  ::testing::internal::CaptureStdout();
  task->Stop();
  EXPECT_TRUE(WaitUntil([] { return ProbeTask::slotFree.load(); }));
  EXPECT_EQ(kSegvLine, ::testing::internal::GetCapturedStdout());
  EXPECT_TRUE((new ProbeTask(kReturn))->Start(true, true));
  EXPECT_TRUE(ProbeTask::slotFree);
}

// Runs `work` on a threaded task in a child process whose standard output is the
// death test's captured stream, and prints what the task reported.
void RunToSignalInChild(Work work, int signalNumber) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  gNowhere = static_cast<int*>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ProbeTask task(work);
  task.Start(false, false);
  if (signalNumber != 0 && Spinning()) pthread_kill(task.ThreadId(), signalNumber);
  WaitUntil([&] { return !task.IsRunning(); });
  std::printf("running %d finishes %d\n", task.IsRunning() ? 1 : 0, task.finishes.load());
  if (task.reportCount > 0) std::printf("report: %s\n", task.report);
  raise(SIGCHLD);  // caught and ignored
  std::printf("process goes on\n");
  std::fflush(stdout);
  _exit(0);
}

TEST_F(TaskTest, AStraySignalEndsOnlyTheTaskThreadWithAReport) {
  // The line of the handler comes before the task's own report; SIGABRT has none.
  struct Case {
    Work work;
    int signalNumber;
    const char* line;
  } cases[] = {{kEndless, SIGSEGV, kSegvLine},
               {kFault, 0, kSegvLine},
               {kEndless, SIGFPE, "**************** Signal occured 8\n"},
               {kEndless, SIGABRT, ""}};
  std::string rest =
      "running 0 finishes 1\nreport: Uncatched exception (signal occured)\n"
      "process goes on\n";
  for (const Case& c : cases) {
    EXPECT_EXIT(RunToSignalInChild(c.work, c.signalNumber), ::testing::ExitedWithCode(0),
                ::testing::AllOf(::testing::HasSubstr(c.line + rest),
                                 ::testing::Not(::testing::HasSubstr("Signal occured 6"))));
  }
}

// ---- TkMsg ----

// Uses processor time until `ticks` more of it have passed, or the wall-clock limit.
void BurnProcessorTime(clock_t ticks) {
  auto deadline = Clock::now() + 60s;
  for (clock_t start = clock(); clock() - start < ticks && Clock::now() < deadline;) {
  }
}

// Sleeping uses no processor time; then more whole seconds of it than the time-out
// must pass. Disabled timing never times out and measures nothing.
TEST(TkMsg, TimesOutAfterMoreWholeSecondsOfProcessorTimeUntilStopped) {
  TkMsg message(0), disabled(-1);
  disabled.SetTimingEnabled(false);
  clock_t start = clock();
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

}  // namespace
}  // namespace tk
