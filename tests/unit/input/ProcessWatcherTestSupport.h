#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "input/ProcessWatcher.h"
#include "support/ChildProcess.h"
#include "support/Environment.h"
#include "support/WaitUntil.h"

namespace morvax::test {

// What the sleepers wait at most: longer than any test, so that a test ends them itself.
inline const std::string kSleeperMs = "120000";

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

inline size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// Counts the calls of the stop callback and checks the argument that comes with them.
struct CallbackCounter {
    static void onStop(void* argument) { static_cast<CallbackCounter*>(argument)->calls++; }
    std::atomic<int> calls{0};
};

// A fresh directory for the output files of the children, and helpers to start them.
class ProcessWatcherTest : public ::testing::Test {
  protected:
    void SetUp() override {
        static int serial = 0;
        auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        directory_ = std::filesystem::temp_directory_path() /
                     ("morvax-watcher-" + std::to_string(stamp) + "-" + std::to_string(++serial));
        std::filesystem::create_directories(directory_);
    }
    void TearDown() override {
        // Never leave a running watcher to the next test.
        processWatcherStop();
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }

    std::string path(const std::string& name) const { return (directory_ / name).string(); }

    std::unique_ptr<ChildProcess> startSleeper() {
        auto sleeper = std::make_unique<ChildProcess>(
            testProgramPath("sleeper"), std::vector<std::string>{kSleeperMs},
            ChildOutput{path("sleeper" + std::to_string(++sleepers_) + ".out"), ""});
        EXPECT_TRUE(sleeper->started());
        return sleeper;
    }

    // A sleeper that has ended and been released: its pid names no process.
    uint32_t gonePid() {
        auto sleeper = startSleeper();
        sleeper->terminate();
        EXPECT_TRUE(sleeper->waitForExit(kWaitLimitMs));
        sleeper->release();
        return sleeper->pid();
    }

    // The probe: watcher mode, pid, and the file that makes it stop ("-": stop after the
    // callback). Its output goes to probe.out.
    std::unique_ptr<ChildProcess> startProbe(ProcessWatcherMode mode, uint32_t pid,
                                             const std::string& stopFile, bool trigger = false) {
        std::vector<std::string> arguments = {std::to_string(static_cast<uint32_t>(mode)),
                                              std::to_string(pid), stopFile};
        if (trigger) {
            arguments.push_back("trigger");
        }
        auto probe = std::make_unique<ChildProcess>(testProgramPath("input_watcher_probe"),
                                                    arguments, ChildOutput{path("probe.out"), ""});
        EXPECT_TRUE(probe->started());
        return probe;
    }

    std::string probeOutput() const { return readFile(directory_ / "probe.out"); }

    bool waitForProbeOutput(const std::string& text) const {
        return waitUntil([&] { return probeOutput().find(text) != std::string::npos; });
    }

    void createFile(const std::string& name) const { std::ofstream(directory_ / name) << "x"; }

  private:
    std::filesystem::path directory_;
    int sleepers_ = 0;
};

// The parent watch: MORVAXD_PROCESSID is inherited by the probe.
class ParentWatchTest : public ProcessWatcherTest {
  protected:
    void TearDown() override {
        setEnvironment("MORVAXD_PROCESSID", nullptr);
        ProcessWatcherTest::TearDown();
    }

    // Runs the probe in parent mode with the variable set to `value` until it ends.
    int probeStatusFor(const std::string& value) {
        setEnvironment("MORVAXD_PROCESSID", value.c_str());
        auto probe = startProbe(WATCH_PARENT_ENV, 0, path("never"));
        EXPECT_TRUE(probe->waitForExit(kWaitLimitMs)) << value;
        return probe->exitStatus();
    }
};

}  // namespace morvax::test
