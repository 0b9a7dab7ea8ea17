#include "util/log/LogChannel.h"

#include <array>

#include "util/log/LogAppender.h"
#include "util/log/LogRegistry.h"

namespace morvax {

namespace {

// Appenders beyond the first are copied out so that they are written without the channel's
// lock; a channel with more than this many keeps the lock for the rest.
constexpr size_t kUnlockedAppenders = 8;

}  // namespace

void LogChannel::setLevel(int32_t level) {
    level_.store(level, std::memory_order_relaxed);
    levelSet_.store(true, std::memory_order_relaxed);
}

std::vector<LogAppender*> LogChannel::appenders() const {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    return appenders_;
}

void LogChannel::setAppenders(std::vector<LogAppender*> appenders) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    appenders_ = std::move(appenders);
}

void LogChannel::addFilter(LogFilter* filter) {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    filters_.push_back(filter);
}

void LogChannel::copyFrom(const LogChannel& other) {
    std::vector<LogAppender*> appenders = other.appenders();
    std::lock_guard<std::recursive_mutex> hold(lock_);
    level_.store(other.level(), std::memory_order_relaxed);
    levelSet_.store(other.levelSet(), std::memory_order_relaxed);
    buffered_.store(other.buffered(), std::memory_order_relaxed);
    appenders_ = std::move(appenders);
}

void LogChannel::reset() {
    std::lock_guard<std::recursive_mutex> hold(lock_);
    level_.store(1, std::memory_order_relaxed);
    levelSet_.store(false, std::memory_order_relaxed);
    buffered_.store(false, std::memory_order_relaxed);
    appenders_.clear();
    filters_.clear();
}

void LogChannel::dispatch(const LogRecord& record, LogMessage& message) {
    bool buffered = this->buffered();
    std::array<LogAppender*, kUnlockedAppenders> rest;
    size_t restCount = 0;
    {
        std::unique_lock<std::recursive_mutex> hold(lock_);
        if (appenders_.empty()) {
            hold.unlock();
            LogRegistry::instance().rootAppender().append(record, message, buffered, nullptr);
            return;
        }
        appenders_[0]->append(record, message, buffered, &filters_);
        size_t i = 1;
        for (; i < appenders_.size() && restCount < rest.size(); ++i) {
            rest[restCount++] = appenders_[i];
        }
        for (; i < appenders_.size(); ++i) {
            appenders_[i]->append(record, message, buffered, nullptr);
        }
    }
    for (size_t i = 0; i < restCount; ++i) {
        rest[i]->append(record, message, buffered, nullptr);
    }
}

}  // namespace morvax
