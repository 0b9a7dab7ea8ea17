#pragma once

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "util/base/LogLevel.h"
#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/log/LogChannel.h"
#include "util/log/LogStream.h"
#include "util/time/Timeval.h"

namespace morvax {

class Logger;
class LogFormatCallback;
class LogRegistry;
class LogSuppressor;

// Test hook: receives every finished message instead of the appenders.
class LogWriter {
  public:
    virtual ~LogWriter() = default;
    virtual void write(const Logger& logger, int32_t level, StrSegment message) = 0;
};

// A named log source, normally a static object of its module. Usable from static initialisers
// on, before any configuration exists. A log call never changes the caller's last-error value
// and never throws; when its level is off it costs a pointer read and a compare.
class Logger {
  public:
    // `name` is not copied: it must outlive the object (a literal, in practice).
    explicit Logger(const char* name);
    // With `suppress`, a format that repeats more than `maxRepeats` times is held back and
    // summarised by the first call on this Logger once `intervalSeconds` have passed.
    Logger(const char* name, bool suppress, uint32_t intervalSeconds, uint32_t maxRepeats);
    virtual ~Logger();
    // Whether control characters in messages are escaped before they reach a file.
    virtual bool escapesMessages() const { return true; }
    // Whether messages beyond the appender's maxMessageSize are shortened.
    virtual bool truncatesMessages() const { return true; }

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    const char* name() const { return name_; }
    size_t nameLength() const { return nameLength_; }
    bool isEnabled(int32_t level) const { return level >= channel()->level(); }
    bool isDebugEnabled() const { return isEnabled(LOG_DEBUG); }

    void debug(const char* fmt, ...);
    void info(const char* fmt, ...);
    void warn(const char* fmt, ...);
    void error(const char* fmt, ...);
    void fatal(const char* fmt, ...);
    // Text already built; it is not a format.
    void debug(StrSegment text) { log(LOG_DEBUG, text); }
    void info(StrSegment text) { log(LOG_INFO, text); }
    void warn(StrSegment text) { log(LOG_WARN, text); }
    void error(StrSegment text) { log(LOG_ERROR, text); }
    void fatal(StrSegment text) { log(LOG_FATAL, text); }
    // `callback` runs around the formatting, to add context to the text.
    void debug(LogFormatCallback& callback, const char* fmt, ...);
    void info(LogFormatCallback& callback, const char* fmt, ...);
    void warn(LogFormatCallback& callback, const char* fmt, ...);
    void error(LogFormatCallback& callback, const char* fmt, ...);
    void fatal(LogFormatCallback& callback, const char* fmt, ...);

    // Any level, NOTICE, CRIT, ALERT and EMERG among them.
    void log(int32_t level, StrSegment text);
    void logFormat(int32_t level, const char* fmt, ...);
    void logV(int32_t level, const char* fmt, va_list args);
    void logV(int32_t level, LogFormatCallback* callback, const char* fmt, va_list args);

    // A handle that collects text with << and logs it once, when it goes at the end of the
    // statement. Null (and nothing is built) when the level is off.
    LogStream debugStream() { return stream(LOG_DEBUG); }
    LogStream infoStream() { return stream(LOG_INFO); }
    LogStream warnStream() { return stream(LOG_WARN); }
    LogStream errorStream() { return stream(LOG_ERROR); }
    LogStream fatalStream() { return stream(LOG_FATAL); }
    LogStream stream(int32_t level);

    // The channel that decides this Logger's level and appenders; never null.
    LogChannel* channel() const { return channel_.load(std::memory_order_acquire); }

    // Replaces the appenders of every Logger by `writer`; null restores them. Returns the old
    // writer.
    static LogWriter* setWriter(LogWriter* writer);

  private:
    friend class LogRegistry;
    friend class LogStream;
    friend class LogSuppressor;

    // The registry's own Logger, built inside the registry's construction.
    Logger(const char* name, LogRegistry& registry);

    // Whether this Logger may use the log system: once configured, or while it is listed.
    bool mayUseLogSystem() const;
    // Formats and dispatches; the caller checked the level and saves the last error.
    void formatAndWrite(int32_t level, uint32_t savedError, LogFormatCallback* callback,
                        const char* fmt, va_list args);
    // Hands a finished text to the writer hook or the channel's appenders.
    void dispatch(int32_t level, Timeval time, StrSegment text);

    const char* name_;
    size_t nameLength_;
    std::atomic<LogChannel*> channel_;
    // Link in the registry's list, under its lock.
    Logger* next_ = nullptr;
    std::unique_ptr<LogSuppressor> suppressor_;
    // Which of the registry's lists holds this Logger.
    std::atomic<uint8_t> list_{0};
};

}  // namespace morvax
