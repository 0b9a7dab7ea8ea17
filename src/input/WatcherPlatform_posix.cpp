// SIGINT and SIGTERM stand for the console's Ctrl-C and Ctrl-Break; a process is watched through
// a pidfd, or by kill(pid, 0) every 100 ms on kernels without one.
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "input/WatcherPlatform.h"

namespace morvax::watcher {

namespace {

// How often a process is probed when the kernel cannot give a pidfd.
constexpr int kPollIntervalMs = 100;
// MORVAXD_PROCESSID is read into this many characters with the terminator; longer means unset.
constexpr size_t kParentIdUnits = 50;
constexpr int kConsoleSignals[] = {SIGINT, SIGTERM};
constexpr size_t kConsoleSignalCount = sizeof kConsoleSignals / sizeof kConsoleSignals[0];

// The stand-in for the console control handler: the signal handler writes a byte into the pipe,
// and a thread of ours turns each byte into a request.
struct ConsoleHandler {
    void (*onRequest)() = nullptr;
    bool installed = false;
    int pipe[2] = {-1, -1};
    pthread_t thread;
    struct sigaction previousActions[kConsoleSignalCount];
};
ConsoleHandler console;
// Read by the signal handler; -1 while no handler of ours may write.
std::atomic<int> signalWriteFd{-1};
std::atomic<int> signalHandlersRunning{0};

int pidfdOpen(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    errno = ENOSYS;
    return -1;
#endif
}

// For a process watched without pidfd. A zombie has ended too, though kill still reaches it.
bool polledProcessEnded(pid_t pid) {
    if (::kill(pid, 0) != 0) {
        return errno == ESRCH;
    }
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno == ENOENT;
    }
    char stat[256];
    ssize_t length = ::read(fd, stat, sizeof stat - 1);
    ::close(fd);
    if (length <= 0) {
        return false;
    }
    stat[length] = '\0';
    // "pid (command) state ...": the command may hold blanks and parentheses.
    const char* close = std::strrchr(stat, ')');
    return close != nullptr && close[1] == ' ' && (close[2] == 'Z' || close[2] == 'X');
}

void sleepMilliseconds(int milliseconds) {
    timespec delay = {milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000000L};
    while (::nanosleep(&delay, &delay) != 0 && errno == EINTR) {
    }
}

struct ThreadStart {
    void (*main)(void*);
    void* argument;
};

void* runThread(void* start) {
    ThreadStart copy = *static_cast<ThreadStart*>(start);
    delete static_cast<ThreadStart*>(start);
    copy.main(copy.argument);
    return nullptr;
}

bool createThread(void (*main)(void*), void* argument, pthread_t& thread) {
    auto* start = new (std::nothrow) ThreadStart{main, argument};
    if (start == nullptr) {
        errno = ENOMEM;
        return false;
    }
    int error = ::pthread_create(&thread, nullptr, runThread, start);
    if (error != 0) {
        delete start;
        errno = error;
        return false;
    }
    return true;
}

// Only async-signal-safe work here: the byte becomes a request on our thread.
void onConsoleSignal(int) {
    signalHandlersRunning.fetch_add(1);
    int savedErrno = errno;
    int fd = signalWriteFd.load();
    if (fd >= 0) {
        char byte = 's';
        if (::write(fd, &byte, 1) < 0) {
            // A full pipe already holds a trigger.
        }
    }
    errno = savedErrno;
    signalHandlersRunning.fetch_sub(1);
}

void* signalThreadMain(void*) {
    int fd = console.pipe[0];
    for (;;) {
        char byte = 0;
        ssize_t got = ::read(fd, &byte, 1);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            // The write end is closed: the watcher stops.
            return nullptr;
        }
        console.onRequest();
    }
}

}  // namespace

uint32_t lastError() {
    return static_cast<uint32_t>(errno);
}

Handle createEvent() {
    int event = ::eventfd(0, EFD_CLOEXEC);
    return event < 0 ? kNone : event;
}

