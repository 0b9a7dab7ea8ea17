#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "util/Str.h"
#include "util/StrSegment.h"

namespace morvax {

enum LogLevel : int32_t {
    LOG_DEBUG = 0,
    LOG_INFO = 1,
    LOG_NOTICE = 2,
    LOG_WARN = 3,
    LOG_ERROR = 4,
    LOG_CRIT = 5,
    LOG_ALERT = 6,
    LOG_FATAL = 7,
    LOG_EMERG = 8,
};

// "DEBUG" ... "EMERG"; "???" outside the table.
const char* logLevelName(int32_t level);

class Logger;

// Receives finished log lines. Until a log configuration exists, the root writer puts the bare
// message and CR LF on standard error.
class LogWriter {
  public:
    virtual ~LogWriter() = default;
    virtual void write(const Logger& logger, int32_t level, StrSegment message) = 0;
};

// A named log source, normally a static object of its module. Usable from static initialisers
// on; a log call never changes the caller's last-error value and never throws.
class Logger {
  public:
    explicit Logger(const char* name);
    virtual ~Logger() = default;
    virtual bool escapesMessages() const { return true; }
    virtual bool truncatesMessages() const { return true; }

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    const char* name() const { return name_; }
    bool isEnabled(int32_t level) const { return level >= level_.load(std::memory_order_relaxed); }
    bool isDebugEnabled() const { return isEnabled(LOG_DEBUG); }
    void setLevel(int32_t level) { level_.store(level, std::memory_order_relaxed); }

    void debug(const char* fmt, ...);
    void info(const char* fmt, ...);
    void warn(const char* fmt, ...);
    void error(const char* fmt, ...);
    void fatal(const char* fmt, ...);
    // Text already built.
    void log(int32_t level, StrSegment text);
    void logV(int32_t level, const char* fmt, va_list args);

    // The writer of every logger; null restores the standard-error writer. Returns the old one.
    static LogWriter* setWriter(LogWriter* writer);

  private:
    const char* name_;
    std::atomic<int32_t> level_{LOG_INFO};
};

}  // namespace morvax
