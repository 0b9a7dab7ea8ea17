#pragma once

#include <cstdarg>
#include <cstdint>
#include <exception>

#include "util/base/LastError.h"
#include "util/base/LogFormatter.h"
#include "util/base/Str.h"

namespace morvax {

// Root of every exception of the system. The message is formed by the printf engine with a
// saved error value, so that %m in it tells the failure that caused it. Building an exception
// never throws: a failure while formatting leaves the message empty.
class BaseException : public std::exception {
  public:
    // Copies `text`.
    explicit BaseException(const Str& text) noexcept;
    // Formats with the platform's last-error value at the time of the call.
    explicit BaseException(const char* fmt, ...) noexcept;
    // Marks the text that goes before the formatted one.
    struct Prefix {
        const char* text;
    };
    // `prefix` followed by the formatted text, with the current last-error value.
    BaseException(Prefix prefix, const char* fmt, ...) noexcept;
    // The general form: `errorCode` is what %m prints; `prefix` may be null.
    BaseException(uint32_t errorCode, const char* prefix, const char* fmt, va_list args) noexcept;
    BaseException(const BaseException& other) noexcept;
    BaseException& operator=(const BaseException& other) noexcept;
    ~BaseException() override = default;

    // The message, or "BaseException" when it is empty. Never null.
    const char* what() const noexcept override;
    void appendTo(Str& target) const;
    void appendTo(FormatSink& sink) const;
    const Str& message() const noexcept { return message_; }

  protected:
    BaseException() noexcept = default;
    void formatMessage(uint32_t errorCode, const char* prefix, const char* fmt,
                       va_list args) noexcept;

  private:
    Str message_;
};

}  // namespace morvax

// Declares the constructors of a family member that only adds a class name.
#define MORVAX_EXCEPTION_CONSTRUCTORS(Class, Base)                                        \
    explicit Class(const ::morvax::Str& text) noexcept : Base(text) {}                    \
    explicit Class(const char* fmt, ...) noexcept {                                       \
        uint32_t savedError = ::morvax::LastError::get();                                 \
        va_list args;                                                                     \
        va_start(args, fmt);                                                              \
        formatMessage(savedError, nullptr, fmt, args);                                    \
        va_end(args);                                                                     \
    }                                                                                     \
    Class(uint32_t errorCode, const char* prefix, const char* fmt, va_list args) noexcept \
        : Base(errorCode, prefix, fmt, args) {}                                           \
                                                                                          \
  protected:                                                                              \
    /* For a family member of its own, which formats its message itself. */              \
    Class() noexcept = default;                                                           \
                                                                                          \
  public:
