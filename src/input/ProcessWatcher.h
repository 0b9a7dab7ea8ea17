#pragma once

#include <cstdint>

namespace morvax {

// Decides when the collector has to stop: on a console event (SIGINT or SIGTERM on Linux), when a
// named process ends, or when the daemon that started us ends. One process-wide record, guarded
// by one lock; every failure of the system ends the process with a message on standard error.
enum ProcessWatcherMode : uint32_t {
    // Console events only.
    WATCH_NONE = 0,
    // The end of `pid` makes a graceful stop through the callback.
    WATCH_RUN_UNTIL_PID_DIES = 1,
    // The end of `pid` ends this process at once with status 2, even during a graceful stop.
    WATCH_DIE_WHEN_PID_DIES = 2,
    // The process named by MORVAXD_PROCESSID, if set; its end ends this process with status 99.
    WATCH_PARENT_ENV = 3
};

// The stop callback. It runs under the watcher's lock, so it must not call back into the
// watcher; it should only set flags.
using ProcessWatcherCallback = void (*)(void* argument);

// Sets everything up, or ends the process. A second call while the watcher runs does nothing.
void processWatcherStart(ProcessWatcherCallback callback, void* argument, ProcessWatcherMode mode,
                         uint32_t pid);
// Undoes the start on the normal way out of a run; does nothing when not started.
void processWatcherStop();
// Fires the stop callback, at most once per start, on the calling thread.
void processWatcherTrigger();

}  // namespace morvax
