#pragma once

#include <cstdint>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"

namespace morvax {

class Logger;

// The handle of a stream-style log call. It collects text, in the calling thread's log buffer
// when that is free, and logs it exactly once when it goes. A null handle (the level is off)
// ignores everything, so `if (auto s = logger.debugStream()) s << expensive();` skips the work.
class LogStream {
  public:
    LogStream() noexcept = default;
    LogStream(Logger& logger, int32_t level) noexcept;
    LogStream(LogStream&& other) noexcept;
    LogStream& operator=(LogStream&&) = delete;
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;
    ~LogStream();

    explicit operator bool() const { return text_ != nullptr; }
    // The text built so far; null for a null handle.
    Str* text() const { return text_; }

    LogStream& operator<<(StrSegment text);
    LogStream& operator<<(const char* text) { return *this << StrSegment(text); }
    LogStream& operator<<(const Str& text) { return *this << text.segment(); }
    LogStream& operator<<(char c);
    LogStream& operator<<(bool value) { return *this << (value ? "true" : "false"); }
    LogStream& operator<<(int value) { return *this << static_cast<long long>(value); }
    LogStream& operator<<(long value) { return *this << static_cast<long long>(value); }
    LogStream& operator<<(long long value);
    LogStream& operator<<(unsigned value) {
        return *this << static_cast<unsigned long long>(value);
    }
    LogStream& operator<<(unsigned long value) {
        return *this << static_cast<unsigned long long>(value);
    }
    LogStream& operator<<(unsigned long long value);
    LogStream& operator<<(double value);
    LogStream& operator<<(const void* pointer);

  private:
    Logger* logger_ = nullptr;
    int32_t level_ = 0;
    Str* text_ = nullptr;
    // Restored when the handle goes, since building the text may touch it.
    uint32_t savedError_ = 0;
    // The text lives in the thread's log buffer rather than in local_.
    bool threadBuffer_ = false;
    Str local_;
};

}  // namespace morvax
