#include <windows.h>

#include <dbghelp.h>
#include <stdlib.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <ctime>

#include "util/crash/CrashLog.h"

namespace morvax {

namespace {

constexpr uint32_t kMaxRecords = 16;
constexpr int kBacktraceFrames = 64;
// The dump function is not safe for two threads at once.
constexpr int kDumpLockAttempts = 10001;
// How long a second crashing thread waits for the first one's report before it dies.
constexpr DWORD kWaitForWriterMs = 30000;

char16_t executable[CrashLog::EXECUTABLE_UNITS] = {};
char16_t dumpName[CrashLog::NAME_UNITS] = {};
CrashException records[kMaxRecords];
std::atomic<bool> dumpLock{false};
// The thread that runs the writer, so that a fault inside it does not wait for itself.
std::atomic<DWORD> writerThread{0};

using MiniDumpWriteDumpFunction = BOOL(WINAPI*)(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE,
                                                PMINIDUMP_EXCEPTION_INFORMATION,
                                                PMINIDUMP_USER_STREAM_INFORMATION,
                                                PMINIDUMP_CALLBACK_INFORMATION);
using VerifyVersionFunction = LONG(WINAPI*)(PRTL_OSVERSIONINFOEXW, ULONG, ULONGLONG);

const wchar_t* api(const char16_t* text) {
    return reinterpret_cast<const wchar_t*>(text);
}

// Copies the chain of records into `records`, each linked to the next.
const CrashException& describeRecords(const EXCEPTION_RECORD* record) {
    uint32_t count = 0;
    for (; record != nullptr && count < kMaxRecords; record = record->ExceptionRecord, ++count) {
        CrashException& e = records[count];
        e = CrashException();
        e.code = record->ExceptionCode;
        e.flags = record->ExceptionFlags;
        e.address = reinterpret_cast<uintptr_t>(record->ExceptionAddress);
        e.parameterCount = record->NumberParameters < CrashException::MAX_PARAMETERS
                               ? record->NumberParameters
                               : CrashException::MAX_PARAMETERS;
        for (uint32_t i = 0; i < e.parameterCount; ++i) {
            e.parameters[i] = record->ExceptionInformation[i];
        }
        if (count > 0) {
            records[count - 1].next = &e;
        }
    }
    if (count == 0) {
        records[0] = CrashException();
    }
    return records[0];
}

void describeContext(const CONTEXT& c, CrashRegisters& r) {
    r.add("MxCsr", c.MxCsr);
    r.add("SegDs", c.SegDs);
    r.add("SegEs", c.SegEs);
    r.add("SegFs", c.SegFs);
    r.add("SegGs", c.SegGs);
    r.add("SegSs", c.SegSs);
    r.add("SegCs", c.SegCs);
    r.add("EFlags", c.EFlags);
    r.add("Rsp", c.Rsp);
    r.add("Rip", c.Rip);
    r.add("Dr0", c.Dr0);
    r.add("Dr1", c.Dr1);
    r.add("Dr2", c.Dr2);
    r.add("Dr3", c.Dr3);
    r.add("Dr6", c.Dr6);
    r.add("Dr7", c.Dr7);
    r.add("Rax", c.Rax);
    r.add("Rcx", c.Rcx);
    r.add("Rdx", c.Rdx);
    r.add("Rbx", c.Rbx);
    r.add("Rbp", c.Rbp);
    r.add("Rsi", c.Rsi);
    r.add("Rdi", c.Rdi);
    r.add("R8", c.R8);
    r.add("R9", c.R9);
    r.add("R10", c.R10);
    r.add("R11", c.R11);
    r.add("R12", c.R12);
    r.add("R13", c.R13);
    r.add("R14", c.R14);
    r.add("R15", c.R15);
    r.add("DebugControl", c.DebugControl);
    r.add("LastBranchToRip", c.LastBranchToRip);
    r.add("LastBranchFromRip", c.LastBranchFromRip);
    r.add("LastExceptionToRip", c.LastExceptionToRip);
    r.add("LastExceptionFromRip", c.LastExceptionFromRip);
}

LONG WINAPI onUnhandledException(EXCEPTION_POINTERS* pointers) {
    DWORD self = GetCurrentThreadId();
    DWORD none = 0;
    bool first = writerThread.compare_exchange_strong(none, self);
    const CrashException& exception =
        describeRecords(pointers != nullptr ? pointers->ExceptionRecord : nullptr);
    CrashRegisters registers;
    if (pointers != nullptr && pointers->ContextRecord != nullptr) {
        describeContext(*pointers->ContextRecord, registers);
    }
    if (first) {
        CrashLog::writeReport(nullptr, exception, &registers, pointers);
    } else if (writerThread.load() != self) {
        // Another thread is writing its report; ending the process now would cut it short.
        for (DWORD waited = 0; !CrashLog::reportFinished() && waited < kWaitForWriterMs;
             waited += 10) {
            Sleep(10);
        }
    }
    CrashLog::endInEntryFrame();
    return EXCEPTION_CONTINUE_SEARCH;
}

// An abort goes through the same writer as any other crash.
void onAbortSignal(int) {
    RaiseException(CrashLog::ABORT_SIGNAL, 0, 0, nullptr);
}

void onInvalidParameter(const wchar_t* expression, const wchar_t* function, const wchar_t* file,
                        unsigned int line, uintptr_t) {
    CrashLog::reportInvalidParameter(reinterpret_cast<const char16_t*>(expression),
                                     reinterpret_cast<const char16_t*>(function),
                                     reinterpret_cast<const char16_t*>(file), line);
}

// The version test without the compatibility shim that caps what an unmanifested program is
// told, falling back to the documented call.
bool versionAtLeast(DWORD major, DWORD minor, WORD servicePack) {
    OSVERSIONINFOEXW info = {};
    info.dwOSVersionInfoSize = sizeof info;
    info.dwMajorVersion = major;
    info.dwMinorVersion = minor;
    info.wServicePackMajor = servicePack;
    DWORDLONG mask = 0;
    mask = VerSetConditionMask(mask, VER_MAJORVERSION, VER_GREATER_EQUAL);
    mask = VerSetConditionMask(mask, VER_MINORVERSION, VER_GREATER_EQUAL);
    mask = VerSetConditionMask(mask, VER_SERVICEPACKMAJOR, VER_GREATER_EQUAL);
    DWORD fields = VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR;
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    auto verify = ntdll ? reinterpret_cast<VerifyVersionFunction>(reinterpret_cast<void*>(
                              GetProcAddress(ntdll, "RtlVerifyVersionInfo")))
                        : nullptr;
    if (verify != nullptr) {
        return verify(&info, fields, mask) == 0;
    }
    return VerifyVersionInfoW(&info, fields, mask) != 0;
}

bool isServer() {
    OSVERSIONINFOEXW info = {};
    info.dwOSVersionInfoSize = sizeof info;
    info.wProductType = VER_NT_WORKSTATION;
    DWORDLONG mask = VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL);
    return !VerifyVersionInfoW(&info, VER_PRODUCT_TYPE, mask);
}

const char* windowsName() {
    bool server = isServer();
    if (versionAtLeast(10, 0, 0)) {
        return server ? "Windows Server 10.0 or later" : "Windows 10.0 or later";
    }
    if (versionAtLeast(6, 3, 0)) {
        return server ? "Windows Server 2012 R2" : "Windows 8.1";
    }
    if (versionAtLeast(6, 2, 0)) {
        return server ? "Windows Server 2012" : "Windows 8.0";
    }
    if (versionAtLeast(6, 1, 1)) {
        return server ? "Windows Server 2008 R2 SP1" : "Windows 7 SP1";
    }
    if (versionAtLeast(6, 1, 0)) {
        return server ? "Windows Server 2008 R2" : "Windows 7";
    }
    return "Pre-Windows 7";
}

bool isAdministrator() {
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof sid;
    if (!CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &size)) {
        return false;
    }
    BOOL member = FALSE;
    return CheckTokenMembership(nullptr, sid, &member) && member;
}

