#include "runtime/task.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "runtime/signals.h"

namespace tk {
namespace {

using Clock = std::chrono::steady_clock;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kSegvLine = "**************** Signal occured 11\n";
constexpr auto kGenerous = std::chrono::seconds(10);

// The target of a faulting store: a page nobody may touch (set up by the test that
// uses it; not a null pointer, which the undefined-behaviour sanitizer would catch).
int* volatile gNowhere = nullptr;

// Where a Stop is expected to land: frames of their own that own nothing with a
// destructor and have no exception table (see task.h), left out of ThreadSanitizer's
// instrumentation, which would give them one. They are called through pointers the
// compiler cannot see through, so that it does not take the calls for nothrow and
// leave them out of the table of Run's frame.
[[gnu::noinline, gnu::no_sanitize("thread")]] void SpinForever(volatile long* counter) {
  for (;;) *counter = *counter + 1;
}
[[gnu::noinline, gnu::no_sanitize("thread")]] void StoreToNowhere() { *gNowhere = 1; }
void (*volatile gSpinForever)(volatile long*) = &SpinForever;
void (*volatile gStoreToNowhere)() = &StoreToNowhere;

bool WaitUntil(const std::function<bool()>& done) {
  auto deadline = Clock::now() + kGenerous;
  while (!done()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

long long MillisSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

enum class Work { kReturn, kThrowStandard, kThrowOther, kEndless, kUntilReleased, kFault };

// A task that does one kind of work and records every hook it sees.
class ProbeTask : public TkTask {
 public:
  explicit ProbeTask(Work work, std::atomic<bool>* destroyed = nullptr)
      : work_(work), destroyed_(destroyed) {}
  ~ProbeTask() override {
    Stop();
    if (destroyed_ != nullptr) *destroyed_ = true;
  }

  int Run() override {
    runs++;
    runThread = pthread_self();
    pthread_sigmask(SIG_BLOCK, nullptr, &runMask);
    started.Set();
    switch (work_) {
      case Work::kReturn: return 7;
      case Work::kThrowStandard: throw std::runtime_error("disk full");
      case Work::kThrowOther: throw 5;
      case Work::kEndless:
        gSpinForever(&spins);
        return 0;
      case Work::kUntilReleased:
        release.Wait(-1);
        release.EndWait();
        return 3;
      case Work::kFault:
        gStoreToNowhere();
        return 0;
    }
    return 0;
  }
  // Also called in the clean-up of a signalled thread, where nothing may allocate.
  void OnException(const char* text) override {
    int index = reportCount;
    if (index < kMaxReports) {
      std::strncpy(reports_[index], text, kReportSize - 1);
      reports_[index][kReportSize - 1] = '\0';
    }
    reportCount = index + 1;
  }
  bool Prepare() override {
    prepares++;
    return prepareResult && TkTask::Prepare();
  }
  void Finish() override {
    finishes++;
    TkTask::Finish();
  }
  std::vector<std::string> Reports() {
    std::vector<std::string> reports;
    for (int i = 0; i < reportCount && i < kMaxReports; ++i) reports.emplace_back(reports_[i]);
    return reports;
  }

  std::atomic<int> runs{0}, prepares{0}, finishes{0};
  volatile long spins = 0;  // touched by the task thread only
  std::atomic<pthread_t> runThread{0};
  sigset_t runMask;
  bool prepareResult = true;
  TkEvent started, release;

 private:
  static constexpr int kMaxReports = 4;
  static constexpr size_t kReportSize = 64;
  std::atomic<int> reportCount{0};
  char reports_[kMaxReports][kReportSize] = {};
  Work work_;
  std::atomic<bool>* destroyed_;
};

// A task whose deletion frees nothing: the auto-delete of a stopped task runs inside the
// signal handler of its thread, where allocator calls are not safe.
class StaticProbeTask : public ProbeTask {
 public:
  using ProbeTask::ProbeTask;
  static void* operator new(size_t size);
  // The last touch of the slot: after it the slot may be used again.
  static void operator delete(void*) { slotFree = true; }
  static inline std::atomic<bool> slotFree{true};
};

alignas(std::max_align_t) unsigned char gStaticTaskSlot[2048];
static_assert(sizeof(StaticProbeTask) <= sizeof(gStaticTaskSlot));

void* StaticProbeTask::operator new(size_t size) {
  if (size > sizeof(gStaticTaskSlot) || !slotFree.exchange(false)) throw std::bad_alloc();
  return gStaticTaskSlot;
}

// Installs the fatal-signal handler for one test and puts the previous actions back.
class TaskTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (size_t i = 0; i < std::size(kFatalSignals); ++i) sigaction(kFatalSignals[i], nullptr, &saved_[i]);
    InstallSignalHandlers();
  }
  void TearDown() override {
    for (size_t i = 0; i < std::size(kFatalSignals); ++i) sigaction(kFatalSignals[i], &saved_[i], nullptr);
  }
  // Finish has run to its end, so the task may go.
  static bool Finished(ProbeTask& task, int times = 1) {
    return WaitUntil([&] { return task.finishes == times && !task.IsRunning(); });
  }
  static bool Started(ProbeTask& task) {
    bool ok = task.started.Wait(10000) == 0;
    task.started.EndWait();
    return ok;
  }

 private:
  struct sigaction saved_[std::size(kFatalSignals)];
};

// Index of a virtual function in the table, from the Itanium ABI representation of a
// pointer to a virtual member function (1 + byte offset in the table).
template <typename MemberFunction>
std::ptrdiff_t SlotOf(MemberFunction function) {
  struct Representation {
    std::ptrdiff_t pointer, adjustment;
  } representation;
  static_assert(sizeof(function) == sizeof(representation));
  std::memcpy(&representation, &function, sizeof(representation));
  return (representation.pointer - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(TkTaskLayout, VirtualSlotsFollowTheDestructors) {
  // Slots 0 and 1 are the two destructors.
  EXPECT_EQ(2, SlotOf(&TkTask::Run));
  EXPECT_EQ(3, SlotOf(&TkTask::OnException));
  EXPECT_EQ(4, SlotOf(&TkTask::Prepare));
  EXPECT_EQ(5, SlotOf(&TkTask::Finish));
  EXPECT_EQ(6, SlotOf(&TkTask::Start));
  EXPECT_EQ(2, SlotOf(&TkMsg::StartTimer));
  EXPECT_EQ(3, SlotOf(&TkMsg::StopTimer));
  EXPECT_EQ(4, SlotOf(&TkMsg::IsTimedOut));
}

TEST_F(TaskTest, InlineRunStoresTheResultInTheCallersThread) {
  ProbeTask task(Work::kReturn);
  EXPECT_TRUE(task.Start(true, false));
  EXPECT_EQ(7, task.Result());
  EXPECT_TRUE(task.IsInline());
  EXPECT_FALSE(task.IsRunning());
  EXPECT_TRUE(pthread_equal(pthread_self(), task.runThread));
  EXPECT_EQ(1, task.prepares);
  EXPECT_EQ(1, task.runs);
  EXPECT_EQ(1, task.finishes);
  EXPECT_EQ(0u, task.ThreadId());
  EXPECT_TRUE(task.Reports().empty());
}

TEST_F(TaskTest, ExceptionsFromRunAreReportedAndFinishStillRuns) {
  struct Case {
    Work work;
    bool inCallerThread;
    const char* report;
  } cases[] = {{Work::kThrowStandard, true, "disk full"},
               {Work::kThrowOther, true, "Unknown"},
               {Work::kThrowStandard, false, "disk full"},
               {Work::kThrowOther, false, "Unknown"}};
  for (const Case& c : cases) {
    ProbeTask task(c.work);
    EXPECT_TRUE(task.Start(c.inCallerThread, false));
    ASSERT_TRUE(Finished(task));
    EXPECT_EQ(1, task.Result());
    EXPECT_THAT(task.Reports(), ::testing::ElementsAre(c.report));
  }
}

TEST_F(TaskTest, RefusingPrepareSkipsRunButNotFinish) {
  for (bool inCallerThread : {true, false}) {
    ProbeTask task(Work::kReturn);
    task.prepareResult = false;
    EXPECT_EQ(!inCallerThread, task.Start(inCallerThread, false));
    ASSERT_TRUE(Finished(task));
    EXPECT_EQ(0, task.runs);
    EXPECT_EQ(1, task.Result());
  }
}

TEST_F(TaskTest, ThreadedRunHappensOnItsOwnThreadWithInterruptsBlocked) {
  ProbeTask task(Work::kReturn);
  ASSERT_TRUE(task.Start(false, false));
  ASSERT_TRUE(Finished(task));
  EXPECT_EQ(7, task.Result());
  EXPECT_FALSE(task.IsInline());
  EXPECT_FALSE(pthread_equal(pthread_self(), task.runThread));
  EXPECT_TRUE(sigismember(&task.runMask, SIGINT));
  EXPECT_TRUE(sigismember(&task.runMask, SIGTERM));
  EXPECT_FALSE(sigismember(&task.runMask, SIGSEGV));
  EXPECT_EQ(1, task.finishes);
  EXPECT_EQ(0u, task.ThreadId());
}

TEST_F(TaskTest, StartDuringAThreadedRunStartsNothing) {
  ProbeTask task(Work::kUntilReleased);
  ASSERT_TRUE(task.Start(false, false));
  ASSERT_TRUE(Started(task));
  EXPECT_FALSE(task.Start(true, false));
  EXPECT_TRUE(task.Start(false, false));
  EXPECT_TRUE(task.IsRunning());
  task.release.Set();
  ASSERT_TRUE(Finished(task));
  EXPECT_EQ(1, task.prepares);
  EXPECT_EQ(1, task.runs);
  EXPECT_EQ(1, task.finishes);
  EXPECT_EQ(3, task.Result());
}

TEST_F(TaskTest, StopEndsAnEndlessRunQuietlyAndTheTaskCanRunAgain) {
  ProbeTask task(Work::kEndless);
  ASSERT_TRUE(task.Start(false, false));
  ASSERT_TRUE(Started(task));
  ::testing::internal::CaptureStdout();
  auto start = Clock::now();
  task.Stop();
  bool ended = WaitUntil([&] { return !task.IsRunning(); });
  long long millis = MillisSince(start);
  std::string output = ::testing::internal::GetCapturedStdout();
  ASSERT_TRUE(ended);
  EXPECT_GE(millis, 190);   // Stop's own pause
  EXPECT_LT(millis, 3000);  // the thread went during it, give or take a loaded machine
  EXPECT_EQ(kSegvLine, output);
  EXPECT_TRUE(task.Reports().empty());
  EXPECT_EQ(1, task.finishes);
  EXPECT_EQ(0u, task.ThreadId());
  // The process and the task go on: a second run is stopped the same way.
  task.started.Reset();
  ASSERT_TRUE(task.Start(false, false));
  ASSERT_TRUE(Started(task));
  ::testing::internal::CaptureStdout();
  task.Stop();
  ::testing::internal::GetCapturedStdout();
  ASSERT_TRUE(Finished(task, 2));
  EXPECT_TRUE(task.Reports().empty());
}

TEST_F(TaskTest, StopOfAFinishedOrInlineTaskDoesNothing) {
  ProbeTask task(Work::kReturn);
  task.Stop();
  ASSERT_TRUE(task.Start(true, false));
  auto start = Clock::now();
  task.Stop();
  EXPECT_LT(MillisSince(start), 150);  // no signal, no pause
  EXPECT_EQ(1, task.finishes);
}

TEST_F(TaskTest, AutoDeleteDeletesTheTaskWhenItFinishes) {
  for (bool inCallerThread : {true, false}) {
    std::atomic<bool> destroyed{false};
    auto* task = new ProbeTask(Work::kReturn, &destroyed);
    EXPECT_TRUE(task->Start(inCallerThread, true));
    EXPECT_TRUE(WaitUntil([&] { return destroyed.load(); })) << inCallerThread;
  }
}

TEST_F(TaskTest, AutoDeleteAlsoDeletesAStoppedTask) {
  std::atomic<bool> destroyed{false};
  auto* task = new StaticProbeTask(Work::kEndless, &destroyed);
  ASSERT_TRUE(task->Start(false, true));
  ASSERT_TRUE(Started(*task));
  ::testing::internal::CaptureStdout();
  task->Stop();
  bool gone = WaitUntil([&] { return StaticProbeTask::slotFree.load(); });
  EXPECT_EQ(kSegvLine, ::testing::internal::GetCapturedStdout());
  EXPECT_TRUE(gone);
  EXPECT_TRUE(destroyed);
}

TEST_F(TaskTest, ChildSignalIsIgnored) {
  EXPECT_EQ(0, raise(SIGCHLD));
  struct sigaction action;
  sigaction(SIGCHLD, nullptr, &action);
  EXPECT_EQ(&FatalSignalHandler, action.sa_handler);
}

// Runs `work` on a threaded task in a child process whose standard output is the
// death test's captured stream, and prints what the task reported.
void RunToSignalInChild(Work work, int signalNumber) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  void* page = mmap(nullptr, static_cast<size_t>(getpagesize()), PROT_NONE,
                    MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  gNowhere = static_cast<int*>(page);
  ProbeTask task(work);
  task.Start(false, false);
  if (!task.started.IsSet()) {
    task.started.Wait(10000);
    task.started.EndWait();
  }
  if (signalNumber != 0) pthread_kill(task.ThreadId(), signalNumber);
  bool ended = WaitUntil([&] { return !task.IsRunning(); });
  std::printf("ended %d finishes %d\n", ended ? 1 : 0, task.finishes.load());
  for (const std::string& report : task.Reports()) std::printf("report: %s\n", report.c_str());
  std::printf("process goes on\n");
  std::fflush(stdout);
  _exit(0);
}

class TaskSignalTest : public TaskTest {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TaskTest::SetUp();
  }
};

TEST_F(TaskSignalTest, StraySegvEndsOnlyTheTaskThreadWithAReport) {
  auto reported = HasSubstr(std::string(kSegvLine) +
                            "ended 1 finishes 1\n"
                            "report: Uncatched exception (signal occured)\n"
                            "process goes on\n");
  EXPECT_EXIT(RunToSignalInChild(Work::kEndless, SIGSEGV), ::testing::ExitedWithCode(0), reported);
  EXPECT_EXIT(RunToSignalInChild(Work::kFault, 0), ::testing::ExitedWithCode(0), reported);
}

TEST_F(TaskSignalTest, OtherFatalSignalsEndTheThreadTooAbortWithoutALine) {
  EXPECT_EXIT(RunToSignalInChild(Work::kEndless, SIGFPE), ::testing::ExitedWithCode(0),
              HasSubstr("**************** Signal occured 8\n"
                        "ended 1 finishes 1\n"
                        "report: Uncatched exception (signal occured)\n"));
  EXPECT_EXIT(RunToSignalInChild(Work::kEndless, SIGABRT), ::testing::ExitedWithCode(0),
              ::testing::AllOf(Not(HasSubstr("Signal occured")),
                               HasSubstr("ended 1 finishes 1\n"
                                         "report: Uncatched exception (signal occured)\n")));
}

// ---- TkMsg ----

// Uses processor time until `ticks` more of it have passed, or the wall-clock limit.
void BurnProcessorTime(clock_t ticks) {
  clock_t start = clock();
  auto deadline = Clock::now() + std::chrono::seconds(60);
  while (clock() - start < ticks && Clock::now() < deadline) {
  }
}

TEST(TkMsg, ConstructorsSetTimeOutAndCode) {
  EXPECT_EQ(300, TkMsg().TimeoutSeconds());
  EXPECT_EQ(0u, TkMsg(5).Code());
  EXPECT_EQ(6, TkMsg(6, 0xabcd).TimeoutSeconds());
  EXPECT_EQ(0xabcdu, TkMsg(6, 0xabcd).Code());
  EXPECT_EQ(0, TkMsg().ElapsedMilliseconds());
}

TEST(TkMsg, SleepingNeverTimesOut) {
  TkMsg message(1);
  message.StartTimer();
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  EXPECT_FALSE(message.IsTimedOut());
}

TEST(TkMsg, TimesOutOnlyAfterMoreWholeSecondsOfProcessorTime) {
  TkMsg message(0);
  message.StartTimer();
  clock_t start = clock();
  BurnProcessorTime(500000);
  EXPECT_FALSE(message.IsTimedOut());
  auto deadline = Clock::now() + std::chrono::seconds(60);
  while (!message.IsTimedOut() && Clock::now() < deadline) {
  }
  EXPECT_TRUE(message.IsTimedOut());
  EXPECT_GE(clock() - start, 1000000);
}

TEST(TkMsg, StopTimerMeasuresOnceAndForGood) {
  TkMsg message(-1);  // whole seconds used, 0, already exceed it
  message.StartTimer();
  EXPECT_TRUE(message.IsTimedOut());
  BurnProcessorTime(100000);
  EXPECT_EQ(0, message.ElapsedMilliseconds());
  message.StopTimer();
  int32_t elapsed = message.ElapsedMilliseconds();
  EXPECT_GE(elapsed, 95);
  EXPECT_LT(elapsed, 5000);
  EXPECT_FALSE(message.IsTimedOut());
  BurnProcessorTime(20000);
  message.StartTimer();  // a stopped timer does not start again
  message.StopTimer();   // but measures again from its last reading
  EXPECT_GE(message.ElapsedMilliseconds(), 15);
  EXPECT_LT(message.ElapsedMilliseconds(), elapsed);
  EXPECT_FALSE(message.IsTimedOut());
}

TEST(TkMsg, DisabledTimingMeasuresNothing) {
  TkMsg message(-1);
  message.SetTimingEnabled(false);
  message.StartTimer();
  BurnProcessorTime(20000);
  EXPECT_FALSE(message.IsTimedOut());
  message.StopTimer();
  EXPECT_EQ(0, message.ElapsedMilliseconds());
}

TEST(RuntimeTypes, ClassesAreKnownByTheirPlainNames) {
  EXPECT_STREQ(typeid(TkObject).name(), "8TkObject");
  EXPECT_STREQ(typeid(TkMutex).name(), "7TkMutex");
  EXPECT_STREQ(typeid(TkEvent).name(), "7TkEvent");
  EXPECT_STREQ(typeid(TkSemaphore).name(), "11TkSemaphore");
  EXPECT_STREQ(typeid(TkMsg).name(), "5TkMsg");
  EXPECT_STREQ(typeid(TkTask).name(), "6TkTask");
}

}  // namespace
}  // namespace tk
