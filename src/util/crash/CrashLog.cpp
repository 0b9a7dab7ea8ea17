#include "util/crash/CrashLog.h"

#include <cxxabi.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <typeinfo>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

#include "util/base/LastError.h"
#include "util/crash/CrashLogSink.h"
#include "util/log/Logger.h"
#include "util/thread/MainThread.h"
#include "util/thread/ScopedPerThreadCrashLogNotation.h"
#include "util/thread/Thread.h"

namespace morvax {

namespace {

Logger logger("CrashLog");

enum WriterState : int { WRITER_IDLE = 0, WRITER_RUNNING = 1, WRITER_DONE = 2 };

std::atomic<uint32_t> reportMode{CrashLog::MODE_NONE};
char16_t reportPrefix[CrashLog::PREFIX_UNITS] = {};
std::atomic<const char*> buildId{"dev"};
std::atomic<bool> memoryDumpEnabled{true};
std::atomic<int> writerState{WRITER_IDLE};
char16_t reportName[CrashLog::NAME_UNITS] = {};

// The unhandled typed exception, copied by the terminate handler.
std::atomic<bool> unhandledNoted{false};
// The thread of the EntryFrame; 0 without one.
std::atomic<uint32_t> entryThread{0};
bool unhandledHasWhat = false;
char unhandledType[256] = {};
char unhandledWhat[4096] = {};

// For the runtime line; taken when the program starts.
const std::chrono::steady_clock::time_point processStart = std::chrono::steady_clock::now();

constexpr intptr_t kInvalidHandle = -1;
constexpr uint32_t kMaxChainedRecords = 16;
constexpr uint32_t kMaxCpuidLeaves = 64;
constexpr size_t kTailBytes = 4096;

uint64_t steadyMs() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

void writeText(FormatSink& sink, const char* text) {
    sink.write(text, std::strlen(text));
}

void copyText(char* target, size_t capacity, const char* text) {
    size_t length = text ? std::strlen(text) : 0;
    if (length >= capacity) {
        length = capacity - 1;
    }
    if (length > 0) {
        std::memcpy(target, text, length);
    }
    target[length] = '\0';
}

size_t wideLength(const char16_t* text) {
    size_t length = 0;
    while (text && text[length] != 0) {
        ++length;
    }
    return length;
}

const char* accessKind(uint64_t parameter) {
    switch (parameter) {
        case 0:
            return "read";
        case 1:
            return "write";
        case 8:
            return "execute";
        default:
            return "???";
    }
}

const char* plainExceptionName(uint32_t code) {
    switch (code) {
        case 0x80000001:
            return "Guard Page Exception";
        case 0x80000002:
            return "Data Misalignment";
        case 0x80000003:
            return "Breakpoint";
        case 0x80000004:
            return "Single Step";
        case 0xC0000008:
            return "Invalid Handle Exception";
        case 0xC000001D:
            return "Illegal Instruction";
        case 0xC0000025:
            return "Attempt to Contintue from a Non-continuable Exception";
        case 0xC0000026:
            return "Invalid Exception Disposition";
        case 0xC000008C:
            return "Array bounds exceeded";
        case 0xC000008D:
            return "Floating Point Error: Denormalized Operand";
        case 0xC000008E:
            return "Floating Point Error: Divide by Zero";
        case 0xC000008F:
            return "Floating Point Error: Inexact Result";
        case 0xC0000090:
            return "Floating Point Error: Invalid Operation";
        case 0xC0000091:
            return "Floating Point Error: Overflow";
        case 0xC0000092:
            return "Floating Point Error: Stack Overflow or Underflow";
        case 0xC0000093:
            return "Floating Point Error: Underflow";
        case 0xC0000094:
            return "Integer Divide by Zero";
        case 0xC0000095:
            return "Integer Overflow";
        case 0xC0000096:
            return "Invalid use of Privledged Instruction";
        case 0xC00000FD:
            return "Stack Overflow";
        case CrashLog::ABORT_SIGNAL:
            return "SIGABRT";
        default:
            return nullptr;
    }
}

void writeOneException(FormatSink& sink, const CrashException& e) {
    if (e.code == CrashLog::ACCESS_VIOLATION) {
        LogFormatter::formatToSink(
            sink, 0, " Access violation, cannot %s at address [0x%016llX]\r\n",
            accessKind(e.parameters[0]), static_cast<unsigned long long>(e.parameters[1]));
    } else if (e.code == CrashLog::IN_PAGE_ERROR) {
        LogFormatter::formatToSink(
            sink, 0, " Cannot page in memory for %s at address [0x%016llX], NTSTATUS=%d\r\n",
            accessKind(e.parameters[0]), static_cast<unsigned long long>(e.parameters[1]),
            static_cast<int>(e.parameters[2]));
    } else if (e.code == CrashLog::CPP_EXCEPTION) {
        LogFormatter::formatToSink(sink, 0,
                                   " C++ exception: object [0x%016llX], type [0x%016llX]\r\n",
                                   static_cast<unsigned long long>(e.parameters[1]),
                                   static_cast<unsigned long long>(e.parameters[2]));
        if (e.parameters[0] != CrashLog::CPP_EXCEPTION_MAGIC) {
            LogFormatter::formatToSink(
                sink, 0, " NOTE: exception had unexpected frame magic ([0x%016llX])\r\n",
                static_cast<unsigned long long>(e.parameters[0]));
        }
    } else if (const char* name = plainExceptionName(e.code)) {
        LogFormatter::formatToSink(sink, 0, " %s\r\n", name);
    } else {
        LogFormatter::formatToSink(sink, 0, " Exception Cause Code: 0x%X\r\n", e.code);
    }
    if (e.flags & CrashException::NON_CONTINUABLE) {
        writeText(sink, " Exception is Non-continuable\r\n");
    }
    LogFormatter::formatToSink(sink, 0, " Exception address: [0x%016llX]\r\n",
                               static_cast<unsigned long long>(e.address));
}

// Bytes into a small buffer, written out when it fills, so that each write stays small.
class BufferedWriter {
  public:
    explicit BufferedWriter(FormatSink& sink) : sink_(sink) {}
    ~BufferedWriter() { flush(); }
    BufferedWriter(const BufferedWriter&) = delete;
    BufferedWriter& operator=(const BufferedWriter&) = delete;