// The module that holds an address: its file name and base, for reading a backtrace later.
void writeFrame(FormatSink& sink, int index, DWORD64 address) {
    HMODULE module = nullptr;
    wchar_t path[MAX_PATH];
    if (GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<LPCWSTR>(address), &module) &&
        GetModuleFileNameW(module, path, MAX_PATH) != 0) {
        path[MAX_PATH - 1] = 0;
        const wchar_t* base = path;
        for (const wchar_t* p = path; *p; ++p) {
            if (*p == L'\\' || *p == L'/') {
                base = p + 1;
            }
        }
        LogFormatter::formatToSink(
            sink, 0, "  #%02d 0x%016llX %S+0x%llX\r\n", index,
            static_cast<unsigned long long>(address), reinterpret_cast<const char16_t*>(base),
            static_cast<unsigned long long>(address - reinterpret_cast<uintptr_t>(module)));
        return;
    }
    LogFormatter::formatToSink(sink, 0, "  #%02d 0x%016llX\r\n", index,
                               static_cast<unsigned long long>(address));
}

}  // namespace

void CrashLog::installPlatformHandlers() {
    SetUnhandledExceptionFilter(&onUnhandledException);
    std::signal(SIGABRT, &onAbortSignal);
    _set_invalid_parameter_handler(&onInvalidParameter);
}

