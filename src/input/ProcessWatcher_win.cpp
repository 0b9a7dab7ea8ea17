#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
// After windows.h, which it needs on its own.
#include <process.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include "input/ProcessWatcher.h"

namespace morvax {

namespace {

constexpr DWORD kProcessAccess = SYNCHRONIZE | PROCESS_QUERY_INFORMATION;
// MORVAXD_PROCESSID is read into this many characters with the terminator; longer means unset.
constexpr size_t kParentIdUnits = 50;

// Exit statuses of the parent watch; they end the process without running exit handlers.
constexpr UINT kParentNoThread = 96;
constexpr UINT kParentAlreadyEnded = 97;
constexpr UINT kParentCannotOpen = 98;
constexpr UINT kParentEnded = 99;
constexpr int kWatchedProcessEnded = 2;

struct Record {
    ProcessWatcherCallback callback;  // null once fired or once stopping
    void* callbackArgument;
    uint32_t mode;
    uint32_t pid;
    HANDLE watchThread;
    HANDLE stopEvent;
    HANDLE lingerThread;
    HANDLE lingerEvent;
    HANDLE processHandle;
    // Set under the lock by processWatcherStop: the stop event then means "stop", not Ctrl-C.
    bool stopping;
};

std::atomic<CRITICAL_SECTION*> watcherLock{nullptr};
Record* record = nullptr;
HANDLE parentHandle = nullptr;
// The parent is watched for the life of the process, whatever starts and stops follow.
bool parentWatched = false;

class WatcherGuard {
  public:
    WatcherGuard() : lock_(watcherLock.load()) { EnterCriticalSection(lock_); }
    ~WatcherGuard() { LeaveCriticalSection(lock_); }
    WatcherGuard(const WatcherGuard&) = delete;
    WatcherGuard& operator=(const WatcherGuard&) = delete;

  private:
    CRITICAL_SECTION* lock_;
};

[[noreturn]] void fail(const char* format, DWORD error) {
    std::fprintf(stderr, format, static_cast<unsigned>(error));
    std::exit(1);
}

[[noreturn]] void failForPid(const char* format, uint32_t pid, DWORD error) {
    std::fprintf(stderr, format, static_cast<unsigned>(pid), static_cast<unsigned>(error));
    std::exit(1);
}

HANDLE createEvent() {
    HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr) {
        fail("Error creating unnamed event: CreateEvent: %u\n", GetLastError());
    }
    return event;
}

void setEvent(HANDLE event) {
    if (!SetEvent(event)) {
        fail("Error signaling event: SetEvent: %u\n", GetLastError());
    }
}

HANDLE createThread(LPTHREAD_START_ROUTINE routine, void* argument) {
    HANDLE thread = CreateThread(nullptr, 0, routine, argument, 0, nullptr);
    if (thread == nullptr) {
        fail("Error creating a new thread: CreateThread: %u\n", GetLastError());
    }
    return thread;
}

// Keeps -die-when-pid-dies in force while the run stops after a console event.
DWORD WINAPI lingerThreadMain(LPVOID argument) {
    Record* watched = static_cast<Record*>(argument);
    HANDLE handles[2] = {watched->processHandle, watched->lingerEvent};
    DWORD waited = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
    if (waited == WAIT_OBJECT_0) {
        std::exit(kWatchedProcessEnded);
    }
    if (waited != WAIT_OBJECT_0 + 1) {
        fail("Error in WaitForMultipleObjects: %u\n", GetLastError());
    }
    return 0;
}

DWORD WINAPI watchThreadMain(LPVOID argument) {
    Record* watched = static_cast<Record*>(argument);
    HANDLE process = OpenProcess(kProcessAccess, FALSE, watched->pid);
    if (process == nullptr) {
        DWORD error = GetLastError();
        // There is no such process (any more).
        if (error != ERROR_INVALID_PARAMETER && error != ERROR_PATH_NOT_FOUND) {
            failForPid("Error waiting for process with PID %u to finish: OpenProcess: %u\n",
                       watched->pid, error);
        }
        if (watched->mode == WATCH_DIE_WHEN_PID_DIES) {
            std::exit(kWatchedProcessEnded);
        }
        processWatcherTrigger();
        return 0;
    }
    // The process first, so that it wins when both are signalled.
    HANDLE handles[2] = {process, watched->stopEvent};
    DWORD waited = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
    if (waited != WAIT_OBJECT_0 && waited != WAIT_OBJECT_0 + 1) {
        failForPid("Error waiting for process with PID %u to finish: WaitForMultipleObjects: %u\n",
                   watched->pid, GetLastError());
    }
    if (watched->mode == WATCH_DIE_WHEN_PID_DIES) {
        if (waited == WAIT_OBJECT_0) {
            std::exit(kWatchedProcessEnded);
        }
        WatcherGuard guard;
        // A console event, unless processWatcherStop set the event.
        if (!watched->stopping) {
            watched->lingerEvent = createEvent();
            watched->processHandle = process;
            watched->lingerThread = createThread(lingerThreadMain, watched);
        }
    }
    processWatcherTrigger();
    return 0;
}

BOOL WINAPI consoleHandler(DWORD type) {
    if (type == CTRL_C_EVENT || type == CTRL_BREAK_EVENT) {
        processWatcherTrigger();
        return TRUE;
    }
    // Closing the console, log-off and shutdown keep their default handling.
    return FALSE;
}

// Closes the handle when it reports the end.
bool parentHasEnded() {
    DWORD code = 0;
    if (GetExitCodeProcess(parentHandle, &code) != 1 || code == STILL_ACTIVE) {
        return false;
    }
    CloseHandle(parentHandle);
    return true;
}

unsigned __stdcall parentThreadMain(void*) {
    do {
        WaitForSingleObject(parentHandle, INFINITE);
    } while (!parentHasEnded());
    ExitProcess(kParentEnded);
}

// The daemon that started us names itself; when it ends we end at once, without a stop path.
void watchParent() {
    if (parentWatched) {
        return;
    }
    wchar_t value[kParentIdUnits];
    size_t length = 0;
    if (_wgetenv_s(&length, value, kParentIdUnits, L"MORVAXD_PROCESSID") != 0 || length == 0) {
        return;
    }
    DWORD pid = static_cast<DWORD>(_wtol(value));
    parentHandle = OpenProcess(kProcessAccess, FALSE, pid);
    if (parentHandle == nullptr) {
        ExitProcess(kParentCannotOpen);
    }
    if (parentHasEnded()) {
        ExitProcess(kParentAlreadyEnded);
    }
    uintptr_t thread = _beginthreadex(nullptr, 0, parentThreadMain, nullptr, 0, nullptr);
    if (thread == 0 || thread == ~uintptr_t{0}) {
        CloseHandle(parentHandle);
        ExitProcess(kParentNoThread);
    }
    parentWatched = true;
}

}  // namespace

