#pragma once

// Header only: the support library sits below the log layer, and only the tests that include
// this header link the logger.

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "util/base/LogLevel.h"
#include "util/log/Logger.h"

namespace morvax::test {

// One message as the writer hook saw it.
struct LoggedLine {
    std::string logger;
    int32_t level;
    std::string text;
};

// Takes every message instead of the appenders while it lives; safe from any thread.
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
    // The texts of one logger's messages, or of all with an empty name.
    std::vector<std::string> texts(const std::string& logger = std::string()) const {
        std::vector<std::string> result;
        for (const LoggedLine& line : lines()) {
            if (logger.empty() || line.logger == logger) {
                result.push_back(line.text);
            }
        }
        return result;
    }
    // "<logger> <LEVEL> <text>" of every message, or of one logger's.
    std::vector<std::string> formatted(const std::string& logger = std::string()) const {
        std::vector<std::string> result;
        for (const LoggedLine& line : lines()) {
            if (logger.empty() || line.logger == logger) {
                result.push_back(line.logger + " " + logLevelName(line.level) + " " + line.text);
            }
        }
        return result;
    }
    std::vector<std::string> of(const std::string& logger) const { return formatted(logger); }
    size_t count(int32_t level, const std::string& text) const {
        const std::vector<LoggedLine> all = lines();
        return static_cast<size_t>(std::count_if(all.begin(), all.end(), [&](const LoggedLine& l) {
            return l.level == level && l.text == text;
        }));
    }
    bool has(int32_t level, const std::string& text) const { return count(level, text) > 0; }
    // Whether any message, as formatted(), holds `part`.
    bool contains(const std::string& part) const {
        const std::vector<std::string> all = formatted();
        return std::any_of(all.begin(), all.end(), [&](const std::string& text) {
            return text.find(part) != std::string::npos;
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

}  // namespace morvax::test
