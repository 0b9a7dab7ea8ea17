#include "util/io/WritableUnicodeStream.h"

#include "util/base/Utf8.h"

namespace morvax {

using namespace UnicodeEncoding;

namespace {

uint32_t normalised(uint32_t state) {
    uint32_t e = encodingOf(state);
    return e >= UTF16LE && e <= UTF32BE ? e : UTF8;
}

}  // namespace

WritableUnicodeStream::WritableUnicodeStream(uint32_t encoding)
    : encoding_(normalised(encoding)), crLf_((encoding & CRLF) != 0) {}

WritableUnicodeStream::~WritableUnicodeStream() = default;

bool WritableUnicodeStream::encode(char32_t cp) {
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        cp = Utf8::REPLACEMENT;
    }
    uint8_t bytes[4];
    size_t n;
    switch (encoding_) {
        case UTF16LE:
        case UTF16BE: {
            char16_t units[2];
            size_t count = Utf8::encodeUtf16(static_cast<char32_t>(cp), units);
            n = 0;
            for (size_t i = 0; i < count; ++i) {
                uint8_t lo = static_cast<uint8_t>(units[i] & 0xFF);
                uint8_t hi = static_cast<uint8_t>(units[i] >> 8);
                bytes[n++] = encoding_ == UTF16LE ? lo : hi;
                bytes[n++] = encoding_ == UTF16LE ? hi : lo;
            }
            break;
        }
        case UTF32LE:
        case UTF32BE:
            for (int i = 0; i < 4; ++i) {
                uint8_t b = static_cast<uint8_t>(cp >> (8 * i));
                bytes[encoding_ == UTF32LE ? i : 3 - i] = b;
            }
            n = 4;
            break;
        default:
            // Straight into the buffer: a copy through a second array hides from the compiler
            // that the count is 1 to 4, and a Release build then warns of an overflow.
            n = Utf8::encode(cp, reinterpret_cast<char*>(bytes));
            break;
    }
    for (size_t i = 0; i < n; ++i) {
        if (!writeByte(bytes[i])) {
            return false;
        }
    }
    return true;
}

bool WritableUnicodeStream::writeMark() {
    return encode(0xFEFF);
}

bool WritableUnicodeStream::writeCodePoint(char32_t cp) {
    if (crLf_ && cp == '\n' && !afterCr_) {
        if (!encode('\r')) {
            return false;
        }
    }
    afterCr_ = cp == '\r';
    return encode(cp);
}

bool WritableUnicodeStream::write(StrSegment utf8) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8.data());
    const unsigned char* end = p + utf8.size();
    while (p < end) {
        if (!writeCodePoint(Utf8::decode(p, end))) {
            return false;
        }
    }
    return true;
}

bool WritableUnicodeStream::writeWide(const char16_t* wide, size_t length) {
    const char16_t* end = wide + length;
    while (wide < end) {
        char32_t u = *wide++;
        if (u >= 0xD800 && u <= 0xDBFF && wide < end && *wide >= 0xDC00 && *wide <= 0xDFFF) {
            u = 0x10000 + ((u - 0xD800) << 10) + (*wide++ - 0xDC00);
        }
        // A lone surrogate is left as it is and becomes U+FFFD on the way out.
        if (!writeCodePoint(u)) {
            return false;
        }
    }
    return true;
}

}  // namespace morvax