    void put(char c) {
        if (used_ == sizeof buffer_) {
            flush();
        }
        buffer_[used_++] = c;
    }
    void put(const char* text) {
        while (*text) {
            put(*text++);
        }
    }
    void putHex(unsigned value, int digits) {
        static const char kDigits[] = "0123456789ABCDEF";
        for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
            put(kDigits[(value >> shift) & 0xF]);
        }
    }
    void flush() {
        if (used_ > 0) {
            sink_.write(buffer_, used_);
            used_ = 0;
        }
    }

  private:
    FormatSink& sink_;
    char buffer_[256];
    size_t used_ = 0;
};

// Decimal digits, zero-padded to `width`, into a wide buffer.
void putNumber(char16_t* out, size_t capacity, size_t& n, unsigned value, int width) {
    char16_t digits[12];
    int count = 0;
    do {
        digits[count++] = static_cast<char16_t>(u'0' + value % 10);
        value /= 10;
    } while (value != 0 && count < 12);
    while (count < width && count < 12) {
        digits[count++] = u'0';
    }
    while (count > 0) {
        char16_t c = digits[--count];
        if (n + 1 < capacity) {
            out[n] = c;
        }
        ++n;
    }
}

void putText(char16_t* out, size_t capacity, size_t& n, const char* text) {
    for (; *text; ++text) {
        if (n + 1 < capacity) {
            out[n] = static_cast<char16_t>(*text);
        }
        ++n;
    }
}

[[noreturn]] void onTerminate() {
    if (std::exception_ptr current = std::current_exception()) {
        const std::type_info* type = abi::__cxa_current_exception_type();
        const char* mangled = type ? type->name() : "unknown";
        int status = 0;
        // The heap is still usable here: this is no signal handler.
        char* demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
        const char* typeName = (status == 0 && demangled) ? demangled : mangled;
        try {
            std::rethrow_exception(current);
        } catch (const std::exception& e) {
            CrashLog::noteUnhandledException(typeName, e.what());
        } catch (...) {
            CrashLog::noteUnhandledException(typeName, nullptr);
        }
        std::free(demangled);
    }
    // The abort handler takes it from here, with the report.
    std::abort();
}

// Writes to a handle of the platform; the sink in front of it keeps the limits.
class ReportTarget : public CrashLogSink::Target {
  public:
    using WriteFunction = void (*)(intptr_t, const char*, size_t);
    using ExitFunction = void (*)(int);

