#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

namespace morvax {

class LogAppender;
class LogFilter;
class LogMessage;
struct LogRecord;

// The settings shared by the Loggers of one name: a level and the appenders that take their
// lines. The first appender is written under the channel's lock, with the channel's filters.
class LogChannel {
  public:
    LogChannel() = default;
    LogChannel(const LogChannel&) = delete;
    LogChannel& operator=(const LogChannel&) = delete;

    int32_t level() const { return level_.load(std::memory_order_relaxed); }
    // Also marks the level as set by the configuration.
    void setLevel(int32_t level);
    bool levelSet() const { return levelSet_.load(std::memory_order_relaxed); }
    bool buffered() const { return buffered_.load(std::memory_order_relaxed); }
    void setBuffered(bool buffered) { buffered_.store(buffered, std::memory_order_relaxed); }

    std::vector<LogAppender*> appenders() const;
    void setAppenders(std::vector<LogAppender*> appenders);
    // Filters are not owned and must outlive the channel's use.
    void addFilter(LogFilter* filter);

    // Level, flags and appender list of `other`, as a new named channel starts.
    void copyFrom(const LogChannel& other);
    // Level INFO, no flags, no appenders, no filters.
    void reset();

    // Writes a record to every appender, or to the root appender when there is none.
    void dispatch(const LogRecord& record, LogMessage& message);

  private:
    std::atomic<int32_t> level_{1};
    std::atomic<bool> levelSet_{false};
    std::atomic<bool> buffered_{false};
    std::vector<LogAppender*> appenders_;
    std::vector<LogFilter*> filters_;
    // Recursive: a module that logs from inside an appender's file work may reach its own
    // channel again.
    mutable std::recursive_mutex lock_;
};

}  // namespace morvax
