#include "util/thread/Thread.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "util/base/Diagnostics.h"
#include "util/base/LastError.h"
#include "util/base/ThreadException.h"
#include "util/thread/ThreadLifeHookFactory.h"

namespace morvax {

namespace {

DiagnosticsChannel diagnostics("Thread");

const char MAIN_THREAD_NAME[] = "MainThread";
const char UNKNOWN_THREAD_NAME[] = "Unknown Thread";

// Guards flags, list links and registrations; never held while waiting for a thread's end.
std::mutex threadStateLock;
std::atomic<uint32_t> threadCounter{0};
bool mainThreadExists = false;
std::atomic<bool> processAlive{true};
std::atomic<uint32_t> mainThreadId{0};
Thread* listHead = nullptr;
Thread* listTail = nullptr;

thread_local Thread* currentThreadObject = nullptr;

// Never destroyed: a thread may still start while static destructors run.
std::vector<Thread::StartCallback>& startCallbacks() {
    static auto* callbacks = new std::vector<Thread::StartCallback>();
    return *callbacks;
}

std::vector<ThreadLifeHookFactory*>& lifeHookFactories() {
    static auto* factories = new std::vector<ThreadLifeHookFactory*>();
    return *factories;
}

// What the fatal rule leaves for the crash report, which reads it without locks or heap.
struct FatalError {
    std::atomic<bool> happened{false};
    const char* apiName = "none";
    uint32_t code = 0;
    uint32_t threadCount = 0;
    char threadName[64] = "none";
};
FatalError fatalError;

// Holds threadStateLock; a lock that cannot be taken is the end of the process.
class StateLock {
  public:
    StateLock() : lock_(threadStateLock, std::defer_lock) {
        try {
            lock_.lock();
        } catch (const std::system_error& e) {
            fatalThreadError("EnterCriticalSection", e);
        }
    }
    std::unique_lock<std::mutex>& get() { return lock_; }

  private:
    std::unique_lock<std::mutex> lock_;
};

// Logs the text at WARN first, so that it reaches the log even if a caller swallows it.
[[noreturn]] void throwThreadException(const ThreadException& exception) {
    diagnostics.log(LOG_WARN, exception.message());
    throw exception;
}

void removeBlanks(Str& text) {
    size_t kept = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != ' ' && text[i] != '\t') {
            text[kept++] = text[i];
        }
    }
    text.resize(kept);
}

const char* mutexByteStateName(uint8_t state, char (&scratch)[16]) {
    switch (state) {
        case 0:
            return "unlocked";
        case 1:
            return "LOCKED";
        case 3:
            return "LOCKED+CONTENDED";
        default: {
            static const char HEX[] = "0123456789ABCDEF";
            std::memcpy(scratch, "BAD(0x", 6);
            scratch[6] = HEX[state >> 4];
            scratch[7] = HEX[state & 15];
            std::memcpy(scratch + 8, ")!", 3);
            return scratch;
        }
    }
}

}  // namespace

Thread::Thread(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    name_.appendFormatV(fmt, args);
    va_end(args);
    removeBlanks(name_);

    bool mainExists;
    {
        StateLock lock;
        mainExists = mainThreadExists;
    }
    if (!mainExists) {
        throwThreadException(ThreadException("Thread created before main thread!"));
    }

    counted_ = 1;
    threadCounter.fetch_add(1);
    try {
        handle_ = std::thread(&Thread::entry, this);
    } catch (const std::system_error& e) {
        uncount();
        LastError::set(platformErrorCode(e.code()));
        throwThreadException(
            ThreadException("%s: about to throw a ThreadException: %s: %m; %u threads active",
                            name_.c_str(), "_beginthreadex", threadCount()));
    } catch (...) {
        uncount();
        throw;
    }

    // The id is known once the thread has run up to its parking place.
    StateLock lock;
    wakeCondition_.wait(lock.get(), [this] { return entered_; });
    token_ = threadId_;
}

Thread::Thread(MainThreadTag) : name_(MAIN_THREAD_NAME) {
    uint32_t id = platformThreadId();
    bool twice;
    {
        StateLock lock;
        twice = mainThreadExists;
        if (!twice) {
            mainThreadExists = true;
            processAlive = true;
            mainThreadId = id;
            didJoin_ = 1;
            readyToRun_ = true;
            counted_ = 0;
            threadId_ = id;
            token_ = id;
            entered_ = true;
            addToList();
        }
    }
    if (twice) {
        throwThreadException(ThreadException("Main Thread created twice!"));
    }
    currentThreadObject = this;
}

void Thread::attachMainRecord(Record* record) {
    record->notations = ScopedPerThreadCrashLogNotation::currentThreadList();
    record_.store(record, std::memory_order_release);
}