bool setEvent(Handle event) {
    // Never read, so that it stays set like a manual-reset event.
    uint64_t one = 1;
    while (::write(static_cast<int>(event), &one, sizeof one) < 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

void closeHandle(Handle object) {
    if (object != kNone) {
        ::close(static_cast<int>(object));
    }
}

Handle startThread(void (*main)(void*), void* argument) {
    pthread_t thread;
    if (!createThread(main, argument, thread)) {
        return kNone;
    }
    static_assert(sizeof(pthread_t) <= sizeof(Handle), "a thread id fits a handle");
    return static_cast<Handle>(thread);
}

void joinThread(Handle thread) {
    ::pthread_join(static_cast<pthread_t>(thread), nullptr);
}

bool startDetachedThread(void (*main)(void*)) {
    pthread_t thread;
    if (!createThread(main, nullptr, thread)) {
        return false;
    }
    ::pthread_detach(thread);
    return true;
}

Opened openProcess(uint32_t pid, Process& process) {
    process.pid = pid;
    pid_t target = static_cast<pid_t>(pid);
    int fd = pidfdOpen(target);
    if (fd >= 0) {
        process.handle = fd;
        return Opened::PROCESS;
    }
    process.handle = kNone;
    if (errno == ENOSYS) {
        if (target <= 0) {
            // kill would reach a whole process group here.
            errno = EINVAL;
        } else if (::kill(target, 0) == 0 || errno == EPERM) {
            return Opened::PROCESS;
        }
    }
    // ESRCH and EINVAL say that there is no such process, as errors 87 and 3 of OpenProcess do.
    return errno == ESRCH || errno == EINVAL ? Opened::GONE : Opened::FAILED;
}

Waited waitForProcessOrEvent(const Process& process, Handle event) {
    int processFd = static_cast<int>(process.handle);
    for (;;) {
        pollfd fds[2] = {{processFd, POLLIN, 0}, {static_cast<int>(event), POLLIN, 0}};
        int ready = ::poll(fds, 2, processFd < 0 ? kPollIntervalMs : -1);
        if (ready < 0) {
            if (errno == EINTR) {
                continue;
            }
            return Waited::FAILED;
        }
        if (fds[0].revents != 0) {
            // Readable once the process has ended; any other condition means the same.
            return Waited::PROCESS;
        }
        if ((fds[1].revents & POLLIN) != 0) {
            return Waited::EVENT;
        }
        if (fds[1].revents != 0) {
            errno = (fds[1].revents & POLLNVAL) != 0 ? EBADF : EIO;
            return Waited::FAILED;
        }
        if (processFd < 0 && polledProcessEnded(static_cast<pid_t>(process.pid))) {
            return Waited::PROCESS;
        }
    }
}

void waitForProcess(const Process& process) {
    if (process.handle == kNone) {
        sleepMilliseconds(kPollIntervalMs);
        return;
    }
    pollfd fd = {static_cast<int>(process.handle), POLLIN, 0};
    if (::poll(&fd, 1, -1) < 0 && errno != EINTR) {
        sleepMilliseconds(kPollIntervalMs);
    }
}

bool processHasEnded(Process& process) {
    if (process.handle == kNone) {
        return polledProcessEnded(static_cast<pid_t>(process.pid));
    }
    pollfd fd = {static_cast<int>(process.handle), POLLIN, 0};
    if (::poll(&fd, 1, 0) <= 0) {
        return false;
    }
    closeHandle(process.handle);
    process.handle = kNone;
    return true;
}

bool readParentProcessId(uint32_t& pid) {
    const char* text = std::getenv("MORVAXD_PROCESSID");
    if (text == nullptr || text[0] == '\0' || std::strlen(text) >= kParentIdUnits) {
        return false;
    }
    // Like _wtol: blanks, a sign, then digits; 0 without digits, clamped to 32 bits.
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) {
        ++text;
    }
    bool negative = false;
    if (*text == '+' || *text == '-') {
        negative = *text == '-';
        ++text;
    }
    constexpr int64_t kLimit = int64_t{INT32_MAX} + 1;
    int64_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = value * 10 + (*text - '0');
        if (value > kLimit) {
            value = kLimit;
        }
    }
    int32_t result = negative ? static_cast<int32_t>(-value)
                              : static_cast<int32_t>(value < kLimit ? value : INT32_MAX);
    pid = static_cast<uint32_t>(result);
    return true;
}

bool installConsoleHandler(void (*onRequest)()) {
    console.onRequest = onRequest;
    // The write end must never block the handler.
    if (::pipe2(console.pipe, O_CLOEXEC) != 0 ||
        ::fcntl(console.pipe[1], F_SETFL, O_NONBLOCK) != 0) {
        return false;
    }
    int error = ::pthread_create(&console.thread, nullptr, signalThreadMain, nullptr);
    if (error != 0) {
        errno = error;
        return false;
    }
    signalWriteFd.store(console.pipe[1]);
    struct sigaction action = {};
    action.sa_handler = onConsoleSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (size_t i = 0; i < kConsoleSignalCount; ++i) {
        if (::sigaction(kConsoleSignals[i], &action, &console.previousActions[i]) != 0) {
            return false;
        }
    }
    console.installed = true;
    return true;
}

void removeConsoleHandler() {
    if (!console.installed) {
        return;
    }
    // The signals go back to whoever had them before.
    for (size_t i = 0; i < kConsoleSignalCount; ++i) {
        ::sigaction(kConsoleSignals[i], &console.previousActions[i], nullptr);
    }
    signalWriteFd.store(-1);
    // A handler that began before the restore may still hold the old descriptor.
    while (signalHandlersRunning.load() != 0) {
        ::sched_yield();
    }
}

void finishConsoleHandler() {
    if (!console.installed) {
        return;
    }
    ::close(console.pipe[1]);
    ::pthread_join(console.thread, nullptr);
    ::close(console.pipe[0]);
    console.installed = false;
}

void exitNow(int status) {
    ::_exit(status);
}

}  // namespace morvax::watcher
