#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include "util/base/Str.h"

namespace morvax {

// The bytes of one event while it is built. Kept from event to event, so that after the first
// few events writing costs no allocation at all.
class EventBuffer {
  public:
    EventBuffer() = default;
    EventBuffer(const EventBuffer&) = delete;
    EventBuffer& operator=(const EventBuffer&) = delete;

    const char* data() const { return bytes_.get(); }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    void clear() { size_ = 0; }
    // Drops everything from `size` on; `size` must not exceed size().
    void truncate(size_t size) { size_ = size; }

    void append(const char* bytes, size_t length);
    void append(char c) {
        reserveMore(1);
        bytes_[size_++] = c;
    }
    // Room for `extra` more bytes at the end, to be written through the pointer and then taken
    // into the buffer by commitTail with the end of what was written.
    char* reserveTail(size_t extra) {
        reserveMore(extra);
        return bytes_.get() + size_;
    }
    void commitTail(const char* end) { size_ = static_cast<size_t>(end - bytes_.get()); }
    // Copies `length` bytes to `out` and returns their end: the short texts of an event without
    // a call, by two overlapping words.
    static char* copy(char* out, const char* bytes, size_t length) {
        if (length >= 8 && length <= 16) {
            std::memcpy(out, bytes, 8);
            std::memcpy(out + length - 8, bytes + length - 8, 8);
        } else if (length >= 4 && length < 8) {
            std::memcpy(out, bytes, 4);
            std::memcpy(out + length - 4, bytes + length - 4, 4);
        } else if (length < 4) {
            for (size_t i = 0; i < length; ++i) {
                out[i] = bytes[i];
            }
        } else {
            std::memcpy(out, bytes, length);
        }
        return out + length;
    }

    // Appends the UTF-8 form of UTF-16 text; a lone surrogate becomes U+FFFD. Returns the
    // position in the buffer of the first NUL byte it wrote, or NO_NUL.
    size_t appendWide(const char16_t* wide, size_t length);
    size_t appendWide(const WStr& wide) { return appendWide(wide.data(), wide.size()); }

    static constexpr size_t NO_NUL = static_cast<size_t>(-1);

    // The UTF-8 bytes that appendWide gives `wide`, NULs included.
    static std::string utf8(const WStr& wide);

  private:
    void reserveMore(size_t extra) {
        if (extra > capacity_ - size_) {
            grow(extra);
        }
    }
    // Makes room for `extra` more bytes.
    void grow(size_t extra);

    std::unique_ptr<char[]> bytes_;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

}  // namespace morvax
