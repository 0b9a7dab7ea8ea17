#pragma once

#include <cstddef>

#include "util/base/Str.h"

namespace morvax {

// UTF-8 and UTF-16 coding without the platform. Invalid input becomes U+FFFD, never a failure.
class Utf8 {
  public:
    static constexpr char32_t REPLACEMENT = 0xFFFD;

    // Decodes one sequence at `p` and advances past it. An invalid sequence gives U+FFFD and
    // consumes the bytes that were read as part of it (at least one).
    static char32_t decode(const unsigned char*& p, const unsigned char* end);
    // True when the bytes [start, p) just decoded were a real U+FFFD and not an error.
    static bool isGenuineReplacement(const unsigned char* start, const unsigned char* p) {
        return p - start == 3 && start[0] == 0xEF && start[1] == 0xBF && start[2] == 0xBD;
    }
    // Writes 1 to 4 bytes into `buf` and returns their count; surrogates and values above
    // U+10FFFF are written as U+FFFD.
    static size_t encode(char32_t cp, char* buf);
    static void encode(Str& out, char32_t cp);
    // Writes 1 or 2 UTF-16 units into `units` and returns their count.
    static size_t encodeUtf16(char32_t cp, char16_t* units) {
        if (cp >= 0x10000) {
            units[0] = static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
            units[1] = static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
            return 2;
        }
        units[0] = static_cast<char16_t>(cp);
        return 1;
    }

    static void appendUtf16AsUtf8(Str& out, const char16_t* wide, size_t length);
    static void appendUtf8AsUtf16(WStr& out, const char* bytes, size_t length);
};

}  // namespace morvax