    ReportTarget(intptr_t handle, WriteFunction write, ExitFunction exit)
        : handle_(handle), write_(write), exit_(exit) {}

    void write(const char* bytes, size_t length) override { write_(handle_, bytes, length); }
    uint64_t nowMs() override { return steadyMs(); }
    void exitProcess(int status) override { exit_(status); }

  private:
    intptr_t handle_;
    WriteFunction write_;
    ExitFunction exit_;
};

}  // namespace

void CrashLog::install(const Pathname& directory) {
    configure(directory);
    rememberExecutable();
    installTerminateHandler();
    installPlatformHandlers();
}

void CrashLog::configure(const Pathname& directory) {
    if (directory.empty()) {
        reportPrefix[0] = 0;
        reportMode.store(MODE_STDERR);
        return;
    }
    const WStr& text = directory.wide();
    bool needsSeparator = text.back() != Pathname::SEPARATOR;
    size_t length = text.size() + (needsSeparator ? 1 : 0);
    if (length >= PREFIX_UNITS) {
        Str message;
        message.appendFormat("Prefix too long: \"%S\"\n", directory.c_str());
        std::fwrite(message.data(), 1, message.size(), stderr);
        std::fflush(stderr);
        // A report on standard error beats none.
        reportPrefix[0] = 0;
        reportMode.store(MODE_STDERR);
        return;
    }
    std::memcpy(reportPrefix, text.data(), text.size() * sizeof(char16_t));
    if (needsSeparator) {
        reportPrefix[text.size()] = Pathname::SEPARATOR;
    }
    reportPrefix[length] = 0;
    reportMode.store(MODE_FILE);
}

CrashLog::Mode CrashLog::mode() {
    return static_cast<Mode>(reportMode.load());
}

const char16_t* CrashLog::prefix() {
    return reportPrefix;
}

void CrashLog::setBuildId(const char* id) {
    buildId.store(id ? id : "");
}

void CrashLog::enableMemoryDump(bool enabled) {
    memoryDumpEnabled.store(enabled);
}

void CrashLog::installTerminateHandler() {
    std::set_terminate(&onTerminate);
}

bool CrashLog::reportFinished() {
    return writerState.load() == WRITER_DONE;
}

CrashLog::EntryFrame::EntryFrame() {
    entryThread.store(Thread::currentThreadId());
    // The handlers stand from here on, before the run installs them with its directory: until
    // then a report has no directory but is written all the same.
    rememberExecutable();
    installTerminateHandler();
    installPlatformHandlers();
}

CrashLog::EntryFrame::~EntryFrame() {
    entryThread.store(0);
}

void CrashLog::endInEntryFrame() {
    const uint32_t entry = entryThread.load();
    if (entry != 0 && entry == Thread::currentThreadId()) {
        exitNow(-1);
    }
}

void CrashLog::noteUnhandledException(const char* typeName, const char* what) {
    // The first one is the one that ends the process.
    static std::atomic<bool> claimed{false};
    if (claimed.exchange(true)) {
        return;
    }
    copyText(unhandledType, sizeof unhandledType, typeName ? typeName : "unknown");
    unhandledHasWhat = what != nullptr;
    copyText(unhandledWhat, sizeof unhandledWhat, what);
    unhandledNoted.store(true);
}