void processWatcherStart(ProcessWatcherCallback callback, void* argument, ProcessWatcherMode mode,
                         uint32_t pid) {
    if (watcherLock.load() == nullptr) {
        auto* lock = static_cast<CRITICAL_SECTION*>(std::malloc(sizeof(CRITICAL_SECTION)));
        if (lock == nullptr) {
            fail("Memory error: malloc: %u\n", GetLastError());
        }
        InitializeCriticalSection(lock);
        watcherLock.store(lock);
    }
    if (record != nullptr) {
        return;
    }
    auto* watched = static_cast<Record*>(std::calloc(1, sizeof(Record)));
    if (watched == nullptr) {
        fail("Memory error: calloc: %u\n", GetLastError());
    }
    watched->callback = callback;
    watched->callbackArgument = argument;
    watched->mode = mode;
    watched->pid = pid;
    watched->stopEvent = createEvent();
    {
        WatcherGuard guard;
        record = watched;
    }
    if (mode == WATCH_PARENT_ENV) {
        watchParent();
    } else if (mode != WATCH_NONE) {
        watched->watchThread = createThread(watchThreadMain, watched);
    }
    if (!SetConsoleCtrlHandler(consoleHandler, TRUE)) {
        fail("Error setting up signal handler: SetConsoleCtrlHandler: %u\n", GetLastError());
    }
}

void processWatcherStop() {
    if (watcherLock.load() == nullptr || record == nullptr) {
        return;
    }
    Record* watched = record;
    HANDLE lingerThread = nullptr;
    {
        WatcherGuard guard;
        SetConsoleCtrlHandler(consoleHandler, FALSE);
        watched->callback = nullptr;
        watched->stopping = true;
        lingerThread = watched->lingerThread;
    }
    if (lingerThread != nullptr) {
        setEvent(watched->lingerEvent);
        WaitForSingleObject(lingerThread, INFINITE);
        CloseHandle(lingerThread);
        CloseHandle(watched->lingerEvent);
        watched->lingerThread = nullptr;
        watched->lingerEvent = nullptr;
    }
    if (watched->watchThread != nullptr) {
        setEvent(watched->stopEvent);
        WaitForSingleObject(watched->watchThread, INFINITE);
        CloseHandle(watched->watchThread);
        watched->watchThread = nullptr;
    }
    CloseHandle(watched->stopEvent);
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
