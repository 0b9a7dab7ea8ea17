#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <memory>

#include "util/base/Utf8.h"
#include "util/crash/CrashLog.h"
#include "util/thread/Thread.h"
#include "util/time/StructTm.h"

// Start of the executable's image, provided by the linker.
extern "C" char __executable_start;

namespace morvax {

namespace {

// The local zone's offset from UTC, taken when the writer is installed.
std::atomic<long> localOffsetSeconds{0};

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr int kBacktraceFrames = 64;
// The writer formats on this stack; a stack overflow leaves no other.
constexpr size_t kMainAlternateStack = 256 * 1024;
constexpr size_t kThreadAlternateStack = 64 * 1024;
// How long a second crashing thread waits for the first one's report before it dies.
constexpr int kWaitForWriterMs = 30000;

alignas(16) char mainAlternateStack[kMainAlternateStack];
char16_t executable[CrashLog::EXECUTABLE_UNITS] = {};
char nameBuffer[CrashLog::NAME_UNITS * 3 + 1];
char pathBuffer[CrashLog::NAME_UNITS * 3 + 1];
std::atomic<bool> startCallbackAdded{false};
// Set while this thread runs a handler, so that a nested one does not wait for itself.
thread_local bool inHandler = false;

// The alternate stack of a thread that a Thread started; taken away before it is freed.
class ThreadAlternateStack {
  public:
    ThreadAlternateStack() : memory_(new char[kThreadAlternateStack]) {
        stack_t stack = {};
        stack.ss_sp = memory_.get();
        stack.ss_size = kThreadAlternateStack;
        ::sigaltstack(&stack, nullptr);
    }
    ~ThreadAlternateStack() {
        stack_t stack = {};
        stack.ss_flags = SS_DISABLE;
        ::sigaltstack(&stack, nullptr);
    }
    ThreadAlternateStack(const ThreadAlternateStack&) = delete;
    ThreadAlternateStack& operator=(const ThreadAlternateStack&) = delete;

