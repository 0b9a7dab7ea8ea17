#pragma once

#include "util/base/BaseException.h"
#include "util/log/Logger.h"

namespace morvax {

// An exception that also tells the level at which a catcher should log it.
class LogBaseException : public BaseException {
  public:
    LogBaseException(int32_t level, const Str& text) noexcept
        : BaseException(text), level_(level) {}
    LogBaseException(int32_t level, const char* fmt, ...) noexcept : level_(level) {
        uint32_t savedError = LastError::get();
        va_list args;
        va_start(args, fmt);
        formatMessage(savedError, nullptr, fmt, args);
        va_end(args);
    }
    int32_t level() const noexcept { return level_; }

  private:
    int32_t level_;
};

}  // namespace morvax
