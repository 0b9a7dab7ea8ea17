// The watcher on Linux. SIGINT and SIGTERM stand for the console's Ctrl-C and Ctrl-Break; a
// process is watched through a pidfd, or by kill(pid, 0) every 100 ms on kernels without one.
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "input/ProcessWatcher.h"

namespace morvax {

namespace {

// How often a process is probed when the kernel cannot give a pidfd.
constexpr int kPollIntervalMs = 100;
// MORVAXD_PROCESSID is read into this many characters with the terminator; longer means unset.
constexpr size_t kParentIdUnits = 50;
constexpr int kConsoleSignals[] = {SIGINT, SIGTERM};
constexpr size_t kConsoleSignalCount = sizeof kConsoleSignals / sizeof kConsoleSignals[0];

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
    pthread_t watchThread;
    bool hasWatchThread;
    int stopEvent;  // eventfd; never read, so that it stays set like a manual-reset event
    pthread_t lingerThread;
    bool hasLingerThread;
    int lingerEvent;
    int processHandle;  // pidfd of the watched process for the linger thread; -1 when polled
    // Set under the lock by processWatcherStop: the stop event then means "stop", not Ctrl-C.
    bool stopping;
    // The stand-in for the console control handler: the signal handler writes a byte into the
    // pipe, and a thread of ours turns each byte into processWatcherTrigger.
    bool handlerInstalled;
    int signalPipe[2];
    pthread_t signalThread;
    struct sigaction previousActions[kConsoleSignalCount];
};

std::atomic<pthread_mutex_t*> watcherLock{nullptr};
Record* record = nullptr;
// The parent of WATCH_PARENT_ENV: its pidfd, or -1 when polled by its pid.
int parentHandle = -1;
pid_t parentPid = 0;
// The parent is watched for the life of the process, whatever starts and stops follow.
bool parentWatched = false;
// Read by the signal handler; -1 while no handler of ours may write.
std::atomic<int> signalWriteFd{-1};
std::atomic<int> signalHandlersRunning{0};

class WatcherGuard {
  public:
    WatcherGuard() : lock_(watcherLock.load()) { ::pthread_mutex_lock(lock_); }
    ~WatcherGuard() { ::pthread_mutex_unlock(lock_); }
    WatcherGuard(const WatcherGuard&) = delete;
    WatcherGuard& operator=(const WatcherGuard&) = delete;

