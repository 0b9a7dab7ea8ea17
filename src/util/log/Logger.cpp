#include "util/log/Logger.h"

#include <cstring>
#include <exception>

#include "util/base/LastError.h"
#include "util/log/LogFormatCallback.h"
#include "util/log/LogMessage.h"
#include "util/log/LogRecord.h"
#include "util/log/LogRegistry.h"
#include "util/log/LogSuppressor.h"
#include "util/thread/Thread.h"

namespace morvax {

namespace {

// Lends the calling thread's log buffer for one message, or a local Str when the thread has no
// buffer or it is already in use further up the stack.
class MessageBuffer {
  public:
    explicit MessageBuffer(const void* owner)
        : owner_(owner), buffer_(Thread::acquireLogBuffer(owner)) {
        if (buffer_ != nullptr) {
            buffer_->clear();
        }
    }
    ~MessageBuffer() {
        if (buffer_ != nullptr) {
            Thread::releaseLogBuffer(owner_);
        }
    }
    MessageBuffer(const MessageBuffer&) = delete;
    MessageBuffer& operator=(const MessageBuffer&) = delete;

    Str& text() { return buffer_ != nullptr ? *buffer_ : local_; }

  private:
    const void* owner_;
    Str* buffer_;
    Str local_;
};

void formatInto(Str& text, uint32_t savedError, LogFormatCallback* callback, const char* fmt,
                va_list args) {
    if (callback != nullptr) {
        callback->onBegin(text, fmt);
    }
    text.appendFormatErrorV(savedError, fmt, args);
    if (callback != nullptr) {
        callback->onEnd(text);
    }
}

// The direct path for a Logger that may not use the log system, and the last resort when
// formatting or dispatch threw.
void writeDirect(int32_t level, uint32_t savedError, const char* fmt, va_list args) {
    try {
        Str text;
        text.appendFormatErrorV(savedError, fmt, args);
        LogRegistry::emergencyWrite(level, text);
    } catch (...) {
        LogRegistry::emergencyWrite(level, StrSegment(fmt));
    }
}

}  // namespace

Logger::Logger(const char* name)
    : name_(name),
      nameLength_(name != nullptr ? std::strlen(name) : 0),
      channel_(&LogRegistry::instance().rootChannel()) {
    LogRegistry::instance().add(*this);
}

Logger::Logger(const char* name, LogRegistry& registry)
    : name_(name), nameLength_(std::strlen(name)), channel_(&registry.rootChannel()) {
    registry.add(*this);
}

Logger::Logger(const char* name, bool suppress, uint32_t intervalSeconds, uint32_t maxRepeats)
    : Logger(name) {
    if (suppress) {
        suppressor_ = std::make_unique<LogSuppressor>(*this, intervalSeconds, maxRepeats);
    }
}

Logger::~Logger() {
    LogRegistry::instance().remove(*this);
}

LogWriter* Logger::setWriter(LogWriter* writer) {
    return LogRegistry::instance().setWriter(writer);
}

bool Logger::mayUseLogSystem() const {
    return LogRegistry::instance().configured() || list_.load(std::memory_order_acquire) != 0;
}

void Logger::dispatch(int32_t level, Timeval time, StrSegment text) {
    LogRegistry& registry = LogRegistry::instance();
    if (LogWriter* writer = registry.writer()) {
        writer->write(*this, level, text);
        return;
    }
    LogRecord record;
    record.time = time;
    record.logger = this;
    record.level = level;
    LogMessage message(text, !escapesMessages());
    channel()->dispatch(record, message);
}

void Logger::formatAndWrite(int32_t level, uint32_t savedError, LogFormatCallback* callback,
                            const char* fmt, va_list args) {
    if (!mayUseLogSystem()) {
        writeDirect(level, savedError, fmt, args);
        return;
    }
    Timeval time = Timeval::now();
    if (suppressor_) {
        Str text;
        formatInto(text, savedError, callback, fmt, args);
        suppressor_->log(level, time, StrSegment(fmt), text);
        return;
    }
    MessageBuffer buffer(this);
    formatInto(buffer.text(), savedError, callback, fmt, args);
    dispatch(level, time, buffer.text());
}

void Logger::logV(int32_t level, LogFormatCallback* callback, const char* fmt, va_list args) {
    if (level < channel()->level()) {
        return;
    }
    LastErrorPreserver keep;
    va_list copy;
    va_copy(copy, args);
    try {
        formatAndWrite(level, keep.saved(), callback, fmt, args);
    } catch (...) {
        // A log call never brings the process down: the line goes out by the plainest road.
        writeDirect(level, keep.saved(), fmt, copy);
    }
    va_end(copy);
}

void Logger::logV(int32_t level, const char* fmt, va_list args) {
    logV(level, nullptr, fmt, args);
}

void Logger::logFormat(int32_t level, const char* fmt, ...) {
    if (level < channel()->level()) {
        return;
    }
    va_list args;
    va_start(args, fmt);
    logV(level, nullptr, fmt, args);
    va_end(args);
}

void Logger::log(int32_t level, StrSegment text) {
    if (level < channel()->level()) {
        return;
    }
    LastErrorPreserver keep;
    try {
        if (!mayUseLogSystem()) {
            LogRegistry::emergencyWrite(level, text);
        } else if (suppressor_) {
            // Text without a format counts by itself.
            suppressor_->log(level, Timeval::now(), text, text);
        } else {
            dispatch(level, Timeval::now(), text);
        }
    } catch (...) {
        LogRegistry::emergencyWrite(level, text);
    }
}

LogStream Logger::stream(int32_t level) {
    if (level < channel()->level()) {
        return LogStream();
    }
    return LogStream(*this, level);
}

#define MORVAX_LOGGER_LEVEL_CALL(method, LEVEL)                              \
    void Logger::method(const char* fmt, ...) {                              \
        if ((LEVEL) < channel()->level()) {                                  \
            return;                                                          \
        }                                                                    \
        va_list args;                                                        \
        va_start(args, fmt);                                                 \
        logV(LEVEL, nullptr, fmt, args);                                     \
        va_end(args);                                                        \
    }                                                                        \
    void Logger::method(LogFormatCallback& callback, const char* fmt, ...) { \
        if ((LEVEL) < channel()->level()) {                                  \
            return;                                                          \
        }                                                                    \
        va_list args;                                                        \
        va_start(args, fmt);                                                 \
        logV(LEVEL, &callback, fmt, args);                                   \
        va_end(args);                                                        \
    }

MORVAX_LOGGER_LEVEL_CALL(debug, LOG_DEBUG)
MORVAX_LOGGER_LEVEL_CALL(info, LOG_INFO)
MORVAX_LOGGER_LEVEL_CALL(warn, LOG_WARN)
MORVAX_LOGGER_LEVEL_CALL(error, LOG_ERROR)
MORVAX_LOGGER_LEVEL_CALL(fatal, LOG_FATAL)

#undef MORVAX_LOGGER_LEVEL_CALL

}  // namespace morvax
