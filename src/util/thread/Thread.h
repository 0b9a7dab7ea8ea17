#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "util/base/BaseException.h"
#include "util/base/LogFormatter.h"
#include "util/base/Str.h"
#include "util/thread/ScopedPerThreadCrashLogNotation.h"
#include "util/thread/ThreadLifeHook.h"

namespace morvax {

class ThreadLifeHookFactory;

// Ends the process on a failed thread primitive: such a failure leaves nothing a caller could
// trust. Records the failure for the crash report, logs it at FATAL on "Thread" and aborts.
[[noreturn]] void fatalThreadError(const char* apiName, uint32_t errorCode);
// The same for a failure the standard library reported.
[[noreturn]] void fatalThreadError(const char* apiName, const std::system_error& error);

// Base of every thread of the program. The platform thread is created by the constructor but
// parked until start(), so that a subclass is whole before its main() runs; a Thread destroyed
// without start() never runs main(). The first Thread of a process must be a MainThread.
//
// Stopping is the subclass's business: its destructor (or its owner, before destroying it) sets
// its own stop flag and calls join(), while the subclass is still whole. By the time this
// destructor runs, main() must have returned: it still waits for a running main() as a last
// resort, but that main() would then run on an object whose derived part is gone.
//
// The thread runs on the platform's default stack size: the standard library gives no way to
// choose one. On Windows that default is the 2 MiB the executable's header asks for.
class Thread {
  public:
    // Thrown by a thread's own code to end its main() early; logged at DEBUG, not a failure.
    class TerminateException;

    // Runs on a new thread before its main(), in the order of registration.
    using StartCallback = void (*)(Thread& thread);

    // The name is formatted by the printf engine, then loses every blank. Throws
    // ThreadException when no MainThread exists or the platform thread cannot be created.
    explicit Thread(const char* fmt, ...);
    virtual ~Thread();
    // The thread's state for a crash report. Heap-free.
    virtual void crashDump(FormatSink& sink) const;
    virtual void main() = 0;

    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Lets the thread run main(). A second call does nothing.
    void start();
    // Waits, without limit, until main() has returned. It does not ask the thread to stop.
    void join();

    const Str& name() const { return name_; }
    // The platform's id of the thread.
    uint32_t threadId() const { return threadId_; }
    // 0 not joined, 1 joined by join(), 2 cancelled by the destructor.
    uint32_t didJoin() const { return didJoin_.load(std::memory_order_relaxed); }

    // The calling thread's object, or null for a thread that no Thread made.
    static Thread* currentThread();
    // "Unknown Thread" for a thread without object (other than the main thread).
    static Str currentThreadName();
    // The same text without a copy, for code that may not use the heap.
    static const char* currentThreadNameCString();
    static uint32_t currentThreadId();
    // Threads constructed and not yet joined or destroyed; the MainThread is not counted.
    static uint32_t threadCount();
    // False once the MainThread has been destroyed: from then on a failing thread primitive is
    // ignored, so that shutdown cannot turn into a fatal error.
    static bool alive();

    // The calling thread's log buffer, emptied and marked owned by `owner` (not null). Null when
    // the thread has no Thread object or the buffer is already in use.
    static Str* acquireLogBuffer(const void* owner);
    // Frees the buffer if `owner` holds it.
    static void releaseLogBuffer(const void* owner);

    // Every listed thread's crashDump followed by its notations. Heap-free.
    static void crashDumpAllThreads(FormatSink& sink);
    // "Dying on fatal thread error ..." and CR LF if the fatal rule ran, else nothing.
    static void writeFatalErrorLine(FormatSink& sink);

    // Registrations live for the process, or until removed while no thread starts.
    static void addStartCallback(StartCallback callback);
    static void removeStartCallback(StartCallback callback);
    static void addLifeHookFactory(ThreadLifeHookFactory* factory);
    static void removeLifeHookFactory(ThreadLifeHookFactory* factory);

  private:
    friend class MainThread;
    friend void fatalThreadError(const char* apiName, const std::system_error& error);

    // What a thread keeps about itself while it lives: on its own stack, or in the MainThread.
    struct Record {
        // Queued one-byte locks are not used, so no wait on one is ever in progress.
        const void* mutexByteWaiting = nullptr;
        uint8_t mutexByteState = 0;
        Str logBuffer;
        const void* logBufferOwner = nullptr;
        const ScopedPerThreadCrashLogNotation::List* notations = nullptr;
    };
    struct MainThreadTag {};

    // Binds the object to the calling thread; throws if a MainThread exists.
    explicit Thread(MainThreadTag);
    void attachMainRecord(Record* record);
    void detachMainThread();

    static void entry(Thread* self);
    void runMain();
    void destroyHooks();
    void addToList();
    void removeFromList();
    void uncount();

    static uint32_t platformThreadId();
    static void setPlatformThreadName(const Str& name);
    // The platform's error value for a failure the standard library reports.
    static uint32_t platformErrorCode(const std::error_code& code);

    Str name_;
    std::thread handle_;
    std::atomic<uint32_t> didJoin_{0};
    uint32_t token_ = 0;
    uint32_t threadId_ = 0;
    std::atomic<bool> readyToRun_{false};
    bool entered_ = false;  // the new thread has published its id
    std::atomic<uint8_t> counted_{0};
    bool listed_ = false;
    Thread* listPrev_ = nullptr;
    Thread* listNext_ = nullptr;
    std::condition_variable wakeCondition_;
    std::vector<std::unique_ptr<ThreadLifeHook>> hooks_;
    std::atomic<Record*> record_{nullptr};
};

class Thread::TerminateException : public BaseException {
  public:
    MORVAX_EXCEPTION_CONSTRUCTORS(TerminateException, BaseException)
};

}  // namespace morvax
