// Fatal-signal handling of task threads. Once installed, a fatal signal ends only the
// thread that received it: the handler prints "**************** Signal occured N",
// re-arms itself and ends the thread with pthread_exit, whose unwinding runs the
// clean-up of a task thread (see TkTask). SIGCHLD is caught and ignored.
// Thread-safe: installation and re-arming are serialised by gSignalMutex.
#ifndef TAVIK_RUNTIME_SIGNALS_H_
#define TAVIK_RUNTIME_SIGNALS_H_

#include <signal.h>

namespace tk {

// The signals that get the handler.
inline constexpr int kFatalSignals[] = {SIGHUP,  SIGILL,  SIGTRAP, SIGABRT, SIGBUS,  SIGFPE,
                                        SIGSEGV, SIGCHLD, SIGTTIN, SIGTTOU, SIGXCPU, SIGXFSZ};

// Installs the handler for every signal of kFatalSignals. Nothing calls this on its
// own; a program whose tasks may be stopped must call it first (without the handler,
// TkTask::Stop ends the whole process).
void InstallSignalHandlers();

// The handler itself, for those who install it by hand. Prints the signal line (not for
// SIGABRT), re-arms, detaches and ends the calling thread; returns at once for SIGCHLD.
void FatalSignalHandler(int signalNumber);

}  // namespace tk

#endif  // TAVIK_RUNTIME_SIGNALS_H_