const char* CrashLog::crashingThreadName() {
    Thread* self = Thread::currentThread();
    // The entry function's own name for the thread it runs on.
    if (self ? dynamic_cast<MainThread*>(self) != nullptr
             : std::strcmp(Thread::currentThreadNameCString(), "MainThread") == 0) {
        return "Main Thread";
    }
    return self ? self->name().c_str() : Thread::currentThreadNameCString();
}

int CrashLog::writeReport(const char* threadName, const CrashException& exception,
                          const CrashRegisters* registers, const void* platformContext) {
    uint32_t lastError = LastError::get();
    // The time of the crash, not of the end of a long report.
    uint64_t runtimeUs =
        static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                  std::chrono::steady_clock::now() - processStart)
                                  .count());
    int expected = WRITER_IDLE;
    if (!writerState.compare_exchange_strong(expected, WRITER_RUNNING)) {
        return 0;
    }
    breakIntoDebugger();
    std::tm local = {};
    localNow(local);

    intptr_t handle = kInvalidHandle;
    const char16_t* name = nullptr;
    if (mode() == MODE_STDERR) {
        handle = standardError();
    } else if (formatReportName(reportName, NAME_UNITS, reportPrefix, executablePath(), local) !=
               0) {
        handle = createReportFile(reportName);
        name = reportName;
    }
    if (handle != kInvalidHandle) {
        ReportTarget target(handle, &writeHandle, &exitNow);
        CrashLogSink sink(target);
        writeBody(sink, threadName ? threadName : crashingThreadName(), exception, registers,
                  platformContext, local, name, lastError, runtimeUs);
        if (name != nullptr) {
            closeHandle(handle);
        }
    }
    writerState.store(WRITER_DONE);
    LastError::set(lastError);
    return 0;
}

void CrashLog::writeBody(FormatSink& sink, const char* threadName, const CrashException& exception,
                         const CrashRegisters* registers, const void* platformContext,
                         const std::tm& local, const char16_t* name, uint32_t lastError,
                         uint64_t runtimeUs) {
    LogFormatter::formatToSink(sink, 0, "[build %s] %04d-%02d-%02d %02d:%02d:%02d\r\n",
                               buildId.load(), local.tm_year + 1900, local.tm_mon + 1,
                               local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    LogFormatter::formatToSink(
        sink, 0, "Executable module base address: 0x%016llX\r\n",
        static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(executableBase())));
    writeException(sink, exception);
    LogFormatter::formatToSink(sink, 0, " Crashing thread: %s\r\n", threadName);
    if (registers != nullptr) {
        for (uint32_t i = 0; i < registers->count && i < CrashRegisters::MAX; ++i) {
            LogFormatter::formatToSink(
                sink, 0, "    %s:  [0x%016llX]\r\n", registers->entries[i].name,
                static_cast<unsigned long long>(registers->entries[i].value));
        }
    }
    LogFormatter::formatToSink(sink, 0, "\r\n OS: %s\r\n Arch: %s\r\n\r\n Backtrace:\r\n",
                               operatingSystem(),
#if defined(__x86_64__)
                               "x86-64"
#elif defined(__aarch64__)
                               "arm64"
#else
                               "unknown"
#endif
    );
    writeBacktrace(sink, platformContext);
    if (name != nullptr && memoryDumpEnabled.load()) {
        writeMemoryDump(sink, name, platformContext);
    }
    writeUserAndSystem(sink);
    LogFormatter::formatToSink(sink, 0, "GetLastError(): %u\r\n", lastError);
    LogFormatter::formatToSink(sink, 0, "Threads running: %u\r\n", Thread::threadCount());
    LogFormatter::formatToSink(sink, 0, "Runtime: %lu.%06us\r\n",
                               static_cast<unsigned long>(runtimeUs / 1000000),
                               static_cast<unsigned>(runtimeUs % 1000000));
    writeUnhandledException(sink);
    Thread::writeFatalErrorLine(sink);
    Thread::crashDumpAllThreads(sink);
    // A thread without a Thread object is in no list; its notations still count.
    if (Thread::currentThread() == nullptr) {
        ScopedPerThreadCrashLogNotation::writeCurrentThreadNotations(sink);
    }
    writeCpuid(sink);
    writeText(sink, "terminating...\r\n");
}

