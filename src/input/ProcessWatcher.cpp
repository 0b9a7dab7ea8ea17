#include "input/ProcessWatcher.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>

#include "input/WatcherPlatform.h"

namespace morvax {

namespace {

using watcher::Handle;
using watcher::kNone;

// Exit statuses of the parent watch; they end the process without running exit handlers.
constexpr int kParentNoThread = 96;
constexpr int kParentAlreadyEnded = 97;
constexpr int kParentCannotOpen = 98;
constexpr int kParentEnded = 99;
constexpr int kWatchedProcessEnded = 2;

struct Record {
    ProcessWatcherCallback callback;  // null once fired or once stopping
    void* callbackArgument;
    uint32_t mode;
    uint32_t pid;
    Handle watchThread;
    Handle stopEvent;
    // Made under the lock by the watch thread when it goes on watching through a graceful stop;
    // processWatcherStop sets it to end that watch.
    Handle lingerEvent;
    // Set under the lock by processWatcherStop: the stop event then means "stop", not Ctrl-C.
    bool stopping;
};

// Made at the first start and never freed, like the record's pointer process-wide.
std::atomic<std::recursive_mutex*> watcherLock{nullptr};
Record* record = nullptr;
// The parent of WATCH_PARENT_ENV, watched for the life of the process, whatever starts and stops
// follow.
watcher::Process parent;
bool parentWatched = false;

class WatcherGuard {
  public:
    WatcherGuard() : lock_(watcherLock.load()) { lock_->lock(); }
    ~WatcherGuard() { lock_->unlock(); }
    WatcherGuard(const WatcherGuard&) = delete;
    WatcherGuard& operator=(const WatcherGuard&) = delete;

