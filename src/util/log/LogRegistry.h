#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/log/LogAppender.h"
#include "util/log/LogChannel.h"
#include "util/log/Logger.h"
#include "util/time/Timeval.h"

namespace morvax {

// The one log system of the process, built on first use (so that Loggers in static
// initialisers find it) and never destroyed (so that Loggers destroyed at exit still do).
// Locks are taken in the order registry, channel, appender.
class LogRegistry {
  public:
    static LogRegistry& instance();

    LogRegistry(const LogRegistry&) = delete;
    LogRegistry& operator=(const LogRegistry&) = delete;

    // Lists a new Logger: resolved at once when configured, else pending.
    void add(Logger& logger);
    void remove(Logger& logger);
    // Points every listed Logger at the channel of its name and sets `configured`.
    void resolveLoggers();

    bool configured() const { return configured_.load(std::memory_order_acquire); }
    bool quiet() const { return quiet_.load(std::memory_order_relaxed); }
    void setQuiet(bool quiet) { quiet_.store(quiet, std::memory_order_relaxed); }
    // The origin of %r and %R: the first use of the log system.
    Timeval timeOrigin() const { return timeOrigin_; }

    LogChannel& rootChannel() { return rootChannel_; }
    LogAppender& rootAppender() { return rootAppender_; }
    // The channel of a name; a new one starts as a copy of the root channel.
    LogChannel& channel(StrSegment name);
    // The appender of a name, created when `create` is set; "rootAppender" is the root
    // appender. Null when it does not exist.
    LogAppender* findAppender(StrSegment name, bool create);
    // The named appenders, in name order.
    std::vector<LogAppender*> appenders();

    // Returns the system to its state before any configuration (except that `configured`
    // stays set): channels dropped, appenders flushed and closed, the root appender on
    // standard error with its defaults, the root channel at INFO.
    void reset();
    // Writes out what buffered appenders hold.
    void flushAll();

    LogWriter* writer() const { return writer_.load(std::memory_order_acquire); }
    LogWriter* setWriter(LogWriter* writer) {
        return writer_.exchange(writer, std::memory_order_acq_rel);
    }

    // "LEVEL - text" and CR LF on standard error in one write, unless quiet.
    static void emergencyWrite(int32_t level, StrSegment text);
    // How the log system speaks of itself, on the Logger "Logger": to the appenders of its
    // channel except `excluded` (the one that failed), else by emergencyWrite.
    static void report(const LogAppender* excluded, int32_t level, const char* fmt, ...);

    Logger& reportLogger() { return reportLogger_; }

    // Serialises configuration loads.
    std::recursive_mutex& configurationLock() { return configurationLock_; }

  private:
    LogRegistry();

    std::recursive_mutex lock_;
    std::recursive_mutex configurationLock_;
    Logger* pendingLoggers_ = nullptr;
    Logger* resolvedLoggers_ = nullptr;
    std::atomic<bool> configured_{false};
    std::atomic<bool> quiet_{false};
    Timeval timeOrigin_;
    LogChannel rootChannel_;
    LogAppender rootAppender_;
    std::map<Str, std::unique_ptr<LogChannel>> channels_;
    std::map<Str, std::unique_ptr<LogAppender>> appenders_;
    // A thread may still be inside a log call through a pointer it read before a reload, so
    // what a reload drops is kept (closed) until the process ends.
    std::vector<std::unique_ptr<LogChannel>> retiredChannels_;
    std::vector<std::unique_ptr<LogAppender>> retiredAppenders_;
    std::atomic<LogWriter*> writer_{nullptr};
    // Last, since listing it uses the members above.
    // "Logger", the source of the log system's reports. A member, so that the first report
    // need not construct it under another thread's channel lock.
    Logger reportLogger_;
};

}  // namespace morvax