  private:
    pthread_mutex_t* lock_;
};

[[noreturn]] void fail(const char* format, int error) {
    std::fprintf(stderr, format, static_cast<unsigned>(error));
    std::exit(1);
}

[[noreturn]] void failForPid(const char* format, uint32_t pid, int error) {
    std::fprintf(stderr, format, static_cast<unsigned>(pid), static_cast<unsigned>(error));
    std::exit(1);
}

int createEvent() {
    int event = ::eventfd(0, EFD_CLOEXEC);
    if (event < 0) {
        fail("Error creating unnamed event: CreateEvent: %u\n", errno);
    }
    return event;
}

void setEvent(int event) {
    uint64_t one = 1;
    while (::write(event, &one, sizeof one) < 0) {
        if (errno != EINTR) {
            fail("Error signaling event: SetEvent: %u\n", errno);
        }
    }
}

void sleepMilliseconds(int milliseconds) {
    timespec delay = {milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000000L};
    while (::nanosleep(&delay, &delay) != 0 && errno == EINTR) {
    }
}

int pidfdOpen(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    errno = ENOSYS;
    return -1;
#endif
}

// Opens `pid` for waiting: its pidfd in `handle`, or -1 there when the kernel has no pidfds and
// the process exists. False with errno set when it cannot be opened; ESRCH and EINVAL say that
// there is no such process, as errors 87 and 3 of OpenProcess do.
bool openProcess(uint32_t pid, int* handle) {
    pid_t target = static_cast<pid_t>(pid);
    int fd = pidfdOpen(target);
    if (fd >= 0) {
        *handle = fd;
        return true;
    }
    if (errno != ENOSYS) {
        return false;
    }
    *handle = -1;
    if (target <= 0) {
        // kill would reach a whole process group here.
        errno = EINVAL;
        return false;
    }
    return ::kill(target, 0) == 0 || errno == EPERM;
}

bool isNoSuchProcess(int error) {
    return error == ESRCH || error == EINVAL;
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

enum class Waited { PROCESS, EVENT, FAILED };

// Waits without limit for the end of the process or for the event; the process wins when both
// are there. FAILED leaves errno set.
Waited waitForProcessOrEvent(int processHandle, uint32_t pid, int event) {
    for (;;) {
        pollfd fds[2] = {{processHandle, POLLIN, 0}, {event, POLLIN, 0}};
        int ready = ::poll(fds, 2, processHandle < 0 ? kPollIntervalMs : -1);
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
        if (processHandle < 0 && polledProcessEnded(static_cast<pid_t>(pid))) {
            return Waited::PROCESS;
        }
    }
}

void closeIfOpen(int fd) {
    if (fd >= 0) {
        ::close(fd);
    }
}

// Keeps -die-when-pid-dies in force while the run stops after a console event.
void* lingerThreadMain(void* argument) {
    Record* watched = static_cast<Record*>(argument);
    Waited waited =
        waitForProcessOrEvent(watched->processHandle, watched->pid, watched->lingerEvent);
    if (waited == Waited::FAILED) {
        fail("Error in WaitForMultipleObjects: %u\n", errno);
    }
    if (waited == Waited::PROCESS) {
        std::exit(kWatchedProcessEnded);
    }
    return nullptr;
}

void* watchThreadMain(void* argument) {
    Record* watched = static_cast<Record*>(argument);
    int process = -1;
    if (!openProcess(watched->pid, &process)) {
        int error = errno;
        if (!isNoSuchProcess(error)) {
            failForPid("Error waiting for process with PID %u to finish: OpenProcess: %u\n",
                       watched->pid, error);
        }
        if (watched->mode == WATCH_DIE_WHEN_PID_DIES) {
            std::exit(kWatchedProcessEnded);
        }
        processWatcherTrigger();
        return nullptr;
    }
    Waited waited = waitForProcessOrEvent(process, watched->pid, watched->stopEvent);
    if (waited == Waited::FAILED) {
        failForPid("Error waiting for process with PID %u to finish: WaitForMultipleObjects: %u\n",
                   watched->pid, errno);
    }
    if (watched->mode == WATCH_DIE_WHEN_PID_DIES) {
        if (waited == Waited::PROCESS) {
            std::exit(kWatchedProcessEnded);
        }
        WatcherGuard guard;
        // A console event, unless processWatcherStop set the event.
        if (!watched->stopping) {
            watched->lingerEvent = createEvent();
            watched->processHandle = process;
            process = -1;
            int error =
                ::pthread_create(&watched->lingerThread, nullptr, lingerThreadMain, watched);
            if (error != 0) {
                fail("Error creating a new thread: CreateThread: %u\n", error);
            }
            watched->hasLingerThread = true;
        }
    }
    closeIfOpen(process);
    processWatcherTrigger();
    return nullptr;
}

// Only async-signal-safe work here: the byte reaches processWatcherTrigger on our thread.
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

void* signalThreadMain(void* argument) {
    int fd = static_cast<Record*>(argument)->signalPipe[0];
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
        processWatcherTrigger();
    }
}

void installConsoleHandler(Record* watched) {
    const char* message = "Error setting up signal handler: SetConsoleCtrlHandler: %u\n";
    if (::pipe2(watched->signalPipe, O_CLOEXEC) != 0) {
        fail(message, errno);
    }
    // The handler must never block.
    if (::fcntl(watched->signalPipe[1], F_SETFL, O_NONBLOCK) != 0) {
        fail(message, errno);
    }
    int error = ::pthread_create(&watched->signalThread, nullptr, signalThreadMain, watched);
    if (error != 0) {
        fail(message, error);
    }
    signalWriteFd.store(watched->signalPipe[1]);
    struct sigaction action = {};
    action.sa_handler = onConsoleSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (size_t i = 0; i < kConsoleSignalCount; ++i) {
        if (::sigaction(kConsoleSignals[i], &action, &watched->previousActions[i]) != 0) {
            fail(message, errno);
        }
    }
    watched->handlerInstalled = true;
}

// Under the lock: gives the signals back to whoever had them before.
void removeConsoleHandler(Record* watched) {
    if (!watched->handlerInstalled) {
        return;
    }
    for (size_t i = 0; i < kConsoleSignalCount; ++i) {
        ::sigaction(kConsoleSignals[i], &watched->previousActions[i], nullptr);
    }
    signalWriteFd.store(-1);
    // A handler that began before the restore may still hold the old descriptor.
    while (signalHandlersRunning.load() != 0) {
        ::sched_yield();
    }
}

// Outside the lock: the signal thread may be waiting for it in processWatcherTrigger.
void stopSignalThread(Record* watched) {
    if (!watched->handlerInstalled) {
        return;
    }
    ::close(watched->signalPipe[1]);
    ::pthread_join(watched->signalThread, nullptr);
    ::close(watched->signalPipe[0]);
    watched->handlerInstalled = false;
}

// Like _wtol: blanks, a sign, then digits; 0 without digits, clamped to 32 bits.
uint32_t parseProcessId(const char* text) {
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
    return static_cast<uint32_t>(result);
}

// Closes the handle when it reports the end, as the test of the exit code does on Windows.
bool parentHasEnded() {
    if (parentHandle < 0) {
        return polledProcessEnded(parentPid);
    }
    pollfd fd = {parentHandle, POLLIN, 0};
    if (::poll(&fd, 1, 0) <= 0) {
        return false;
    }
    ::close(parentHandle);
    parentHandle = -1;
    return true;
}

void* parentThreadMain(void*) {
    for (;;) {
        if (parentHandle >= 0) {
            pollfd fd = {parentHandle, POLLIN, 0};
            if (::poll(&fd, 1, -1) < 0 && errno != EINTR) {
                sleepMilliseconds(kPollIntervalMs);
            }
        } else {
            sleepMilliseconds(kPollIntervalMs);
        }
        if (parentHasEnded()) {
            ::_exit(kParentEnded);
        }
    }
}

// The daemon that started us names itself; when it ends we end at once, without a stop path.
void watchParent() {
    const char* value = std::getenv("MORVAXD_PROCESSID");
    if (parentWatched || value == nullptr || value[0] == '\0' ||
        std::strlen(value) >= kParentIdUnits) {
        return;
    }
    uint32_t pid = parseProcessId(value);
    if (!openProcess(pid, &parentHandle)) {
        ::_exit(kParentCannotOpen);
    }
    parentPid = static_cast<pid_t>(pid);
    if (parentHasEnded()) {
        ::_exit(kParentAlreadyEnded);
    }
    pthread_t thread;
    if (::pthread_create(&thread, nullptr, parentThreadMain, nullptr) != 0) {
        closeIfOpen(parentHandle);
        ::_exit(kParentNoThread);
    }
    ::pthread_detach(thread);
    parentWatched = true;
}

}  // namespace

