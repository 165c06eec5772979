// FatalSignalHandler pairs Lock and Unlock of gSignalMutex by hand: it ends the thread
// with pthread_exit, whose unwinding passes through its frame, so that frame keeps no
// object with a destructor (see the note at the handler).
#include "runtime/signals.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>

#include "runtime/sync.h"

namespace tk {

namespace {

constexpr const char* kSignalLine = "**************** Signal occured %d\n";
constexpr size_t kSignalLineSize = 64;

// SA_RESTART as with signal(): a SIGCHLD must not break the main thread's blocking reads.
void ArmHandler(int signalNumber) {
  struct sigaction action = {};
  action.sa_handler = FatalSignalHandler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(signalNumber, &action, nullptr);
}

void* ExitAtOnce(void*) { pthread_exit(nullptr); }

// The first pthread_exit of a process loads the unwinder library, which allocates and
// takes the loader's lock. Done once here, so that the handler never does it while the
// interrupted code may hold those.
void LoadUnwinder() {
  pthread_t thread;
  if (pthread_create(&thread, nullptr, ExitAtOnce, nullptr) == 0) pthread_join(thread, nullptr);
}

// Formats without allocating and writes past the stream buffer (flushed first, so the
// line keeps its place in the output): the handler may have interrupted malloc.
void PrintSignalLine(int signalNumber) {
  char line[kSignalLineSize];
  int length = std::snprintf(line, sizeof(line), kSignalLine, signalNumber);
  std::fflush(stdout);
  if (length > 0 && write(STDOUT_FILENO, line, static_cast<size_t>(length)) < 0) {
    // Nothing can be done about a lost line inside a signal handler.
  }
}

pthread_once_t gUnwinderOnce = PTHREAD_ONCE_INIT;

}  // namespace

void InstallSignalHandlers() {
  pthread_once(&gUnwinderOnce, LoadUnwinder);
  TkLockGuard hold(gSignalMutex);
  for (int signalNumber : kFatalSignals) ArmHandler(signalNumber);
}

// pthread_exit unwinds through this frame, the kernel's signal frame and the code that
// was interrupted, running the destructors on the way: this function must keep no
// object with a destructor and must not be noexcept.
void FatalSignalHandler(int signalNumber) {
  if (signalNumber == SIGCHLD) return;
  if (signalNumber != SIGABRT) PrintSignalLine(signalNumber);
  gSignalMutex.Lock();
  ArmHandler(signalNumber);
  gSignalMutex.Unlock();
  pthread_detach(pthread_self());
  pthread_exit(nullptr);
}

}  // namespace tk
