#include "util/base/BaseException.h"

#include "util/base/LastError.h"

namespace morvax {

BaseException::BaseException(const Str& text) noexcept {
    try {
        message_ = text;
    } catch (...) {
        message_.clear();
    }
}

BaseException::BaseException(const char* fmt, ...) noexcept {
    uint32_t savedError = LastError::get();
    va_list args;
    va_start(args, fmt);
    formatMessage(savedError, nullptr, fmt, args);
    va_end(args);
}

BaseException::BaseException(Prefix prefix, const char* fmt, ...) noexcept {
    uint32_t savedError = LastError::get();
    va_list args;
    va_start(args, fmt);
    formatMessage(savedError, prefix.text, fmt, args);
    va_end(args);
}

BaseException::BaseException(uint32_t errorCode, const char* prefix, const char* fmt,
                             va_list args) noexcept {
    formatMessage(errorCode, prefix, fmt, args);
}

BaseException::BaseException(const BaseException& other) noexcept : std::exception(other) {
    try {
        message_ = other.message_;
    } catch (...) {
        message_.clear();
    }
}

BaseException& BaseException::operator=(const BaseException& other) noexcept {
    if (this != &other) {
        try {
            message_ = other.message_;
        } catch (...) {
            message_.clear();
        }
    }
    return *this;
}

void BaseException::formatMessage(uint32_t errorCode, const char* prefix, const char* fmt,
                                  va_list args) noexcept {
    LastErrorPreserver keep;
    try {
        message_.clear();
        if (prefix) {
            size_t prefixLength = std::strlen(prefix);
            message_.reserve(prefixLength);
            message_.append(prefix, prefixLength);
        }
        message_.appendFormatErrorV(errorCode, fmt, args);
    } catch (...) {
        Str empty;
        message_.swap(empty);
    }
}

const char* BaseException::what() const noexcept {
    return message_.empty() ? "BaseException" : message_.c_str();
}

void BaseException::appendTo(Str& target) const {
    target.append(what());
}

void BaseException::appendTo(FormatSink& sink) const {
    const char* text = what();
    sink.write(text, std::strlen(text));
}

}  // namespace morvax