void processWatcherStart(ProcessWatcherCallback callback, void* argument, ProcessWatcherMode mode,
                         uint32_t pid) {
    if (watcherLock.load() == nullptr) {
        auto* lock = static_cast<pthread_mutex_t*>(std::malloc(sizeof(pthread_mutex_t)));
        if (lock == nullptr) {
            fail("Memory error: malloc: %u\n", errno);
        }
        // Recursive like a critical section.
        pthread_mutexattr_t attributes;
        ::pthread_mutexattr_init(&attributes);
        ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        ::pthread_mutex_init(lock, &attributes);
        ::pthread_mutexattr_destroy(&attributes);
        watcherLock.store(lock);
    }
    if (record != nullptr) {
        return;
    }
    auto* watched = static_cast<Record*>(std::calloc(1, sizeof(Record)));
    if (watched == nullptr) {
        fail("Memory error: calloc: %u\n", errno);
    }
    watched->callback = callback;
    watched->callbackArgument = argument;
    watched->mode = mode;
    watched->pid = pid;
    watched->lingerEvent = -1;
    watched->processHandle = -1;
    watched->signalPipe[0] = watched->signalPipe[1] = -1;
    watched->stopEvent = createEvent();
    {
        WatcherGuard guard;
        record = watched;
    }
    if (mode == WATCH_PARENT_ENV) {
        watchParent();
    } else if (mode != WATCH_NONE) {
        int error = ::pthread_create(&watched->watchThread, nullptr, watchThreadMain, watched);
        if (error != 0) {
            fail("Error creating a new thread: CreateThread: %u\n", error);
        }
        watched->hasWatchThread = true;
    }
    installConsoleHandler(watched);
}

void processWatcherStop() {
    if (watcherLock.load() == nullptr || record == nullptr) {
        return;
    }
    Record* watched = record;
    bool lingering = false;
    {
        WatcherGuard guard;
        removeConsoleHandler(watched);
        watched->callback = nullptr;
        watched->stopping = true;
        lingering = watched->hasLingerThread;
    }
    stopSignalThread(watched);
    if (lingering) {
        setEvent(watched->lingerEvent);
        ::pthread_join(watched->lingerThread, nullptr);
        ::close(watched->lingerEvent);
        closeIfOpen(watched->processHandle);
        watched->hasLingerThread = false;
    }
    if (watched->hasWatchThread) {
        setEvent(watched->stopEvent);
        ::pthread_join(watched->watchThread, nullptr);
        watched->hasWatchThread = false;
    }
    ::close(watched->stopEvent);
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
