// Process launcher and dynamic-library guards.
//
// RunCommand runs one shell command line through "/bin/sh -c" in a child process
// that inherits the caller's environment, working directory and standard streams,
// and waits for it by polling with a pause that grows from 1 ms to 10 s. It
// installs no signal handler and does not block SIGCHLD: if something else in the
// process reaps the child, the wait fails and the result is -1.
//
// The three guards wrap dlopen/dlsym/dlclose so that empty names and null handles
// never reach the loader.
//
// Thread-safe: no shared state. RunCommand blocks its caller for the life of the
// child (or until the time-out).
#ifndef TAVIK_SUPPORT_PROCESS_H_
#define TAVIK_SUPPORT_PROCESS_H_

#include <cstdint>

namespace tk {

// Time-out values of RunCommand with a meaning of their own.
constexpr uint32_t kRunNoWait = 0;                // start the command and return
constexpr uint32_t kRunWaitForever = 0xFFFFFFFF;  // wait without limit

// Longest command line RunCommand passes to the shell; longer ones are cut.
constexpr int kMaxCommandLength = 8191;

// Runs `command` (cleaned with TrimWhitespace, cut to kMaxCommandLength characters)
// as "/bin/sh -c command". `exitStatus` is set to 0 first and receives the child's
// exit code when it ends normally. `timeoutSeconds` 0 only starts the command;
// kRunWaitForever waits without limit; any other value sends SIGTERM once more than
// that many whole seconds have passed, and reaps the child.
// Returns 0 on a normal end (any exit code but 127) or with time-out 0; -1 for a null
// or blank command, a failed fork or wait, a child ended by a signal or stopped, or
// exit code 127 (the shell's "command not found"); -2 when killed at the time-out.
int RunCommand(const char* command, int32_t* exitStatus, uint32_t timeoutSeconds);

// dlopen(`fileName`, RTLD_LAZY); null for a null or empty name without calling the
// loader. The handle must be given back with CloseSharedLibrary.
void* OpenSharedLibrary(const char* fileName);

// dlsym(`handle`, `name`); null for a null handle or a null or empty name.
void* FindSharedSymbol(void* handle, const char* name);

// dlclose(`handle`) unless it is null.
void CloseSharedLibrary(void* handle);

}  // namespace tk

#endif  // TAVIK_SUPPORT_PROCESS_H_
