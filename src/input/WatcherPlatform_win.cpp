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
#include <cstdlib>
#include <new>

#include "input/WatcherPlatform.h"

namespace morvax::watcher {

namespace {

constexpr DWORD kProcessAccess = SYNCHRONIZE | PROCESS_QUERY_INFORMATION;
// MORVAXD_PROCESSID is read into this many characters with the terminator; longer means unset.
constexpr size_t kParentIdUnits = 50;

HANDLE native(Handle object) {
    return reinterpret_cast<HANDLE>(object);
}

Handle wrap(HANDLE object) {
    return object == nullptr ? kNone : reinterpret_cast<Handle>(object);
}

struct ThreadStart {
    void (*main)(void*);
    void* argument;
};

DWORD WINAPI runThread(LPVOID start) {
    ThreadStart copy = *static_cast<ThreadStart*>(start);
    delete static_cast<ThreadStart*>(start);
    copy.main(copy.argument);
    return 0;
}

unsigned __stdcall runDetached(void* main) {
    reinterpret_cast<void (*)(void*)>(main)(nullptr);
    return 0;
}

// Where the console handler sends a stop request; set before the handler is installed.
std::atomic<void (*)()> consoleRequest{nullptr};

BOOL WINAPI consoleHandler(DWORD type) {
    if (type == CTRL_C_EVENT || type == CTRL_BREAK_EVENT) {
        consoleRequest.load()();
        return TRUE;
    }
    // Closing the console, log-off and shutdown keep their default handling.
    return FALSE;
}

}  // namespace

uint32_t lastError() {
    return GetLastError();
}

Handle createEvent() {
    return wrap(CreateEventA(nullptr, TRUE, FALSE, nullptr));
}

bool setEvent(Handle event) {
    return SetEvent(native(event)) != 0;
}

void closeHandle(Handle object) {
    if (object != kNone) {
        CloseHandle(native(object));
    }
}

Handle startThread(void (*main)(void*), void* argument) {
    auto* start = new (std::nothrow) ThreadStart{main, argument};
    if (start == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return kNone;
    }
    HANDLE thread = CreateThread(nullptr, 0, runThread, start, 0, nullptr);
    if (thread == nullptr) {
        delete start;
    }
    return wrap(thread);
}

void joinThread(Handle thread) {
    WaitForSingleObject(native(thread), INFINITE);
    CloseHandle(native(thread));
}

bool startDetachedThread(void (*main)(void*)) {
    // All ones is the failure; 0 is not tested.
    uintptr_t thread =
        _beginthreadex(nullptr, 0, runDetached, reinterpret_cast<void*>(main), 0, nullptr);
    return thread != ~uintptr_t{0};
}

Opened openProcess(uint32_t pid, Process& process) {
    process.pid = pid;
    process.handle = wrap(OpenProcess(kProcessAccess, FALSE, pid));
    if (process.handle != kNone) {
        return Opened::PROCESS;
    }
    DWORD error = GetLastError();
    return error == ERROR_INVALID_PARAMETER || error == ERROR_PATH_NOT_FOUND ? Opened::GONE
                                                                             : Opened::FAILED;
}

Waited waitForProcessOrEvent(const Process& process, Handle event) {
    // The process first, so that it wins when both are signalled.
    HANDLE handles[2] = {native(process.handle), native(event)};
    DWORD waited = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
    if (waited == WAIT_OBJECT_0) {
        return Waited::PROCESS;
    }
    return waited == WAIT_OBJECT_0 + 1 ? Waited::EVENT : Waited::FAILED;
}

void waitForProcess(const Process& process) {
    WaitForSingleObject(native(process.handle), INFINITE);
}

bool processHasEnded(Process& process) {
    DWORD code = 0;
    if (GetExitCodeProcess(native(process.handle), &code) != 1 || code == STILL_ACTIVE) {
        return false;
    }
    closeHandle(process.handle);
    process.handle = kNone;
    return true;
}

bool readParentProcessId(uint32_t& pid) {
    wchar_t value[kParentIdUnits];
    size_t length = 0;
    if (_wgetenv_s(&length, value, kParentIdUnits, L"MORVAXD_PROCESSID") != 0 || length == 0) {
        return false;
    }
    pid = static_cast<uint32_t>(_wtol(value));
    return true;
}

bool installConsoleHandler(void (*onRequest)()) {
    consoleRequest.store(onRequest);
    return SetConsoleCtrlHandler(consoleHandler, TRUE) != 0;
}

void removeConsoleHandler() {
    SetConsoleCtrlHandler(consoleHandler, FALSE);
}

void finishConsoleHandler() {}

void exitNow(int status) {
    ExitProcess(static_cast<UINT>(status));
}

}  // namespace morvax::watcher
