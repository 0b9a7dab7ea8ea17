#include "input/EventBuffer.h"

#include <cstdint>
#include <cstring>

namespace morvax {

namespace {

constexpr size_t MIN_CAPACITY = 4096;
constexpr char32_t REPLACEMENT = 0xFFFD;

// Four UTF-16 units in one 64-bit word are ASCII when no unit has a bit above the low seven.
constexpr uint64_t NON_ASCII_UNITS = 0xFF80FF80FF80FF80ULL;
// Of four ASCII units, one is NUL when subtracting one from each borrows into its top bit.
constexpr uint64_t LOW_BIT_UNITS = 0x0001000100010001ULL;
constexpr uint64_t HIGH_BIT_UNITS = 0x8000800080008000ULL;

}  // namespace

void EventBuffer::grow(size_t extra) {
    size_t wanted = size_ + extra;
    if (wanted <= capacity_) {
        return;
    }
    size_t capacity = capacity_ < MIN_CAPACITY ? MIN_CAPACITY : capacity_;
    while (capacity < wanted) {
        capacity *= 2;
    }
    std::unique_ptr<char[]> fresh(new char[capacity]);
    if (size_ != 0) {
        std::memcpy(fresh.get(), bytes_.get(), size_);
    }
    bytes_ = std::move(fresh);
    capacity_ = capacity;
}

std::string EventBuffer::utf8(const WStr& wide) {
    EventBuffer text;
    text.appendWide(wide);
    return text.empty() ? std::string() : std::string(text.data(), text.size());
}

void EventBuffer::append(const char* bytes, size_t length) {
    if (length == 0) {
        return;
    }
    reserveMore(length);
    std::memcpy(bytes_.get() + size_, bytes, length);
    size_ += length;
}

size_t EventBuffer::appendWideAny(const char16_t* wide, size_t length) {
    if (length == 0) {
        return NO_NUL;
    }
    // No unit takes more than three bytes; a surrogate pair takes four for its two units.
    reserveMore(length * 3);
    char* const base = bytes_.get();
    char* out = base + size_;
    size_t firstNul = NO_NUL;
    const char16_t* end = wide + length;
#if defined(__SSE2__)
    // Texts that are all ASCII without NUL, as property texts mostly are: at least eight units
    // eight at a time, the last few as the last eight, which writes some bytes again with the
    // same values; four to seven units as two overlapping fours.
    if (length >= 8) {
        while (end - wide >= 8 && asciiBlock8(wide, out)) {
            out += 8;
            wide += 8;
        }
        const ptrdiff_t rest = end - wide;
        if (rest == 0 || (rest < 8 && asciiBlock8(end - 8, out + rest - 8))) {
            size_ = static_cast<size_t>(out + rest - base);
            return NO_NUL;
        }
    } else if (length >= 4 && asciiBlock4(wide, out) && asciiBlock4(end - 4, out + length - 4)) {
        size_ += length;
        return NO_NUL;
    }
#endif
    while (wide < end) {
        // Property texts are mostly ASCII: take them eight or four units at a time, as long as
        // none of them is beyond ASCII or NUL.
#if defined(__SSE2__)
        const __m128i nonAscii = _mm_set1_epi16(static_cast<short>(0xFF80));
        const __m128i zero = _mm_setzero_si128();
        while (end - wide >= 8) {
            const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(wide));
            // A unit passes when it has no bit above the low seven and is not NUL.
            const __m128i ascii = _mm_cmpeq_epi16(_mm_and_si128(units, nonAscii), zero);
            const __m128i ok = _mm_andnot_si128(_mm_cmpeq_epi16(units, zero), ascii);
            if (_mm_movemask_epi8(ok) != 0xFFFF) {
                break;
            }
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(units, units));
            out += 8;
            wide += 8;
        }
#endif
        while (end - wide >= 4) {
            uint64_t word;
            std::memcpy(&word, wide, sizeof word);
            if (((word & NON_ASCII_UNITS) | ((word - LOW_BIT_UNITS) & HIGH_BIT_UNITS)) != 0) {
                break;
            }
            out[0] = static_cast<char>(wide[0]);
            out[1] = static_cast<char>(wide[1]);
            out[2] = static_cast<char>(wide[2]);
            out[3] = static_cast<char>(wide[3]);
            out += 4;
            wide += 4;
        }
        // The rest of a run, or a text too short for the blocks: ASCII but NUL one by one.
        while (wide < end && static_cast<uint16_t>(*wide - 1) < 0x7F) {
            *out++ = static_cast<char>(*wide++);
        }
        if (wide == end) {
            break;
        }
        char32_t u = *wide++;
        if (u == 0) {
            if (firstNul == NO_NUL) {
                firstNul = static_cast<size_t>(out - base);
            }
            *out++ = '\0';
            continue;
        }
        if (u < 0x800) {
            *out++ = static_cast<char>(0xC0 | (u >> 6));
            *out++ = static_cast<char>(0x80 | (u & 0x3F));
            continue;
        }
        if (u >= 0xD800 && u <= 0xDBFF && wide < end && *wide >= 0xDC00 && *wide <= 0xDFFF) {
            u = 0x10000 + ((u - 0xD800) << 10) + (*wide++ - 0xDC00);
            *out++ = static_cast<char>(0xF0 | (u >> 18));
            *out++ = static_cast<char>(0x80 | ((u >> 12) & 0x3F));
            *out++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
            *out++ = static_cast<char>(0x80 | (u & 0x3F));
            continue;
        }
        if (u >= 0xD800 && u <= 0xDFFF) {
            u = REPLACEMENT;  // a surrogate without its other half
        }
        *out++ = static_cast<char>(0xE0 | (u >> 12));
        *out++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (u & 0x3F));
    }
    size_ = static_cast<size_t>(out - base);
    return firstNul;
}

}  // namespace morvax
