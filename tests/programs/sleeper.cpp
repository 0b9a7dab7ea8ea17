// A process that tests can watch end: it exits 0 after the given number of milliseconds, or
// sooner once the file named second exists. Arguments: MILLISECONDS [FILE]. Its first line on
// standard output is its pid, as the system names it (a Windows pid under Wine).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "support/ChildProcess.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("usage: test_sleeper MILLISECONDS [FILE]\n", stderr);
        return 64;
    }
    std::printf("%u\n", static_cast<unsigned>(morvax::test::ChildProcess::currentPid()));
    std::fflush(stdout);
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(std::strtoull(argv[1], nullptr, 10));
    while (std::chrono::steady_clock::now() < deadline) {
        if (argc > 2 && std::filesystem::exists(argv[2])) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 0;
}
