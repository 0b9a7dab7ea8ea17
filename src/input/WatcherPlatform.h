#pragma once

#include <cstdint>

// The operating-system primitives of the process watcher: events, threads, processes and the
// console's stop request. The watcher's logic (ProcessWatcher.cpp) lives once above them.
namespace morvax::watcher {

// An event, thread or process: a file descriptor or a HANDLE, as an integer wide enough for
// both. kNone is no object.
using Handle = intptr_t;
constexpr Handle kNone = -1;

// A process to wait for. Where the kernel gives no handle for a process, `handle` is kNone and
// the process is probed by its pid.
struct Process {
    Handle handle = kNone;
    uint32_t pid = 0;
};

// The platform's last-error value after a failed call below.
uint32_t lastError();

// A manual-reset event, initially clear; kNone when it cannot be made.
Handle createEvent();
bool setEvent(Handle event);
void closeHandle(Handle object);

// A thread running `main(argument)`; kNone when it cannot be made. joinThread waits for its end
// and releases it.
Handle startThread(void (*main)(void*), void* argument);
void joinThread(Handle thread);
// A thread that nobody joins, started the way the parent watch needs it; false when it could
// not be started.
bool startDetachedThread(void (*main)(void*));

enum class Opened { PROCESS, GONE, FAILED };
// Opens `pid` for waiting. GONE: there is no such process (any more); FAILED leaves the error.
Opened openProcess(uint32_t pid, Process& process);
enum class Waited { PROCESS, EVENT, FAILED };
// Waits without limit for the end of the process or for the event; the process wins when both
// are there. FAILED leaves the error.
Waited waitForProcessOrEvent(const Process& process, Handle event);
// Blocks until the process may have ended (at most a short while where it is probed).
void waitForProcess(const Process& process);
// Whether the process has ended; the handle is closed when it says so.
bool processHasEnded(Process& process);

// MORVAXD_PROCESSID as a number, read into 50 characters with the terminator: false when unset
// or longer. Like _wtol, a text that is no number gives 0.
bool readParentProcessId(uint32_t& pid);

// Routes the console's stop requests (Ctrl-C and Ctrl-Break; SIGINT and SIGTERM on POSIX) to
// `onRequest`. Removing happens under the watcher's lock; finishing after it, since a thread of
// ours may be waiting for that lock to deliver a request.
bool installConsoleHandler(void (*onRequest)());
void removeConsoleHandler();
void finishConsoleHandler();

// Ends the process at once, without exit handlers.
[[noreturn]] void exitNow(int status);

}  // namespace morvax::watcher