void CrashLog::rememberExecutable() {
    wchar_t path[EXECUTABLE_UNITS];
    DWORD length = GetModuleFileNameW(nullptr, path, EXECUTABLE_UNITS);
    // A path that filled the buffer was cut: it is left out of the name.
    if (length == 0 || length >= EXECUTABLE_UNITS) {
        executable[0] = 0;
        return;
    }
    std::memcpy(executable, path, (length + 1) * sizeof(char16_t));
}

const char16_t* CrashLog::executablePath() {
    return executable;
}

const void* CrashLog::executableBase() {
    return GetModuleHandleW(nullptr);
}

void CrashLog::localNow(std::tm& out) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    out = std::tm();
    out.tm_year = now.wYear - 1900;
    out.tm_mon = now.wMonth - 1;
    out.tm_mday = now.wDay;
    out.tm_hour = now.wHour;
    out.tm_min = now.wMinute;
    out.tm_sec = now.wSecond;
    out.tm_wday = now.wDayOfWeek;
}

void CrashLog::breakIntoDebugger() {
    if (IsDebuggerPresent()) {
        DebugBreak();
    }
}

intptr_t CrashLog::createReportFile(const char16_t* name) {
    HANDLE file = CreateFileW(api(name), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                              nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    return reinterpret_cast<intptr_t>(file);
}

intptr_t CrashLog::standardError() {
    HANDLE handle = GetStdHandle(STD_ERROR_HANDLE);
    return handle == nullptr ? -1 : reinterpret_cast<intptr_t>(handle);
}

void CrashLog::writeHandle(intptr_t handle, const char* bytes, size_t length) {
    while (length > 0) {
        DWORD written = 0;
        DWORD chunk = length > 0x10000000 ? 0x10000000 : static_cast<DWORD>(length);
        if (!WriteFile(reinterpret_cast<HANDLE>(handle), bytes, chunk, &written, nullptr) ||
            written == 0) {
            return;
        }
        bytes += written;
        length -= written;
    }
}

void CrashLog::closeHandle(intptr_t handle) {
    CloseHandle(reinterpret_cast<HANDLE>(handle));
}

void CrashLog::exitNow(int status) {
    _exit(status);
}

const char* CrashLog::operatingSystem() {
    return "Windows";
}

void CrashLog::writeBacktrace(FormatSink& sink, const void* platformContext) {
    const EXCEPTION_POINTERS* pointers = static_cast<const EXCEPTION_POINTERS*>(platformContext);
    if (pointers == nullptr || pointers->ContextRecord == nullptr) {
        return;
    }
    CONTEXT context = *pointers->ContextRecord;
    for (int frame = 0; frame < kBacktraceFrames && context.Rip != 0; ++frame) {
        writeFrame(sink, frame, context.Rip);
        DWORD64 imageBase = 0;
        PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(context.Rip, &imageBase, nullptr);
        if (function == nullptr) {
            // A leaf function: the return address is on top of the stack.
            context.Rip = *reinterpret_cast<const DWORD64*>(context.Rsp);
            context.Rsp += 8;
            continue;
        }
        PVOID handlerData = nullptr;
        DWORD64 establisher = 0;
        RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, context.Rip, function, &context,
                         &handlerData, &establisher, nullptr);
    }
}