  private:
    std::unique_ptr<char[]> memory_;
};

void giveThreadAlternateStack(Thread&) {
    thread_local ThreadAlternateStack stack;
}

// UTF-16 to UTF-8 without the heap. False when it does not fit.
bool toUtf8(const char16_t* wide, char* out, size_t capacity) {
    size_t n = 0;
    for (size_t i = 0; wide[i] != 0; ++i) {
        char32_t cp = wide[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && wide[i + 1] >= 0xDC00 && wide[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (wide[i + 1] - 0xDC00);
            ++i;
        }
        char bytes[4];
        size_t length = Utf8::encode(cp, bytes);
        if (n + length + 1 > capacity) {
            return false;
        }
        std::memcpy(out + n, bytes, length);
        n += length;
    }
    out[n] = '\0';
    return true;
}

uint64_t instructionAddress(const ucontext_t* context, const siginfo_t* info) {
#if defined(__x86_64__)
    if (context != nullptr) {
        return static_cast<uint64_t>(context->uc_mcontext.gregs[REG_RIP]);
    }
#else
    (void)context;
#endif
    return reinterpret_cast<uintptr_t>(info->si_addr);
}

// 0 read, 1 write, 8 execute, as the access-violation record says it.
uint64_t accessKind(const ucontext_t* context) {
#if defined(__x86_64__)
    if (context != nullptr) {
        greg_t error = context->uc_mcontext.gregs[REG_ERR];
        if (error & 0x10) {
            return 8;
        }
        return (error & 0x2) ? 1 : 0;
    }
#else
    (void)context;
#endif
    return 0;
}

// The exception code that stands closest to the signal.
void describeSignal(int signal, const siginfo_t* info, const ucontext_t* context,
                    CrashException& e) {
    e.address = instructionAddress(context, info);
    uint64_t faultAddress = reinterpret_cast<uintptr_t>(info->si_addr);
    switch (signal) {
        case SIGSEGV:
            e.code = CrashLog::ACCESS_VIOLATION;
            e.parameterCount = 2;
            e.parameters[0] = accessKind(context);
            e.parameters[1] = faultAddress;
            break;
        case SIGBUS:
            e.code = CrashLog::IN_PAGE_ERROR;
            e.parameterCount = 3;
            e.parameters[0] = accessKind(context);
            e.parameters[1] = faultAddress;
            e.parameters[2] = static_cast<uint64_t>(info->si_code);
            break;
        case SIGFPE:
            switch (info->si_code) {
                case FPE_INTDIV:
                    e.code = CrashLog::INTEGER_DIVIDE_BY_ZERO;
                    break;
                case FPE_INTOVF:
                    e.code = CrashLog::INTEGER_OVERFLOW;
                    break;
                case FPE_FLTDIV:
                    e.code = CrashLog::FLOAT_DIVIDE_BY_ZERO;
                    break;
                case FPE_FLTOVF:
                    e.code = CrashLog::FLOAT_OVERFLOW;
                    break;
                case FPE_FLTUND:
                    e.code = CrashLog::FLOAT_UNDERFLOW;
                    break;
                case FPE_FLTRES:
                    e.code = CrashLog::FLOAT_INEXACT_RESULT;
                    break;
                case FPE_FLTSUB:
                    e.code = CrashLog::ARRAY_BOUNDS_EXCEEDED;
                    break;
                default:
                    e.code = CrashLog::FLOAT_INVALID_OPERATION;
                    break;
            }
            break;
        case SIGILL:
            e.code = (info->si_code == ILL_PRVOPC || info->si_code == ILL_PRVREG)
                         ? CrashLog::PRIVILEGED_INSTRUCTION
                         : CrashLog::ILLEGAL_INSTRUCTION;
            break;
        default:
            e.code = CrashLog::ABORT_SIGNAL;
            break;
    }
}

void describeRegisters(const ucontext_t* context, CrashRegisters& r) {
#if defined(__x86_64__)
    if (context == nullptr) {
        return;
    }
    const greg_t* g = context->uc_mcontext.gregs;
    auto value = [](greg_t v) { return static_cast<uint64_t>(v); };
    if (context->uc_mcontext.fpregs != nullptr) {
        r.add("MxCsr", context->uc_mcontext.fpregs->mxcsr);
    }
    uint64_t segments = value(g[REG_CSGSFS]);
    r.add("SegFs", (segments >> 32) & 0xFFFF);
    r.add("SegGs", (segments >> 16) & 0xFFFF);
    r.add("SegSs", (segments >> 48) & 0xFFFF);
    r.add("SegCs", segments & 0xFFFF);
    r.add("EFlags", value(g[REG_EFL]));
    r.add("Rsp", value(g[REG_RSP]));
    r.add("Rip", value(g[REG_RIP]));
    r.add("Rax", value(g[REG_RAX]));
    r.add("Rcx", value(g[REG_RCX]));
    r.add("Rdx", value(g[REG_RDX]));
    r.add("Rbx", value(g[REG_RBX]));
    r.add("Rbp", value(g[REG_RBP]));
    r.add("Rsi", value(g[REG_RSI]));
    r.add("Rdi", value(g[REG_RDI]));
    r.add("R8", value(g[REG_R8]));
    r.add("R9", value(g[REG_R9]));
    r.add("R10", value(g[REG_R10]));
    r.add("R11", value(g[REG_R11]));
    r.add("R12", value(g[REG_R12]));
    r.add("R13", value(g[REG_R13]));
    r.add("R14", value(g[REG_R14]));
    r.add("R15", value(g[REG_R15]));
#else
    (void)context;
    (void)r;
#endif
}

void sleepMs(long ms) {
    timespec pause = {ms / 1000, (ms % 1000) * 1000000L};
    while (::nanosleep(&pause, &pause) != 0 && errno == EINTR) {
    }
}

void onSignal(int signal, siginfo_t* info, void* context) {
    bool nested = inHandler;
    inHandler = true;
    const ucontext_t* state = static_cast<const ucontext_t*>(context);
    CrashException exception;
    describeSignal(signal, info, state, exception);
    CrashRegisters registers;
    describeRegisters(state, registers);
    CrashLog::writeReport(nullptr, exception, &registers, context);
    // Another thread may be writing its report; dying now would cut it short.
    for (int waited = 0; !nested && !CrashLog::reportFinished() && waited < kWaitForWriterMs;
         waited += 10) {
        sleepMs(10);
    }
    CrashLog::endInEntryFrame();
    // The default action ends the process: at once for a raised signal, and for a fault when
    // the instruction runs again after the return.
    struct sigaction plain = {};
    plain.sa_handler = SIG_DFL;
    ::sigemptyset(&plain.sa_mask);
    ::sigaction(signal, &plain, nullptr);
    ::raise(signal);
}

}  // namespace

void CrashLog::installPlatformHandlers() {
    std::time_t now = std::time(nullptr);
    std::tm local = {};
    if (::localtime_r(&now, &local) != nullptr) {
        localOffsetSeconds.store(local.tm_gmtoff);
    }
    stack_t stack = {};
    stack.ss_sp = mainAlternateStack;
    stack.ss_size = sizeof mainAlternateStack;
    ::sigaltstack(&stack, nullptr);
    if (!startCallbackAdded.exchange(true)) {
        Thread::addStartCallback(&giveThreadAlternateStack);
    }
    // The first backtrace() loads the unwinder, which must not happen inside a handler.
    void* frames[4];
    ::backtrace(frames, 4);

    struct sigaction action = {};
    action.sa_sigaction = &onSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    ::sigemptyset(&action.sa_mask);
    for (int signal : kSignals) {
        ::sigaction(signal, &action, nullptr);
    }
}

void CrashLog::rememberExecutable() {
    char path[PATH_MAX];
    ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    executable[0] = 0;
    if (length <= 0) {
        return;
    }
    WStr wide = Str::toWide(StrSegment(path, static_cast<size_t>(length)));
    if (wide.size() < EXECUTABLE_UNITS) {
        std::memcpy(executable, wide.c_str(), (wide.size() + 1) * sizeof(char16_t));
    }
}

const char16_t* CrashLog::executablePath() {
    return executable;
}

const void* CrashLog::executableBase() {
    return &__executable_start;
}

void CrashLog::localNow(std::tm& out) {
    // Plain arithmetic: localtime_r may read files and allocate, which a crash inside malloc
    // cannot afford. The zone's offset was taken at install.
    GmtStructTm::secondsToCalendar(
        static_cast<int64_t>(std::time(nullptr)) + localOffsetSeconds.load(), out);
}

// Nothing to stop for here: a debugger sees the signal before the handler does.
void CrashLog::breakIntoDebugger() {}

intptr_t CrashLog::createReportFile(const char16_t* name) {
    if (!toUtf8(name, nameBuffer, sizeof nameBuffer)) {
        return -1;
    }
    int fd;
    do {
        fd = ::open(nameBuffer, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

intptr_t CrashLog::standardError() {
    return STDERR_FILENO;
}

void CrashLog::writeHandle(intptr_t handle, const char* bytes, size_t length) {
    while (length > 0) {
        ssize_t written = ::write(static_cast<int>(handle), bytes, length);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        bytes += written;
        length -= static_cast<size_t>(written);
    }
}

void CrashLog::closeHandle(intptr_t handle) {
    ::close(static_cast<int>(handle));
}

void CrashLog::exitNow(int status) {
    ::_exit(status);
}

const char* CrashLog::operatingSystem() {
    return "Linux";
}

void CrashLog::writeBacktrace(FormatSink& sink, const void* platformContext) {
    void* frames[kBacktraceFrames];
    int count = ::backtrace(frames, kBacktraceFrames);
    // Frames up to the interrupted instruction belong to the handler itself.
    int first = 0;
    if (platformContext != nullptr) {
        siginfo_t none = {};
        uint64_t ip = instructionAddress(static_cast<const ucontext_t*>(platformContext), &none);
        for (int i = 0; i < count; ++i) {
            if (reinterpret_cast<uintptr_t>(frames[i]) == ip) {
                first = i;
                break;
            }
        }
    }
    for (int i = first; i < count; ++i) {
        LogFormatter::formatToSink(
            sink, 0, "  #%02d 0x%016llX\r\n", i - first,
            static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(frames[i])));
    }
}

// The system writes core files by its own rules; there is no dump function to call.
void CrashLog::writeMemoryDump(FormatSink&, const char16_t*, const void*) {}

void CrashLog::writeUserAndSystem(FormatSink& sink) {
    LogFormatter::formatToSink(sink, 0, "Morvax ran as %s\r\n",
                               ::geteuid() == 0 ? "local administrator" : "non-administrator");
    char host[256];
    if (::gethostname(host, sizeof host) == 0) {
        host[sizeof host - 1] = '\0';
        LogFormatter::formatToSink(sink, 0, "%s /", host);
    }
    LogFormatter::formatToSink(sink, 0, "%s\r\n", operatingSystem());
}

intptr_t CrashLog::openForRead(const char16_t* path) {
    if (!toUtf8(path, pathBuffer, sizeof pathBuffer)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    int fd;
    do {
        fd = ::open(pathBuffer, O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int64_t CrashLog::readHandle(intptr_t handle, char* buffer, size_t size) {
    ssize_t got;
    do {
        got = ::read(static_cast<int>(handle), buffer, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

int64_t CrashLog::fileSize(intptr_t handle) {
    struct stat info;
    if (::fstat(static_cast<int>(handle), &info) != 0) {
        return -1;
    }
    return info.st_size;
}

bool CrashLog::seekHandle(intptr_t handle, int64_t offset) {
    return ::lseek(static_cast<int>(handle), offset, SEEK_SET) == offset;
}

}  // namespace morvax
