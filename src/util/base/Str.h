#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "util/base/CharSet.h"
#include "util/base/StrSegment.h"

namespace morvax {

// The wide (UTF-16) string used toward the platform and inside Pathname.
using WStr = std::u16string;

// The byte string of the whole system, UTF-8 by convention (nothing enforces it).
// Small-buffer form: 15 bytes inline; a NUL is always kept behind the last byte.
class Str {
  public:
    static constexpr size_t npos = static_cast<size_t>(-1);
    static constexpr size_t kInlineCapacity = 15;

    Str() noexcept { inline_[0] = '\0'; }
    Str(const char* cstring);
    Str(const char* bytes, size_t length);
    Str(StrSegment segment) : Str(segment.data(), segment.size()) {}
    Str(std::string_view view) : Str(view.data(), view.size()) {}
    Str(const Str& other) : Str(other.data(), other.size()) {}
    Str(Str&& other) noexcept;
    ~Str();

    Str& operator=(const Str& other);
    Str& operator=(Str&& other) noexcept;
    Str& operator=(const char* cstring) {
        return assign(cstring, cstring ? std::char_traits<char>::length(cstring) : 0);
    }
    Str& operator=(StrSegment segment) { return assign(segment.data(), segment.size()); }

    Str& assign(const char* bytes, size_t length);

    const char* c_str() const { return data_; }
    const char* data() const { return data_; }
    char* data() { return data_; }
    size_t size() const { return length_; }
    size_t length() const { return length_; }
    size_t capacity() const { return capacity_; }
    bool empty() const { return length_ == 0; }
    char operator[](size_t i) const { return data_[i]; }
    char& operator[](size_t i) { return data_[i]; }
    const char* begin() const { return data_; }
    const char* end() const { return data_ + length_; }
    char back() const { return data_[length_ - 1]; }

    StrSegment segment() const { return StrSegment(data_, length_); }
    std::string_view view() const { return std::string_view(data_, length_); }
    operator StrSegment() const { return segment(); }
    std::string toStdString() const { return std::string(data_, length_); }

    // Grows the capacity to at least `capacity` bytes (plus the NUL).
    void reserve(size_t capacity);
    // New bytes are zero.
    void resize(size_t length);
    void clear();
    void swap(Str& other) noexcept;

    Str& append(const char* bytes, size_t length);
    Str& append(const char* cstring);
    Str& append(StrSegment segment) { return append(segment.data(), segment.size()); }
    Str& append(const Str& other) { return append(other.data(), other.size()); }
    Str& append(char c);
    Str& append(size_t count, char c);
    Str& operator+=(const char* cstring) { return append(cstring); }
    Str& operator+=(StrSegment segment) { return append(segment); }
    Str& operator+=(const Str& other) { return append(other); }
    Str& operator+=(char c) { return append(c); }

    // Appends the UTF-8 form of wide text. Invalid UTF-16 (a lone surrogate) becomes U+FFFD.
    // The platform's last-error value is left as it was.
    Str& appendWide(const char16_t* wide, size_t length);
    // Measures up to the terminator.
    Str& appendWide(const char16_t* wide);
    Str& appendWide(const WStr& wide) { return appendWide(wide.data(), wide.size()); }
    // Appends the UTF-16 form of UTF-8 bytes to `target`. Invalid UTF-8 becomes U+FFFD.
    static void appendToWide(WStr& target, const char* bytes, size_t length);

    static Str fromWide(const char16_t* wide, size_t length);
    static Str fromWide(const WStr& wide) { return fromWide(wide.data(), wide.size()); }
    static WStr toWide(StrSegment text);
    WStr toWide() const { return toWide(segment()); }

    // The printf engine (LogFormatter). `%m` uses the platform's last error at the moment the
    // engine meets it; the *Error forms take a saved error value instead.
    Str& format(const char* fmt, ...);
    Str& appendFormat(const char* fmt, ...);
    Str& appendFormatV(const char* fmt, va_list args);
    Str& appendFormatError(uint32_t savedError, const char* fmt, ...);
    Str& appendFormatErrorV(uint32_t savedError, const char* fmt, va_list args);
    static Str printf(const char* fmt, ...);

    // A new Str of both parts, allocated once.
    static Str concat(const char* a, size_t aLength, const char* b, size_t bLength);
    static Str concat(const char* cstring, const char* b, size_t bLength);

    // First position of `needle` at or after `from`, or npos. An empty needle gives `from`
    // when `from` lies inside the text.
    static size_t find(const char* text, size_t textLength, const char* needle, size_t from,
                       size_t needleLength);
    size_t find(StrSegment needle, size_t from = 0) const {
        return find(data_, length_, needle.data(), from, needle.size());
    }
    size_t find(char c, size_t from = 0) const;
    size_t rfind(char c) const;

    // Returns the number of replacements; an empty needle replaces nothing.
    size_t replaceAll(const char* needle, size_t needleLength, const char* replacement,
                      size_t replacementLength);
    size_t replaceAll(StrSegment needle, StrSegment replacement) {
        return replaceAll(needle.data(), needle.size(), replacement.data(), replacement.size());
    }

    // ASCII letters in place; text with a byte of 128 or more is lowered by code point.
    void toLower();
    Str toLowerCopy() const;

    void trim(const CharSet& set, bool left = true, bool right = true);
    static Str trimCopy(StrSegment text, const CharSet& set, bool left = true, bool right = true);

    // Removes both ends if the text has at least two bytes and both ends equal `quoteChar`.
    void removeMatchingQuotes(char quoteChar);

    bool startsWith(StrSegment prefix) const {
        return length_ >= prefix.size() && std::memcmp(data_, prefix.data(), prefix.size()) == 0;
    }
    bool endsWith(StrSegment suffix) const {
        return length_ >= suffix.size() &&
               std::memcmp(data_ + length_ - suffix.size(), suffix.data(), suffix.size()) == 0;
    }

    friend bool operator==(const Str& a, const Str& b) { return a.view() == b.view(); }
    friend bool operator==(const Str& a, const char* b) { return a.view() == std::string_view(b); }
    friend bool operator==(const Str& a, StrSegment b) { return a.view() == b.view(); }
    friend auto operator<=>(const Str& a, const Str& b) { return a.view() <=> b.view(); }

  private:
    bool isInline() const { return data_ == inline_; }
    // Ensures room for `needed` bytes plus the NUL, by the growth rule.
    void grow(size_t needed);

    char* data_ = inline_;
    size_t length_ = 0;
    size_t capacity_ = kInlineCapacity;
    char inline_[kInlineCapacity + 1];
};

Str operator+(const Str& a, StrSegment b);

// Splitter: every occurrence of `separator` ends a segment, empty ones included. `maxSplits` 0
// means no split, negative no limit. The rest is always delivered last; empty input delivers
// nothing.
class StrSegmentTokenAcceptor {
  public:
    virtual ~StrSegmentTokenAcceptor() = default;
    virtual void accept(StrSegment segment) = 0;
};

void splitOnChar(StrSegment text, char separator, int32_t maxSplits,
                 StrSegmentTokenAcceptor& acceptor);
void splitOnChar(StrSegment text, char separator, int32_t maxSplits, std::vector<StrSegment>& out);
void splitOnChar(StrSegment text, char separator, int32_t maxSplits, std::vector<Str>& out);

}  // namespace morvax

template <>
struct std::hash<morvax::Str> {
    size_t operator()(const morvax::Str& s) const noexcept {
        return std::hash<std::string_view>()(s.view());
    }
};
