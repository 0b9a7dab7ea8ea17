#include "util/base/Utf8.h"

namespace morvax {

char32_t Utf8::decode(const unsigned char*& p, const unsigned char* end) {
    unsigned char b0 = *p++;
    if (b0 < 0x80) {
        return b0;
    }
    int need;
    char32_t cp;
    char32_t min;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        need = 1, cp = b0 & 0x1F, min = 0x80;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        need = 2, cp = b0 & 0x0F, min = 0x800;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        need = 3, cp = b0 & 0x07, min = 0x10000;
    } else {
        return REPLACEMENT;
    }
    const unsigned char* q = p;
    for (int i = 0; i < need; ++i) {
        if (q == end || (*q & 0xC0) != 0x80) {
            p = q;
            return REPLACEMENT;
        }
        cp = (cp << 6) | (*q++ & 0x3F);
    }
    p = q;
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        return REPLACEMENT;
    }
    return cp;
}

size_t Utf8::encode(char32_t cp, char* buf) {
    size_t n;
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        cp = REPLACEMENT;
    }
    if (cp < 0x80) {
        buf[0] = static_cast<char>(cp), n = 1;
    } else if (cp < 0x800) {
        buf[0] = static_cast<char>(0xC0 | (cp >> 6));
        buf[1] = static_cast<char>(0x80 | (cp & 0x3F)), n = 2;
    } else if (cp < 0x10000) {
        buf[0] = static_cast<char>(0xE0 | (cp >> 12));
        buf[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        buf[2] = static_cast<char>(0x80 | (cp & 0x3F)), n = 3;
    } else {
        buf[0] = static_cast<char>(0xF0 | (cp >> 18));
        buf[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        buf[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        buf[3] = static_cast<char>(0x80 | (cp & 0x3F)), n = 4;
    }
    return n;
}

void Utf8::encode(Str& out, char32_t cp) {
    char buf[4];
    out.append(buf, encode(cp, buf));
}

void Utf8::appendUtf16AsUtf8(Str& out, const char16_t* wide, size_t length) {
    out.reserve(out.size() + length);
    const char16_t* end = wide + length;
    while (wide < end) {
        char32_t u = *wide++;
        if (u < 0x80) {
            out.append(static_cast<char>(u));
            continue;
        }
        if (u >= 0xD800 && u <= 0xDBFF) {
            if (wide < end && *wide >= 0xDC00 && *wide <= 0xDFFF) {
                u = 0x10000 + ((u - 0xD800) << 10) + (*wide++ - 0xDC00);
            } else {
                u = REPLACEMENT;  // high surrogate without its low half
            }
        } else if (u >= 0xDC00 && u <= 0xDFFF) {
            u = REPLACEMENT;  // lone low surrogate
        }
        encode(out, u);
    }
}

void Utf8::appendUtf8AsUtf16(WStr& out, const char* bytes, size_t length) {
    out.reserve(out.size() + length);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(bytes);
    const unsigned char* end = p + length;
    while (p < end) {
        char16_t units[2];
        out.append(units, encodeUtf16(decode(p, end), units));
    }
}

}  // namespace morvax
