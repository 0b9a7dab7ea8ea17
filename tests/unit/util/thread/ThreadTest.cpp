#include "util/thread/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "support/DiagnosticsCapture.h"
#include "support/WaitUntil.h"
#include "util/base/ThreadException.h"
#include "util/thread/ConditionVariable.h"
#include "util/thread/EmptyMainThread.h"
#include "util/thread/Mutex.h"
#include "util/thread/ScopedLock.h"
#include "util/thread/ScopedPerThreadCrashLogConstantStringNotation.h"
#include "util/thread/ThreadLifeHookFactory.h"

namespace morvax {
namespace {

using test::waitUntil;

class StrSink : public FormatSink {
  public:
    void write(const char* bytes, size_t length) override { text.append(bytes, length); }
    Str text;
};

using LogCapture = test::DiagnosticsCapture;

// Runs `body` as main(). The body is copied when main() begins, so a test that waits until the
// body runs may destroy the object while the body goes on.
class FunctionThread : public Thread {
  public:
    template <typename... Args>
    explicit FunctionThread(std::function<void()> body, const char* fmt, Args... args)
        : Thread(fmt, args...), body_(std::move(body)) {}
    void main() override {
        std::function<void()> body = body_;
        body();
    }

  private:
    std::function<void()> body_;
};

TEST(ThreadWithoutMainThreadTest, ThreadBeforeMainThreadThrowsAndLogsAtWarn) {
    uint32_t before = Thread::threadCount();
    LogCapture log;
    bool ran = false;
    try {
        FunctionThread thread([&] { ran = true; }, "Early");
        FAIL() << "no exception";
    } catch (const ThreadException& e) {
        EXPECT_STREQ(e.what(), "Thread created before main thread!");
    }
    EXPECT_TRUE(log.has(LOG_WARN, "Thread created before main thread!"));
    EXPECT_EQ(Thread::threadCount(), before);
    EXPECT_FALSE(ran);
}

TEST(ThreadWithoutMainThreadTest, MainThreadBindsToItsThreadAndExistsOnce) {
    uint32_t before = Thread::threadCount();
    {
        EmptyMainThread mainThread;
        EXPECT_EQ(Thread::currentThread(), &mainThread);
        EXPECT_EQ(mainThread.name(), "MainThread");
        EXPECT_EQ(Thread::currentThreadName(), "MainThread");
        EXPECT_EQ(Thread::currentThreadId(), mainThread.threadId());
        EXPECT_EQ(mainThread.didJoin(), 1u);
        EXPECT_EQ(Thread::threadCount(), before);
        EXPECT_TRUE(Thread::alive());

        LogCapture log;
        try {
            EmptyMainThread second;
            FAIL() << "no exception";
        } catch (const ThreadException& e) {
            EXPECT_STREQ(e.what(), "Main Thread created twice!");
        }
        EXPECT_TRUE(log.has(LOG_WARN, "Main Thread created twice!"));
        EXPECT_EQ(Thread::currentThread(), &mainThread);

        Str otherName;
        Thread* otherObject = &mainThread;
        std::thread other([&] {
            otherName = Thread::currentThreadName();
            otherObject = Thread::currentThread();
        });
        other.join();
        EXPECT_EQ(otherName, "Unknown Thread");
        EXPECT_EQ(otherObject, nullptr);
    }
    EXPECT_EQ(Thread::currentThread(), nullptr);
    EXPECT_FALSE(Thread::alive());
    EmptyMainThread again;
    EXPECT_EQ(Thread::currentThread(), &again);
}

class ThreadTest : public ::testing::Test {
  protected:
    EmptyMainThread mainThread_;
    uint32_t countBefore_ = Thread::threadCount();
};

TEST_F(ThreadTest, NeverStartedThreadNeverRunsMain) {
    std::atomic<bool> ran{false};
    {
        FunctionThread thread([&] { ran = true; }, "Parked");
        EXPECT_EQ(Thread::threadCount(), countBefore_ + 1);
        EXPECT_NE(thread.threadId(), 0u);
        EXPECT_NE(thread.threadId(), mainThread_.threadId());
        StrSink sink;
        thread.crashDump(sink);
        Str expected = Str::printf(
            "Thread: \"Parked\", did_join=0, ready_to_run=N, main_thread=N, token=%u\r\n"
            "MutexByte: MutexByte-waiting={none, next=unlocked}\r\n",
            thread.threadId());
        EXPECT_EQ(sink.text, expected);
    }
    EXPECT_FALSE(ran);
    EXPECT_EQ(Thread::threadCount(), countBefore_);
}

TEST_F(ThreadTest, NameLosesBlanksAndMainRunsAsThatThread) {
    Thread* seenObject = nullptr;
    Str seenName;
    uint32_t seenId = 0;
    FunctionThread thread(
        [&] {
            seenObject = Thread::currentThread();
            seenName = Thread::currentThreadName();
            seenId = Thread::currentThreadId();
        },
        " worker %d of\t%s ", 3, "pool A");
    EXPECT_EQ(thread.name(), "worker3ofpoolA");
    thread.start();
    thread.start();
    thread.join();
    EXPECT_EQ(seenObject, &thread);
    EXPECT_EQ(seenName, "worker3ofpoolA");
    EXPECT_EQ(seenId, thread.threadId());
    EXPECT_EQ(thread.didJoin(), 1u);
    EXPECT_EQ(Thread::threadCount(), countBefore_);
    thread.join();  // a second join returns at once
    EXPECT_EQ(Thread::threadCount(), countBefore_);
}

TEST_F(ThreadTest, JoinWaitsForMainToReturn) {
    std::atomic<bool> joinReturned{false};
    std::atomic<bool> returnedEarly{false};
    FunctionThread thread(
        [&] {
            Thread* self = Thread::currentThread();
            ASSERT_TRUE(waitUntil([&] { return self->didJoin() == 1; }));
            // join has begun; it must not return while main runs.
            auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
            while (std::chrono::steady_clock::now() < until) {
                if (joinReturned) {
                    returnedEarly = true;
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        },
        "Joined");
    thread.start();
    std::thread joiner([&] {
        thread.join();
        joinReturned = true;
    });
    joiner.join();
    EXPECT_FALSE(returnedEarly);
    EXPECT_TRUE(joinReturned);
}

// The rule of every subclass: its destructor stops and joins the thread while the subclass is
// still whole, so that main() never runs on a half-destroyed object.
class StoppingThread : public Thread {
  public:
    StoppingThread() : Thread("Stopping") {}
    ~StoppingThread() override {
        stop = true;
        join();
        joinedWhileWhole = didJoin() == 1 && finished;
    }
    void main() override {
        started = true;
        while (!stop) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        finished = true;
    }
    std::atomic<bool> stop{false};
    std::atomic<bool> started{false};
    static std::atomic<bool> finished;
    static std::atomic<bool> joinedWhileWhole;
};
std::atomic<bool> StoppingThread::finished{false};
std::atomic<bool> StoppingThread::joinedWhileWhole{false};

TEST_F(ThreadTest, TheOwnerStopsAndJoinsARunningMainBeforeItsPartGoes) {
    StoppingThread::finished = false;
    StoppingThread::joinedWhileWhole = false;
    auto thread = std::make_unique<StoppingThread>();
    thread->start();
    ASSERT_TRUE(waitUntil([&] { return thread->started.load(); }));
    thread.reset();
    EXPECT_TRUE(StoppingThread::joinedWhileWhole);
    EXPECT_EQ(Thread::threadCount(), countBefore_);
}

// Start callbacks and hooks write here; a callback is a plain function.
std::mutex eventsLock;
std::vector<Str> events;

void record(const Str& event) {
    std::lock_guard<std::mutex> guard(eventsLock);
    events.push_back(event);
}

void recordStart(Thread& thread) {
    record(Str::printf("start %s", thread.name().c_str()));
}

class RecordingHook : public ThreadLifeHook {
  public:
    explicit RecordingHook(const char* tag) : tag_(tag) {
        record(Str::printf("%s up on %s", tag_, Thread::currentThreadNameCString()));
    }
    ~RecordingHook() override { record(Str::printf("%s down", tag_)); }

  private:
    const char* tag_;
};

class RecordingHookFactory : public ThreadLifeHookFactory {
  public:
    explicit RecordingHookFactory(const char* tag) : tag_(tag) {}
    std::unique_ptr<ThreadLifeHook> create(Thread&) override {
        return std::make_unique<RecordingHook>(tag_);
    }

  private:
    const char* tag_;
};

TEST_F(ThreadTest, CallbacksAndHooksSurroundMainEvenWhenItTerminates) {
    events.clear();
    RecordingHookFactory first("A");
    RecordingHookFactory second("B");
    Thread::addStartCallback(recordStart);
    Thread::addLifeHookFactory(&first);
    Thread::addLifeHookFactory(&second);
    LogCapture log;
    bool afterThrow = false;
    FunctionThread thread(
        [&] {
            record("main");
            throw Thread::TerminateException("enough");
            afterThrow = true;
        },
        "Hooked");
    thread.start();
    thread.join();
    Thread::removeStartCallback(recordStart);
    Thread::removeLifeHookFactory(&first);
    Thread::removeLifeHookFactory(&second);

    EXPECT_FALSE(afterThrow);
    std::vector<Str> expected = {"start Hooked", "A up on Hooked", "B up on Hooked",
                                 "main",         "A down",         "B down"};
    EXPECT_EQ(events, expected);
    for (const test::Diagnostic& report : log.entries()) {
        EXPECT_LT(report.level, LOG_WARN) << report.line();
    }

    events.clear();
    FunctionThread plain([] {}, "Plain");
    plain.start();
    plain.join();
    EXPECT_TRUE(events.empty());
}

TEST_F(ThreadTest, LogBufferBelongsToOneOwnerAtATime) {
    int a = 0;
    int b = 0;
    Str* buffer = Thread::acquireLogBuffer(&a);
    ASSERT_NE(buffer, nullptr);
    buffer->append("partial");
    EXPECT_EQ(Thread::acquireLogBuffer(&b), nullptr);
    Thread::releaseLogBuffer(&b);
    EXPECT_EQ(Thread::acquireLogBuffer(&b), nullptr);
    Thread::releaseLogBuffer(&a);
    Str* again = Thread::acquireLogBuffer(&b);
    EXPECT_EQ(again, buffer);
    EXPECT_TRUE(again->empty());
    Thread::releaseLogBuffer(&b);

    Str* threadBuffer = nullptr;
    FunctionThread thread(
        [&] {
            threadBuffer = Thread::acquireLogBuffer(&a);
            Thread::releaseLogBuffer(&a);
        },
        "Buffered");
    thread.start();
    thread.join();
    EXPECT_NE(threadBuffer, nullptr);
    EXPECT_NE(threadBuffer, buffer);

    Str* plainBuffer = buffer;
    std::thread plain([&] { plainBuffer = Thread::acquireLogBuffer(&a); });
    plain.join();
    EXPECT_EQ(plainBuffer, nullptr);
}

TEST_F(ThreadTest, CrashDumpListsStartedThreadsWithTheirNotations) {
    ScopedPerThreadCrashLogConstantStringNotation mainNote("main is testing");
    std::atomic<bool> busy{false};
    std::atomic<bool> release{false};
    FunctionThread worker(
        [&] {
            ScopedPerThreadCrashLogConstantStringNotation note("worker is busy");
            busy = true;
            while (!release) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        },
        "Worker");
    FunctionThread parked([] {}, "Parked");
    worker.start();
    ASSERT_TRUE(waitUntil([&] { return busy.load(); }));

    StrSink sink;
    Thread::crashDumpAllThreads(sink);
    release = true;
    worker.join();

    Str expected = Str::printf(
        "Thread: \"MainThread\", did_join=1, ready_to_run=Y, main_thread=Y, token=%u\r\n"
        "MutexByte: MutexByte-waiting={none, next=unlocked}\r\n"
        "main is testing\r\n"
        "Thread: \"Worker\", did_join=0, ready_to_run=Y, main_thread=N, token=%u\r\n"
        "MutexByte: MutexByte-waiting={none, next=unlocked}\r\n"
        "worker is busy\r\n",
        mainThread_.threadId(), worker.threadId());
    EXPECT_EQ(sink.text, expected);

    // A finished thread leaves the list and has no record any more.
    StrSink after;
    Thread::crashDumpAllThreads(after);
    EXPECT_EQ(after.text.find(StrSegment("Worker")), Str::npos);
    StrSink workerDump;
    worker.crashDump(workerDump);
    EXPECT_EQ(workerDump.text,
              Str::printf("Thread: \"Worker\", did_join=1, ready_to_run=Y, main_thread=N, "
                          "token=%u\r\n",
                          worker.threadId()));
}

TEST(MutexTest, IsRecursiveAndExcludesOtherThreads) {
    Mutex mutex;
    mutex.lock();
    {
        ScopedLock again(mutex);
        bool otherGotIt = true;
        std::thread([&] { otherGotIt = mutex.tryLock(); }).join();
        EXPECT_FALSE(otherGotIt);
    }
    mutex.unlock();
    bool otherGotIt = false;
    std::thread([&] {
        otherGotIt = mutex.tryLock();
        if (otherGotIt) {
            mutex.unlock();
        }
    }).join();
    EXPECT_TRUE(otherGotIt);
}

TEST(ConditionVariableTest, TimedWaitTellsTimeOutFromWakeUp) {
    Mutex mutex;
    ConditionVariable condition;
    {
        ScopedLock lock(mutex);
        auto before = std::chrono::steady_clock::now();
        EXPECT_FALSE(condition.timedWait(mutex, 20));
        EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(15));
    }

    // The waiters announce themselves under the lock and release it only by waiting, so once
    // the waker holds the lock with all of them counted, every one of them is asleep.
    int waiting = 0;
    bool woken = false;
    std::atomic<int> wokenByWake{0};
    auto timedWaiter = [&] {
        ScopedLock lock(mutex);
        ++waiting;
        while (!woken) {
            if (!condition.timedWait(mutex, 10000)) {
                return;
            }
        }
        ++wokenByWake;
    };
    auto plainWaiter = [&] {
        ScopedLock lock(mutex);
        ++waiting;
        while (!woken) {
            condition.wait(mutex);
        }
        ++wokenByWake;
    };
    auto allWaiting = [&](int count) {
        return waitUntil([&] {
            ScopedLock lock(mutex);
            return waiting == count;
        });
    };

    std::thread one(timedWaiter);
    ASSERT_TRUE(allWaiting(1));
    {
        ScopedLock lock(mutex);
        woken = true;
        condition.wakeOne();
    }
    one.join();
    EXPECT_EQ(wokenByWake, 1);

    waiting = 0;
    woken = false;
    std::thread two(timedWaiter);
    std::thread three(plainWaiter);
    ASSERT_TRUE(allWaiting(2));
    {
        ScopedLock lock(mutex);
        woken = true;
        condition.wakeAll();
    }
    two.join();
    three.join();
    EXPECT_EQ(wokenByWake, 3);
}

TEST(FatalThreadErrorTest, NothingForTheCrashReportUntilItRuns) {
    StrSink sink;
    Thread::writeFatalErrorLine(sink);
    EXPECT_TRUE(sink.text.empty());
}

// Shows the crash report's line beside the FATAL log line, since the process dies right after.
// The report on the "Thread" channel, then the record that the crash report prints.
void dieOnFatalThreadError() {
    EmptyMainThread mainThread;
    test::DiagnosticsCapture capture([](const test::Diagnostic& report) {
        if (report.level != LOG_FATAL) {
            return;
        }
        StrSink sink;
        sink.text.append(StrSegment(report.line()));
        sink.text.append(" / ");
        Thread::writeFatalErrorLine(sink);
        std::fwrite(sink.text.data(), 1, sink.text.size(), stderr);
        std::fflush(stderr);
    });
    fatalThreadError("WaitForSingleObject", 5);
}

TEST(FatalThreadErrorTest, LogsRecordsAndAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(dieOnFatalThreadError(),
                 "Thread FATAL Fatal thread error: WaitForSingleObject: .*; 0 threads active, in "
                 "MainThread / "
                 "Dying on fatal thread error 5 from WaitForSingleObject, thread MainThread");
}

}  // namespace
}  // namespace morvax
