#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include "util/base/Str.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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
    size_t appendWide(const char16_t* wide, size_t length) {
#if defined(__SSE2__)
        // Most property texts are a few dozen ASCII units: those go here without a call, eight
        // units at a time and the last eight again, overlapping.
        if (length >= 8 && length <= kInlineUnits && length <= capacity_ - size_) {
            char* const out = bytes_.get() + size_;
            size_t done = 0;
            while (length - done > 8 && asciiBlock8(wide + done, out + done)) {
                done += 8;
            }
            if (length - done <= 8 && asciiBlock8(wide + length - 8, out + length - 8)) {
                size_ += length;
                return NO_NUL;
            }
        }
#endif
        return appendWideAny(wide, length);
    }
    size_t appendWide(const WStr& wide) {
        return appendWide(wide.data(), wide.size());
    }

    static constexpr size_t NO_NUL = static_cast<size_t>(-1);

    // The UTF-8 bytes that appendWide gives `wide`, NULs included.
    static std::string utf8(const WStr& wide);

  private:
#if defined(__SSE2__)
    static constexpr size_t kInlineUnits = 32;
    // Whether none of the units is beyond ASCII or NUL.
    static bool asciiUnits(__m128i units) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i ascii =
            _mm_cmpeq_epi16(_mm_and_si128(units, _mm_set1_epi16(static_cast<short>(0xFF80))), zero);
        const __m128i ok = _mm_andnot_si128(_mm_cmpeq_epi16(units, zero), ascii);
        return _mm_movemask_epi8(ok) == 0xFFFF;
    }
    // Writes eight units as bytes when they are ASCII without NUL.
    static bool asciiBlock8(const char16_t* wide, char* out) {
        const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(wide));
        if (!asciiUnits(units)) {
            return false;
        }
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(units, units));
        return true;
    }
    // The same for four units; the upper half of the register repeats them, so that it passes.
    static bool asciiBlock4(const char16_t* wide, char* out) {
        const __m128i low = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(wide));
        const __m128i units = _mm_unpacklo_epi64(low, low);
        if (!asciiUnits(units)) {
            return false;
        }
        const int packed = _mm_cvtsi128_si32(_mm_packus_epi16(units, units));
        std::memcpy(out, &packed, 4);
        return true;
    }
#endif
    // appendWide for any text.
    size_t appendWideAny(const char16_t* wide, size_t length);
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