void CrashLog::writeUnhandledException(FormatSink& sink) {
    if (!unhandledNoted.load()) {
        return;
    }
    LogFormatter::formatToSink(sink, 0, "Unhandled exception: %s", unhandledType);
    if (unhandledHasWhat) {
        writeText(sink, "\r\n what(): ");
        writeText(sink, unhandledWhat);
    }
    writeText(sink, "\r\n");
}

void CrashLog::writeCpuid(FormatSink& sink) {
    writeText(sink, "\r\nx86 CPUID registers:\r\n");
#if defined(__x86_64__) || defined(__i386__)
    for (unsigned base : {0u, 0x80000000u}) {
        unsigned highest = __get_cpuid_max(base, nullptr);
        if (highest < base) {
            continue;
        }
        for (unsigned leaf = base; leaf <= highest && leaf - base < kMaxCpuidLeaves; ++leaf) {
            unsigned a = 0;
            unsigned b = 0;
            unsigned c = 0;
            unsigned d = 0;
            __cpuid_count(leaf, 0, a, b, c, d);
            LogFormatter::formatToSink(sink, 0, "  %8X: %08X %08X %08X %08X\r\n", leaf, a, b, c, d);
        }
    }
#endif
}

void CrashLog::writeException(FormatSink& sink, const CrashException& exception) {
    uint32_t depth = 0;
    for (const CrashException* e = &exception; e && depth < kMaxChainedRecords;
         e = e->next, ++depth) {
        if (depth > 0) {
            writeText(sink, " Next chained exception:\r\n");
        }
        writeOneException(sink, *e);
    }
}

void CrashLog::writeQuoted(FormatSink& sink, const void* data, size_t length) {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    size_t shown = length > MAX_WHOLE_QUOTED ? CUT_QUOTED_AT : length;
    {
        BufferedWriter out(sink);
        out.put('"');
        for (size_t i = 0; i < shown; ++i) {
            unsigned char c = bytes[i];
            switch (c) {
                case '\\':
                case '"':
                    out.put('\\');
                    out.put(static_cast<char>(c));
                    break;
                case '\n':
                    out.put("\\n");
                    break;
                case '\r':
                    out.put("\\r");
                    break;
                case '\t':
                    out.put("\\t");
                    break;
                default:
                    if (c >= 32 && c <= 126) {
                        out.put(static_cast<char>(c));
                    } else {
                        out.put("\\x");
                        out.putHex(c, 2);
                    }
            }
        }
        out.put('"');
    }
    if (shown < length) {
        LogFormatter::formatToSink(sink, 0, "...[%llu more bytes]",
                                   static_cast<unsigned long long>(length - shown));
    }
}

void CrashLog::writeBytesOfInterest(FormatSink& sink, const char* name, const void* data,
                                    uint32_t count) {
    LogFormatter::formatToSink(sink, 0, "First %u bytes of %s @%p:\r\n", count, name, data);
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    BufferedWriter out(sink);
    for (uint32_t row = 0; row < count; row += 16) {
        out.put("  ");
        out.putHex(row, 8);
        out.put(':');
        for (uint32_t i = row; i < row + 16 && i < count; ++i) {
            out.put(' ');
            out.putHex(bytes[i], 2);
        }
        out.put("\r\n");
    }
}

