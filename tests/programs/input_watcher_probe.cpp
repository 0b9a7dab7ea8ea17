// Runs the process watcher in a process of its own, for the tests of the ways it ends a process.
// Arguments: MODE PID STOPFILE [trigger].
//
// Prints "started" once the watcher runs and "callback" when its stop callback fires. With
// STOPFILE "-" it stops the watcher after the callback, else once that file exists; then it
// prints "stopped" and exits 0. "trigger" fires the stop at once, as a console event does. After
// a minute without either it gives up with status 3, so that a failing test leaves nothing behind.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "input/ProcessWatcher.h"

using namespace morvax;

namespace {

constexpr auto kGiveUpAfter = std::chrono::seconds(60);

std::atomic<bool> fired{false};

void say(const char* line) {
    std::fputs(line, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void onStop(void*) {
    fired = true;
    say("callback");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fputs("usage: test_input_watcher_probe MODE PID STOPFILE [trigger]\n", stderr);
        return 64;
    }
    auto mode = static_cast<ProcessWatcherMode>(std::strtoul(argv[1], nullptr, 10));
    auto pid = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
    std::string stopFile = argv[3];
    bool trigger = argc > 4 && std::strcmp(argv[4], "trigger") == 0;

    processWatcherStart(onStop, nullptr, mode, pid);
    say("started");
    if (trigger) {
        processWatcherTrigger();
    }
    auto deadline = std::chrono::steady_clock::now() + kGiveUpAfter;
    while (stopFile == "-" ? !fired.load() : !std::filesystem::exists(stopFile)) {
        if (std::chrono::steady_clock::now() > deadline) {
            say("timeout");
            return 3;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    processWatcherStop();
    say("stopped");
    return 0;
}
