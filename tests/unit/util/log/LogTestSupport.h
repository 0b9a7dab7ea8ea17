#pragma once

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "util/base/Str.h"
#include "util/io/FileHandle.h"
#include "util/io/Pathname.h"
#include "util/log/LogConfiguration.h"
#include "util/log/Logger.h"

namespace morvax::test {

// One message as the writer hook saw it.
struct LoggedLine {
    std::string logger;
    int32_t level;
    std::string text;
};

// Takes every message instead of the appenders while it lives.
class LogCapture : public LogWriter {
  public:
    LogCapture() : previous_(Logger::setWriter(this)) {}
    ~LogCapture() override { Logger::setWriter(previous_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void write(const Logger& logger, int32_t level, StrSegment message) override {
        std::lock_guard<std::mutex> hold(lock_);
        lines_.push_back({logger.name(), level, std::string(message.view())});
    }

    std::vector<LoggedLine> lines() const {
        std::lock_guard<std::mutex> hold(lock_);
        return lines_;
    }
    // The texts of one logger's messages.
    std::vector<std::string> texts(const std::string& logger) const {
        std::vector<std::string> result;
        for (const LoggedLine& line : lines()) {
            if (line.logger == logger) {
                result.push_back(line.text);
            }
        }
        return result;
    }
    bool has(int32_t level, const std::string& text) const {
        std::vector<LoggedLine> all = lines();
        return std::any_of(all.begin(), all.end(), [&](const LoggedLine& line) {
            return line.level == level && line.text == text;
        });
    }
    void clear() {
        std::lock_guard<std::mutex> hold(lock_);
        lines_.clear();
    }

  private:
    LogWriter* previous_;
    mutable std::mutex lock_;
    std::vector<LoggedLine> lines_;
};

// A fresh directory below the system's temporary directory, removed afterwards.
class TempDirectory {
  public:
    explicit TempDirectory(const std::string& name);
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    // The directory, and a path below it given with '/' separators, in the native form.
    const std::string& text() const { return text_; }
    std::string path(const std::string& relative) const;
    Pathname pathname(const std::string& relative) const;

  private:
    std::filesystem::path root_;
    std::string text_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);
bool fileExists(const std::string& path);
void makeDirectories(const std::string& path);

// Puts the log system back to its state before any configuration when it goes.
class LogReset {
  public:
    LogReset() = default;
    ~LogReset() { LogConfiguration::reset(); }
    LogReset(const LogReset&) = delete;
    LogReset& operator=(const LogReset&) = delete;
};

// Sends the process's standard error into a file while it lives.
class StandardErrorCapture {
  public:
    explicit StandardErrorCapture(const std::string& path);
    ~StandardErrorCapture();
    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    // Restores standard error and returns what was written meanwhile.
    std::string finish();

  private:
    // Platform parts.
    void redirect();
    void restore();

    std::string path_;
    FileHandle::Native saved_ = FileHandle::INVALID;
    bool active_ = false;
};

}  // namespace morvax::test
