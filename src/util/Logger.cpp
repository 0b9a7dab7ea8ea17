#include "util/Logger.h"

#include <cstdio>
#include <exception>

#include "util/LastError.h"

namespace morvax {

namespace {

class StandardErrorWriter : public LogWriter {
  public:
    void write(const Logger&, int32_t, StrSegment message) override {
        Str line(message);
        line.append("\r\n", 2);
        std::fwrite(line.data(), 1, line.size(), stderr);
        std::fflush(stderr);
    }
};

StandardErrorWriter& standardErrorWriter() {
    static StandardErrorWriter writer;
    return writer;
}

std::atomic<LogWriter*>& currentWriter() {
    static std::atomic<LogWriter*> writer{nullptr};
    return writer;
}

LogWriter& activeWriter() {
    LogWriter* w = currentWriter().load(std::memory_order_acquire);
    return w ? *w : standardErrorWriter();
}

}  // namespace

const char* logLevelName(int32_t level) {
    static const char* const names[] = {"DEBUG", "INFO",  "NOTICE", "WARN", "ERROR",
                                        "CRIT",  "ALERT", "FATAL",  "EMERG"};
    if (level < 0 || level > LOG_EMERG) {
        return "???";
    }
    return names[level];
}

Logger::Logger(const char* name) : name_(name) {}

LogWriter* Logger::setWriter(LogWriter* writer) {
    return currentWriter().exchange(writer, std::memory_order_acq_rel);
}

void Logger::log(int32_t level, StrSegment text) {
    if (!isEnabled(level)) {
        return;
    }
    LastErrorPreserver keep;
    try {
        activeWriter().write(*this, level, text);
    } catch (...) {
        // A log call never brings the process down.
    }
}

void Logger::logV(int32_t level, const char* fmt, va_list args) {
    if (!isEnabled(level)) {
        return;
    }
    LastErrorPreserver keep;
    try {
        Str text;
        text.appendFormatErrorV(keep.saved(), fmt, args);
        activeWriter().write(*this, level, text);
    } catch (...) {
        // A log call never brings the process down.
    }
}

#define MORVAX_LOGGER_LEVEL_CALL(method, level) \
    void Logger::method(const char* fmt, ...) { \
        if (!isEnabled(level)) {                \
            return;                             \
        }                                       \
        va_list args;                           \
        va_start(args, fmt);                    \
        logV(level, fmt, args);                 \
        va_end(args);                           \
    }

MORVAX_LOGGER_LEVEL_CALL(debug, LOG_DEBUG)
MORVAX_LOGGER_LEVEL_CALL(info, LOG_INFO)
MORVAX_LOGGER_LEVEL_CALL(warn, LOG_WARN)
MORVAX_LOGGER_LEVEL_CALL(error, LOG_ERROR)
MORVAX_LOGGER_LEVEL_CALL(fatal, LOG_FATAL)

#undef MORVAX_LOGGER_LEVEL_CALL

}  // namespace morvax
