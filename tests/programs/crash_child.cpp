// Crashes on purpose so that a test can read the report: installs the crash writer for the
// directory given first ("" for standard error), leaves notations on the main thread and on a
// running worker, then crashes the way the second argument says ("thread": the worker crashes). A
// third argument "nodump" turns the memory dump off.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <thread>

#include "support/Environment.h"
#include "util/crash/CrashLog.h"
#include "util/thread/EmptyMainThread.h"
#include "util/thread/ScopedPerThreadCrashLogConstantStringNotation.h"
#include "util/thread/Thread.h"

using namespace morvax;

namespace {

std::atomic<bool> workerReady{false};
std::atomic<bool> workerCrashes{false};
// Opaque to the compiler, so that the crash happens at run time and as written.
volatile uintptr_t nowhere = 0;
volatile int zero = 0;
volatile int seven = 7;

// The hardware's trap, not the undefined-behaviour checker's report, is what the test reads.
__attribute__((no_sanitize("integer-divide-by-zero"))) int divide(int dividend, int divisor) {
    return dividend / divisor;
}

class Worker : public Thread {
  public:
    Worker() : Thread("crash worker") {}
    ~Worker() override = default;
    void main() override {
        ScopedPerThreadCrashLogConstantStringNotation note("worker waits for the crash");
        workerReady = true;
        while (!workerCrashes) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        *reinterpret_cast<volatile int*>(nowhere) = 1;
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs(
            "usage: test_crash_child DIRECTORY segv|divide|abort|throw|thread|rezone [nodump]\n",
            stderr);
        return 2;
    }
    EmptyMainThread mainThread;
    CrashLog::setBuildId("test-build");
    CrashLog::enableMemoryDump(!(argc > 3 && std::strcmp(argv[3], "nodump") == 0));
    CrashLog::install(Pathname(argv[1]));
    ScopedPerThreadCrashLogConstantStringNotation note("crash_child is about to crash on purpose");
    {
        ScopedPerThreadCrashLogConstantStringNotation gone(
            "this notation is gone before the crash");
    }
    Worker worker;
    worker.start();
    for (int waited = 0; !workerReady && waited < 10000; ++waited) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    const char* how = argv[2];
    if (std::strcmp(how, "segv") == 0) {
        *reinterpret_cast<volatile int*>(nowhere) = 1;
    } else if (std::strcmp(how, "divide") == 0) {
        std::printf("%d\n", divide(seven, zero));
    } else if (std::strcmp(how, "abort") == 0) {
        std::abort();
    } else if (std::strcmp(how, "throw") == 0) {
        throw std::runtime_error("thrown on purpose");
    } else if (std::strcmp(how, "rezone") == 0) {
        // The zone changes after the install (localtime reads TZ again), then a crash: the
        // report keeps the zone it had at the install.
        test::setEnvironment("TZ", "XXX-14");
        std::time_t now = std::time(nullptr);
        std::localtime(&now);
        *reinterpret_cast<volatile int*>(nowhere) = 1;
    } else if (std::strcmp(how, "thread") == 0) {
        workerCrashes = true;
        for (;;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    std::fputs("test_crash_child: did not crash\n", stderr);
    // The worker never ends, so neither would its destructor.
    std::_Exit(3);
}