void Thread::detachMainThread() {
    {
        StateLock lock;
        removeFromList();
        record_.store(nullptr, std::memory_order_release);
        mainThreadExists = false;
        processAlive = false;
        mainThreadId = 0;
    }
    if (currentThreadObject == this) {
        currentThreadObject = nullptr;
    }
}

Thread::~Thread() {
    if (handle_.joinable()) {
        if (processAlive) {
            {
                StateLock lock;
                readyToRun_ = true;
                didJoin_ = 2;
                wakeCondition_.notify_all();
            }
            try {
                handle_.join();
            } catch (const std::system_error& e) {
                fatalThreadError("WaitForSingleObject", e);
            }
        } else {
            // The process is ending: nobody waits for a thread any more.
            handle_.detach();
        }
    }
    uncount();
    // Normally gone already: the thread destroys its hooks when main() ends.
    destroyHooks();
}

void Thread::start() {
    StateLock lock;
    readyToRun_ = true;
    wakeCondition_.notify_all();
}

void Thread::join() {
    {
        StateLock lock;
        didJoin_ = 1;
    }
    if (handle_.joinable()) {
        try {
            handle_.join();
        } catch (const std::system_error& e) {
            if (processAlive) {
                fatalThreadError("WaitForSingleObject", e);
            }
        }
    }
    uncount();
}

void Thread::uncount() {
    uint8_t expected = 1;
    if (counted_.compare_exchange_strong(expected, 2)) {
        threadCounter.fetch_sub(1);
    }
}

void Thread::entry(Thread* self) {
    // The record gets a cache line of its own: other threads' data never shares it.
    constexpr size_t LINE = 64;
    alignas(alignof(Record)) unsigned char storage[sizeof(Record) + LINE];
    void* place = storage;
    size_t space = sizeof(storage);
    Record* record = new (std::align(LINE, sizeof(Record), place, space)) Record();
    record->notations = ScopedPerThreadCrashLogNotation::currentThreadList();

    setPlatformThreadName(self->name_);
    currentThreadObject = self;

    bool cancelled;
    {
        StateLock lock;
        self->threadId_ = platformThreadId();
        self->record_.store(record, std::memory_order_release);
        self->entered_ = true;
        self->wakeCondition_.notify_all();
        self->wakeCondition_.wait(lock.get(), [self] { return self->readyToRun_.load(); });
        cancelled = self->didJoin_ == 2;
        if (!cancelled) {
            self->addToList();
        }
    }
    if (!cancelled) {
        self->runMain();
        StateLock lock;
        self->removeFromList();
    }
    self->record_.store(nullptr, std::memory_order_release);
    currentThreadObject = nullptr;
    record->~Record();
}

void Thread::runMain() {
    std::vector<StartCallback> callbacks;
    std::vector<ThreadLifeHookFactory*> factories;
    {
        StateLock lock;
        callbacks = startCallbacks();
        factories = lifeHookFactories();
    }
    for (StartCallback callback : callbacks) {
        callback(*this);
    }
    for (ThreadLifeHookFactory* factory : factories) {
        if (std::unique_ptr<ThreadLifeHook> hook = factory->create(*this)) {
            hooks_.push_back(std::move(hook));
        }
    }
    // Any other exception is left uncaught, so that it ends the process through the crash
    // handler with the thread's stack intact.
    try {
        main();
    } catch (const TerminateException& e) {
        Str text("caught Thread::TerminateException: ");
        text.append(e.what());
        diagnostics.log(LOG_DEBUG, text);
    }
    destroyHooks();
}

void Thread::destroyHooks() {
    for (std::unique_ptr<ThreadLifeHook>& hook : hooks_) {
        hook.reset();
    }
    hooks_.clear();
}

// Under threadStateLock.
void Thread::addToList() {
    listPrev_ = listTail;
    listNext_ = nullptr;
    if (listTail) {
        listTail->listNext_ = this;
    } else {
        listHead = this;
    }
    listTail = this;
    listed_ = true;
}

// Under threadStateLock.
void Thread::removeFromList() {
    if (!listed_) {
        return;
    }
    (listPrev_ ? listPrev_->listNext_ : listHead) = listNext_;
    (listNext_ ? listNext_->listPrev_ : listTail) = listPrev_;
    listPrev_ = listNext_ = nullptr;
    listed_ = false;
}