  private:
    std::recursive_mutex* lock_;
};

[[noreturn]] void fail(const char* format) {
    std::fprintf(stderr, format, static_cast<unsigned>(watcher::lastError()));
    std::exit(1);
}

[[noreturn]] void failForPid(const char* format, uint32_t pid) {
    std::fprintf(stderr, format, static_cast<unsigned>(pid),
                 static_cast<unsigned>(watcher::lastError()));
    std::exit(1);
}

Handle createEvent() {
    Handle event = watcher::createEvent();
    if (event == kNone) {
        fail("Error creating unnamed event: CreateEvent: %u\n");
    }
    return event;
}

void setEvent(Handle event) {
    if (!watcher::setEvent(event)) {
        fail("Error signaling event: SetEvent: %u\n");
    }
}

Handle startThread(void (*main)(void*), void* argument) {
    Handle thread = watcher::startThread(main, argument);
    if (thread == kNone) {
        fail("Error creating a new thread: CreateThread: %u\n");
    }
    return thread;
}

void watchThreadMain(void* argument) {
    Record* watched = static_cast<Record*>(argument);
    watcher::Process process;
    switch (watcher::openProcess(watched->pid, process)) {
        case watcher::Opened::PROCESS:
            break;
        case watcher::Opened::FAILED:
            failForPid("Error waiting for process with PID %u to finish: OpenProcess: %u\n",
                       watched->pid);
        case watcher::Opened::GONE:
            if (watched->mode == WATCH_DIE_WHEN_PID_DIES) {
                std::exit(kWatchedProcessEnded);
            }
            processWatcherTrigger();
            return;
    }
    watcher::Waited waited = watcher::waitForProcessOrEvent(process, watched->stopEvent);
    if (waited == watcher::Waited::FAILED) {
        failForPid("Error waiting for process with PID %u to finish: WaitForMultipleObjects: %u\n",
                   watched->pid);
    }
    Handle lingerEvent = kNone;
    if (watched->mode == WATCH_DIE_WHEN_PID_DIES) {
        if (waited == watcher::Waited::PROCESS) {
            std::exit(kWatchedProcessEnded);
        }
        WatcherGuard guard;
        // A console event, unless processWatcherStop set the event.
        if (!watched->stopping) {
            lingerEvent = createEvent();
            watched->lingerEvent = lingerEvent;
        }
    }
    processWatcherTrigger();
    // -die-when-pid-dies stays in force while the run stops after a console event. This thread
    // keeps the watch, rather than one of its own, so that the process never ends with a thread
    // that nobody joined.
    if (lingerEvent != kNone) {
        switch (watcher::waitForProcessOrEvent(process, lingerEvent)) {
            case watcher::Waited::PROCESS:
                std::exit(kWatchedProcessEnded);
            case watcher::Waited::EVENT:
                break;
            case watcher::Waited::FAILED:
                fail("Error in WaitForMultipleObjects: %u\n");
        }
    }
    watcher::closeHandle(process.handle);
}

void parentThreadMain(void*) {
    do {
        watcher::waitForProcess(parent);
    } while (!watcher::processHasEnded(parent));
    watcher::exitNow(kParentEnded);
}

// The daemon that started us names itself; when it ends we end at once, without a stop path.
void watchParent() {
    uint32_t pid = 0;
    if (parentWatched || !watcher::readParentProcessId(pid)) {
        return;
    }
    if (watcher::openProcess(pid, parent) != watcher::Opened::PROCESS) {
        watcher::exitNow(kParentCannotOpen);
    }
    if (watcher::processHasEnded(parent)) {
        watcher::exitNow(kParentAlreadyEnded);
    }
    if (!watcher::startDetachedThread(parentThreadMain)) {
        watcher::closeHandle(parent.handle);
        watcher::exitNow(kParentNoThread);
    }
    parentWatched = true;
}

}  // namespace

void processWatcherStart(ProcessWatcherCallback callback, void* argument, ProcessWatcherMode mode,
                         uint32_t pid) {
    if (watcherLock.load() == nullptr) {
        void* memory = std::malloc(sizeof(std::recursive_mutex));
        if (memory == nullptr) {
            fail("Memory error: malloc: %u\n");
        }
        watcherLock.store(new (memory) std::recursive_mutex());
    }
    if (record != nullptr) {
        return;
    }
    auto* watched = static_cast<Record*>(std::calloc(1, sizeof(Record)));
    if (watched == nullptr) {
        fail("Memory error: calloc: %u\n");
    }
    watched->callback = callback;
    watched->callbackArgument = argument;
    watched->mode = mode;
    watched->pid = pid;
    watched->watchThread = kNone;
    watched->lingerEvent = kNone;
    watched->stopEvent = createEvent();
    {
        WatcherGuard guard;
        record = watched;
    }
    if (mode == WATCH_PARENT_ENV) {
        watchParent();
    } else if (mode != WATCH_NONE) {
        watched->watchThread = startThread(watchThreadMain, watched);
    }
    if (!watcher::installConsoleHandler(processWatcherTrigger)) {
        fail("Error setting up signal handler: SetConsoleCtrlHandler: %u\n");
    }
}

void processWatcherStop() {
    if (watcherLock.load() == nullptr || record == nullptr) {
        return;
    }
    Record* watched = record;
    Handle lingerEvent = kNone;
    {
        WatcherGuard guard;
        watcher::removeConsoleHandler();
        watched->callback = nullptr;
        watched->stopping = true;
        lingerEvent = watched->lingerEvent;
    }
    watcher::finishConsoleHandler();
    if (watched->watchThread != kNone) {
        if (lingerEvent != kNone) {
            setEvent(lingerEvent);
        }
        setEvent(watched->stopEvent);
        watcher::joinThread(watched->watchThread);
        watched->watchThread = kNone;
    }
    watcher::closeHandle(lingerEvent);
    watched->lingerEvent = kNone;
    watcher::closeHandle(watched->stopEvent);
    {
        WatcherGuard guard;
        record = nullptr;
    }
    std::free(watched);
}

void processWatcherTrigger() {
    if (watcherLock.load() == nullptr) {
        return;
    }
    WatcherGuard guard;
    if (record == nullptr || record->callback == nullptr) {
        return;
    }
    setEvent(record->stopEvent);
    record->callback(record->callbackArgument);
    record->callback = nullptr;
}

}  // namespace morvax
