#include "util/log/LogStream.h"

#include <cstdio>

#include "util/base/LastError.h"
#include "util/log/Logger.h"
#include "util/thread/Thread.h"

namespace morvax {

LogStream::LogStream(Logger& logger, int32_t level) noexcept
    : logger_(&logger), level_(level), savedError_(LastError::get()) {
    text_ = Thread::acquireLogBuffer(&logger);
    if (text_ != nullptr) {
        threadBuffer_ = true;
        text_->clear();
    } else {
        text_ = &local_;
    }
}

LogStream::LogStream(LogStream&& other) noexcept
    : logger_(other.logger_),
      level_(other.level_),
      savedError_(other.savedError_),
      threadBuffer_(other.threadBuffer_) {
    if (other.text_ == &other.local_) {
        local_.swap(other.local_);
        text_ = &local_;
    } else {
        text_ = other.text_;
    }
    other.text_ = nullptr;
    other.logger_ = nullptr;
    other.threadBuffer_ = false;
}

LogStream::~LogStream() {
    if (text_ == nullptr) {
        return;
    }
    LastError::set(savedError_);
    logger_->log(level_, text_->segment());
    if (threadBuffer_) {
        Thread::releaseLogBuffer(logger_);
    }
    LastError::set(savedError_);
}

LogStream& LogStream::operator<<(StrSegment text) {
    if (text_ != nullptr) {
        try {
            text_->append(text);
        } catch (...) {
            // Building a log line must not throw into the caller; the line stays short.
        }
    }
    return *this;
}

LogStream& LogStream::operator<<(char c) {
    return *this << StrSegment(&c, 1);
}

LogStream& LogStream::operator<<(long long value) {
    char digits[32];
    int length = std::snprintf(digits, sizeof digits, "%lld", value);
    return *this << StrSegment(digits, static_cast<size_t>(length));
}

LogStream& LogStream::operator<<(unsigned long long value) {
    char digits[32];
    int length = std::snprintf(digits, sizeof digits, "%llu", value);
    return *this << StrSegment(digits, static_cast<size_t>(length));
}

LogStream& LogStream::operator<<(double value) {
    char digits[64];
    int length = std::snprintf(digits, sizeof digits, "%g", value);
    return *this << StrSegment(digits, static_cast<size_t>(length));
}

LogStream& LogStream::operator<<(const void* pointer) {
    if (text_ != nullptr) {
        try {
            text_->appendFormat("%p", pointer);
        } catch (...) {
            // As above.
        }
    }
    return *this;
}

}  // namespace morvax