void CrashLog::writeFileOfInterest(FormatSink& sink, const char16_t* path, bool tailOnly) {
    LogFormatter::formatToSink(sink, 0, "%s%S\"\r\n",
                               tailOnly ? "-------------------- LAST FEW LINE OF FILE \""
                                        : "-------------------- FILE CONTENTS OF \"",
                               path);
    intptr_t file = openForRead(path);
    if (file == kInvalidHandle) {
        uint32_t error = LastError::get();
        LogFormatter::formatToSink(sink, error, "*** ERROR OPENING FILE: %m\r\n");
    } else {
        char buffer[4096];
        bool skipToLine = false;
        if (tailOnly) {
            int64_t size = fileSize(file);
            if (size > static_cast<int64_t>(kTailBytes)) {
                skipToLine = seekHandle(file, size - static_cast<int64_t>(kTailBytes));
            }
        }
        char last = '\n';
        int64_t got;
        while ((got = readHandle(file, buffer, sizeof buffer)) > 0) {
            const char* start = buffer;
            size_t length = static_cast<size_t>(got);
            if (skipToLine) {
                // The first line of the tail is most likely cut; the lines after it are whole.
                const void* newline = std::memchr(start, '\n', length);
                if (newline == nullptr) {
                    continue;
                }
                skipToLine = false;
                length -= static_cast<const char*>(newline) + 1 - start;
                start = static_cast<const char*>(newline) + 1;
            }
            if (length > 0) {
                sink.write(start, length);
                last = start[length - 1];
            }
        }
        closeHandle(file);
        if (last != '\n') {
            writeText(sink, "\r\n");
        }
    }
    writeText(sink, "--------------------\r\n\r\n");
}

size_t CrashLog::formatReportName(char16_t* out, size_t capacity, const char16_t* prefix,
                                  const char16_t* executable, const std::tm& local) {
    size_t n = 0;
    auto put = [&](char16_t c) {
        if (n + 1 < capacity) {
            out[n] = c;
        }
        ++n;
    };
    for (size_t i = 0; prefix && prefix[i] != 0; ++i) {
        put(prefix[i]);
    }
    size_t executableLength = wideLength(executable);
    if (executableLength > 0 && executableLength < EXECUTABLE_UNITS) {
        for (size_t i = 0; i < executableLength; ++i) {
            char16_t c = executable[i];
            bool replaced = c == u'.' || c == u':' || c == u'\\' || c == u'/';
            put(replaced ? u'_' : c);
        }
        put(u'_');
    }
    putText(out, capacity, n, "crash-");
    putNumber(out, capacity, n, static_cast<unsigned>(local.tm_year + 1900), 4);
    putText(out, capacity, n, "-");
    putNumber(out, capacity, n, static_cast<unsigned>(local.tm_mon + 1), 2);
    putText(out, capacity, n, "-");
    putNumber(out, capacity, n, static_cast<unsigned>(local.tm_mday), 2);
    putText(out, capacity, n, "-");
    putNumber(out, capacity, n, static_cast<unsigned>(local.tm_hour), 2);
    putText(out, capacity, n, "-");
    putNumber(out, capacity, n, static_cast<unsigned>(local.tm_min), 2);
    putText(out, capacity, n, "-");
    putNumber(out, capacity, n, static_cast<unsigned>(local.tm_sec), 2);
    putText(out, capacity, n, ".log");
    if (n + 1 > capacity) {
        if (capacity > 0) {
            out[0] = 0;
        }
        return 0;
    }
    out[n] = 0;
    return n;
}

Str CrashLog::invalidParameterText(const char16_t* expression, const char16_t* function,
                                   const char16_t* file, uint32_t line) {
    Str parts;
    if (expression && *expression) {
        parts.appendFormat("Expression='%S' ", expression);
    }
    if (function && *function) {
        parts.appendFormat("Function='%S' ", function);
    }
    if (file && *file) {
        parts.appendFormat("File='%S' ", file);
    }
    return Str::printf("%s Line='%d'", parts.c_str(), static_cast<int>(line));
}

void CrashLog::reportInvalidParameter(const char16_t* expression, const char16_t* function,
                                      const char16_t* file, uint32_t line) {
    Str text = invalidParameterText(expression, function, file, line);
    logger.log(LOG_ERROR, text.segment());
}

}  // namespace morvax