void Thread::crashDump(FormatSink& sink) const {
    LogFormatter::formatToSink(
        sink, 0, "Thread: \"%s\", did_join=%u, ready_to_run=%s, main_thread=%s, token=%u\r\n",
        name_.c_str(), didJoin(), readyToRun_.load() ? "Y" : "N", counted_.load() == 0 ? "Y" : "N",
        token_);
    const Record* record = record_.load(std::memory_order_acquire);
    if (!record) {
        return;
    }
    char scratch[16];
    const char* state = mutexByteStateName(record->mutexByteState, scratch);
    if (record->mutexByteWaiting) {
        LogFormatter::formatToSink(sink, 0, "MutexByte: MutexByte-waiting={%p, next=%s}\r\n",
                                   record->mutexByteWaiting, state);
    } else {
        LogFormatter::formatToSink(sink, 0, "MutexByte: MutexByte-waiting={none, next=%s}\r\n",
                                   state);
    }
}

Thread* Thread::currentThread() {
    return currentThreadObject;
}

Str Thread::currentThreadName() {
    return Str(currentThreadNameCString());
}

const char* Thread::currentThreadNameCString() {
    if (Thread* self = currentThreadObject) {
        return self->name_.c_str();
    }
    uint32_t mainId = mainThreadId.load(std::memory_order_relaxed);
    if (mainId != 0 && mainId == platformThreadId()) {
        return MAIN_THREAD_NAME;
    }
    return UNKNOWN_THREAD_NAME;
}

uint32_t Thread::currentThreadId() {
    if (Thread* self = currentThreadObject) {
        return self->threadId_;
    }
    return platformThreadId();
}

uint32_t Thread::threadCount() {
    return threadCounter.load();
}

bool Thread::alive() {
    return processAlive.load();
}

Str* Thread::acquireLogBuffer(const void* owner) {
    Thread* self = currentThreadObject;
    if (!self || !owner) {
        return nullptr;
    }
    Record* record = self->record_.load(std::memory_order_relaxed);
    if (!record || record->logBufferOwner) {
        return nullptr;
    }
    record->logBufferOwner = owner;
    record->logBuffer.clear();
    return &record->logBuffer;
}

void Thread::releaseLogBuffer(const void* owner) {
    Thread* self = currentThreadObject;
    if (!self) {
        return;
    }
    Record* record = self->record_.load(std::memory_order_relaxed);
    if (record && record->logBufferOwner == owner) {
        record->logBufferOwner = nullptr;
    }
}

void Thread::crashDumpAllThreads(FormatSink& sink) {
    // The dying thread may hold the lock itself; then the list is read as it stands.
    bool locked = threadStateLock.try_lock();
    for (const Thread* thread = listHead; thread; thread = thread->listNext_) {
        thread->crashDump(sink);
        const Record* record = thread->record_.load(std::memory_order_acquire);
        if (record && record->notations) {
            ScopedPerThreadCrashLogNotation::writeList(*record->notations, sink);
        }
    }
    if (locked) {
        threadStateLock.unlock();
    }
}

void Thread::writeFatalErrorLine(FormatSink& sink) {
    if (!fatalError.happened.load(std::memory_order_acquire)) {
        return;
    }
    LogFormatter::formatToSink(sink, 0, "Dying on fatal thread error %u from %s, thread %s\r\n",
                               fatalError.code, fatalError.apiName, fatalError.threadName);
}

void Thread::addStartCallback(StartCallback callback) {
    StateLock lock;
    startCallbacks().push_back(callback);
}

void Thread::removeStartCallback(StartCallback callback) {
    StateLock lock;
    auto& callbacks = startCallbacks();
    callbacks.erase(std::remove(callbacks.begin(), callbacks.end(), callback), callbacks.end());
}

void Thread::addLifeHookFactory(ThreadLifeHookFactory* factory) {
    StateLock lock;
    lifeHookFactories().push_back(factory);
}

void Thread::removeLifeHookFactory(ThreadLifeHookFactory* factory) {
    StateLock lock;
    auto& factories = lifeHookFactories();
    factories.erase(std::remove(factories.begin(), factories.end(), factory), factories.end());
}

void fatalThreadError(const char* apiName, uint32_t errorCode) {
    uint32_t count = Thread::threadCount();
    const char* name = Thread::currentThreadNameCString();
    fatalError.apiName = apiName;
    fatalError.code = errorCode;
    fatalError.threadCount = count;
    size_t length = std::min(std::strlen(name), sizeof(fatalError.threadName) - 1);
    std::memcpy(fatalError.threadName, name, length);
    fatalError.threadName[length] = '\0';
    fatalError.happened.store(true, std::memory_order_release);

    LastError::set(errorCode);
    diagnostics.fatal("Fatal thread error: %s: %m; %u threads active, in %s", apiName, count, name);
    std::abort();
}

void fatalThreadError(const char* apiName, const std::system_error& error) {
    fatalThreadError(apiName, Thread::platformErrorCode(error.code()));
}

}  // namespace morvax