void CrashLog::writeMemoryDump(FormatSink& sink, const char16_t* reportName,
                               const void* platformContext) {
    size_t length = 0;
    while (reportName[length] != 0 && length + 1 < NAME_UNITS) {
        dumpName[length] = reportName[length];
        ++length;
    }
    if (length < 3) {
        return;
    }
    dumpName[length] = 0;
    dumpName[length - 3] = u'd';
    dumpName[length - 2] = u'm';
    dumpName[length - 1] = u'p';
    HANDLE file = CreateFileW(api(dumpName), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                              nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    HMODULE dbghelp = LoadLibraryW(L"dbghelp.dll");
    auto writeDump = dbghelp ? reinterpret_cast<MiniDumpWriteDumpFunction>(reinterpret_cast<void*>(
                                   GetProcAddress(dbghelp, "MiniDumpWriteDump")))
                             : nullptr;
    bool written = false;
    if (writeDump != nullptr) {
        bool locked = false;
        for (int attempt = 0; attempt < kDumpLockAttempts && !locked; ++attempt) {
            locked = !dumpLock.exchange(true);
            if (!locked) {
                Sleep(0);
            }
        }
        if (locked) {
            auto* pointers = const_cast<EXCEPTION_POINTERS*>(
                static_cast<const EXCEPTION_POINTERS*>(platformContext));
            MINIDUMP_EXCEPTION_INFORMATION exception = {GetCurrentThreadId(), pointers, FALSE};
            written =
                writeDump(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpWithFullMemory,
                          pointers ? &exception : nullptr, nullptr, nullptr) != 0;
            dumpLock.store(false);
        }
    }
    CloseHandle(file);
    if (!written) {
        DeleteFileW(api(dumpName));
        return;
    }
    LogFormatter::formatToSink(sink, 0, " Crash dump written to: %S\r\n", dumpName);
}

void CrashLog::writeUserAndSystem(FormatSink& sink) {
    LogFormatter::formatToSink(sink, 0, "Morvax ran as %s\r\n",
                               isAdministrator() ? "local administrator" : "non-administrator");
    wchar_t computer[256];
    DWORD size = 256;
    if (GetComputerNameExW(ComputerNameDnsHostname, computer, &size)) {
        computer[size < 256 ? size : 255] = 0;
        LogFormatter::formatToSink(sink, 0, "%S /", reinterpret_cast<const char16_t*>(computer));
    }
    LogFormatter::formatToSink(sink, 0, "%s\r\n", windowsName());
}

intptr_t CrashLog::openForRead(const char16_t* path) {
    HANDLE file =
        CreateFileW(api(path), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    return reinterpret_cast<intptr_t>(file);
}

int64_t CrashLog::readHandle(intptr_t handle, char* buffer, size_t size) {
    DWORD got = 0;
    if (!ReadFile(reinterpret_cast<HANDLE>(handle), buffer, static_cast<DWORD>(size), &got,
                  nullptr)) {
        return -1;
    }
    return got;
}

int64_t CrashLog::fileSize(intptr_t handle) {
    LARGE_INTEGER size;
    if (!GetFileSizeEx(reinterpret_cast<HANDLE>(handle), &size)) {
        return -1;
    }
    return size.QuadPart;
}

bool CrashLog::seekHandle(intptr_t handle, int64_t offset) {
    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    return SetFilePointerEx(reinterpret_cast<HANDLE>(handle), distance, nullptr, FILE_BEGIN) != 0;
}

}  // namespace morvax
