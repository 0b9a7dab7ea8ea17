#include <windows.h>

#include <cerrno>

#include "util/thread/Thread.h"

namespace morvax {

namespace {

using SetThreadDescriptionFunction = HRESULT(WINAPI*)(HANDLE, PCWSTR);

// Only newer systems have it, and it has lived in both modules.
SetThreadDescriptionFunction findSetThreadDescription() {
    for (const wchar_t* module : {L"Kernel32.dll", L"KernelBase.dll"}) {
        HMODULE handle = GetModuleHandleW(module);
        FARPROC function = handle ? GetProcAddress(handle, "SetThreadDescription") : nullptr;
        if (function) {
            return reinterpret_cast<SetThreadDescriptionFunction>(
                reinterpret_cast<void (*)()>(function));
        }
    }
    return nullptr;
}

constexpr DWORD THREAD_NAME_EXCEPTION = 0x406D1388;

#pragma pack(push, 8)
struct ThreadNameInfo {
    DWORD type;
    LPCSTR name;
    DWORD threadId;
    DWORD flags;
};
#pragma pack(pop)

// A debugger that does not take the naming exception passes it on; this lets the thread go on.
LONG CALLBACK continueAfterThreadName(EXCEPTION_POINTERS* pointers) {
    return pointers->ExceptionRecord->ExceptionCode == THREAD_NAME_EXCEPTION
               ? EXCEPTION_CONTINUE_EXECUTION
               : EXCEPTION_CONTINUE_SEARCH;
}

// The old way to name a thread, which debuggers still read.
void tellDebugger(const Str& name) {
    if (!IsDebuggerPresent()) {
        return;
    }
    static PVOID handler = AddVectoredExceptionHandler(0, continueAfterThreadName);
    if (!handler) {
        return;
    }
    ThreadNameInfo info{0x1000, name.c_str(), GetCurrentThreadId(), 0};
    RaiseException(THREAD_NAME_EXCEPTION, 0, sizeof(info) / sizeof(ULONG_PTR),
                   reinterpret_cast<const ULONG_PTR*>(&info));
}

}  // namespace

uint32_t Thread::platformThreadId() {
    return static_cast<uint32_t>(GetCurrentThreadId());
}

void Thread::setPlatformThreadName(const Str& name) {
    tellDebugger(name);
    static SetThreadDescriptionFunction setDescription = findSetThreadDescription();
    if (setDescription) {
        WStr wide = name.toWide();
        setDescription(GetCurrentThread(), reinterpret_cast<PCWSTR>(wide.c_str()));
    }
}

uint32_t Thread::platformErrorCode(const std::error_code& code) {
    if (code.category() != std::generic_category()) {
        return static_cast<uint32_t>(code.value());
    }
    // The runtime's thread layer reports errno values; %m prints Windows codes here.
    switch (code.value()) {
        case EAGAIN:
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case EDEADLK:
            return ERROR_POSSIBLE_DEADLOCK;
        case EPERM:
            return ERROR_ACCESS_DENIED;
        case EBUSY:
            return ERROR_BUSY;
        case ESRCH:
            return ERROR_INVALID_HANDLE;
        case ETIMEDOUT:
            return ERROR_TIMEOUT;
        default:
            return ERROR_GEN_FAILURE;
    }
}

}  // namespace morvax
