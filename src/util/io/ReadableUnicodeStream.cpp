#include "util/io/ReadableUnicodeStream.h"

#include <cstdlib>
#include <cstring>

#include "util/base/Utf8.h"

namespace morvax {

using namespace UnicodeEncoding;

namespace {

constexpr int32_t REPLACEMENT = 0xFFFD;
constexpr int32_t BYTE_ORDER_MARK = 0xFEFF;

bool isValidScalar(uint32_t v) {
    return v <= 0x10FFFF && (v < 0xD800 || v > 0xDFFF);
}

uint32_t littleEndian32(const unsigned char* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

}  // namespace

ReadableUnicodeStream::ReadableUnicodeStream(uint32_t encoding) : encoding_(encoding) {}

ReadableUnicodeStream::~ReadableUnicodeStream() {
    std::free(line_);
}

int ReadableUnicodeStream::nextByte() {
    if (pushbackCount_ > 0) {
        return pushback_[--pushbackCount_];
    }
    if (sniffState_ == SNIFF_REPLAYING) {
        if (sniffPos_ < sniffLength_) {
            return sniffBuffer_[sniffPos_++];
        }
        sniffState_ = SNIFF_LIVE;
    }
    if (sourceEnded_) {
        return -1;
    }
    int b = readByte();
    if (b < 0 || b > 0xFF) {
        sourceEnded_ = true;
        return -1;
    }
    return b;
}

// A UTF-16LE text that happens to start with FF FE 00 00 (a mark, then U+0000) would pass for
// UTF-32LE by its first four bytes alone, so the groups behind the mark must all be plausible
// code points too.
bool ReadableUnicodeStream::utf32LeGroupsValid(size_t length) const {
    for (size_t i = 4; i + 4 <= length; i += 4) {
        uint32_t v = littleEndian32(sniffBuffer_ + i);
        if (v == 0 ? i != 4 : !isValidScalar(v)) {
            return false;
        }
    }
    return true;
}

uint32_t ReadableUnicodeStream::detectEncoding() {
    if (sniffState_ != SNIFF_NOTHING_READ) {
        return encoding_;
    }
    size_t n = 0;
    while (n < SNIFF_SIZE) {
        int b = readByte();
        if (b < 0 || b > 0xFF) {
            sourceEnded_ = true;
            break;
        }
        sniffBuffer_[n++] = static_cast<unsigned char>(b);
    }
    sniffLength_ = n;
    sniffState_ = SNIFF_REPLAYING;

    const unsigned char* s = sniffBuffer_;
    const uint32_t forced = encodingOf(encoding_);
    uint32_t detected;
    size_t markLength = 0;
    if (n >= 3 && s[0] == 0xEF && s[1] == 0xBB && s[2] == 0xBF) {
        detected = UTF8, markLength = 3;
    } else if (n >= 4 && s[0] == 0x00 && s[1] == 0x00 && s[2] == 0xFE && s[3] == 0xFF) {
        detected = UTF32BE, markLength = 4;
    } else if (n >= 8 && s[0] == 0xFF && s[1] == 0xFE && s[2] == 0x00 && s[3] == 0x00 &&
               utf32LeGroupsValid(n)) {
        detected = UTF32LE, markLength = 4;
    } else if (n >= 2 && s[0] == 0xFE && s[1] == 0xFF) {
        detected = UTF16BE, markLength = 2;
    } else if (n >= 2 && s[0] == 0xFF && s[1] == 0xFE) {
        detected = UTF16LE, markLength = 2;
    } else if (forced != UNKNOWN) {
        detected = forced;
    } else if (n == 0) {
        detected = EMPTY;
    } else if (n >= 8) {
        // ASCII-heavy UTF-16 without a mark has a zero in nearly every other byte. With h = n/2:
        // more than 2h/3 zeros on one parity and fewer than h/4 on the other.
        size_t evenZeros = 0;
        size_t oddZeros = 0;
        for (size_t i = 0; i < n; ++i) {
            if (s[i] == 0) {
                ++(i % 2 == 0 ? evenZeros : oddZeros);
            }
        }
        if (3 * oddZeros > n && 8 * evenZeros < n) {
            detected = UTF16LE;
        } else if (3 * evenZeros > n && 8 * oddZeros < n) {
            detected = UTF16BE;
        } else {
            detected = UTF8;
        }
    } else {
        detected = UTF8;
    }
    encoding_ = (encoding_ & ~(ENCODING_MASK | MARK)) | detected | (markLength ? MARK : 0);
    sniffPos_ = markLength;
    return encoding_;
}

// Accepts only shortest forms of scalar values: the second byte's range excludes overlongs
// (E0, F0), surrogates (ED) and values above U+10FFFF (F4). A byte that cannot continue the
// sequence is given back, so it starts the next one.
int32_t ReadableUnicodeStream::decodeUtf8() {
    int b0 = nextByte();
    if (b0 < 0) {
        return END;
    }
    if (b0 < 0x80) {
        return b0;
    }
    int need;
    int low = 0x80;
    int high = 0xBF;
    int32_t cp;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        need = 1, cp = b0 & 0x1F;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        need = 2, cp = b0 & 0x0F;
        if (b0 == 0xE0) {
            low = 0xA0;
        } else if (b0 == 0xED) {
            high = 0x9F;
        }
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        need = 3, cp = b0 & 0x07;
        if (b0 == 0xF0) {
            low = 0x90;
        } else if (b0 == 0xF4) {
            high = 0x8F;
        }
    } else {
        return INVALID;
    }
    for (int i = 0; i < need; ++i) {
        int b = nextByte();
        if (b < 0) {
            return INVALID;
        }
        if (b < low || b > high) {
            pushBack(b);
            return INVALID;
        }
        cp = (cp << 6) | (b & 0x3F);
        low = 0x80, high = 0xBF;
    }
    return cp;
}

int32_t ReadableUnicodeStream::decodeUtf16(bool bigEndian) {
    int b0 = nextByte();
    if (b0 < 0) {
        return END;
    }
    int b1 = nextByte();
    if (b1 < 0) {
        return INVALID;  // half a unit at the end
    }
    int32_t u = bigEndian ? (b0 << 8 | b1) : (b1 << 8 | b0);
    if (u >= 0xDC00 && u <= 0xDFFF) {
        return INVALID;
    }
    if (u < 0xD800 || u > 0xDBFF) {
        return u;
    }
    int c0 = nextByte();
    if (c0 < 0) {
        return INVALID;
    }
    int c1 = nextByte();
    if (c1 < 0) {
        pushBack(c0);
        return INVALID;
    }
    int32_t low = bigEndian ? (c0 << 8 | c1) : (c1 << 8 | c0);
    if (low < 0xDC00 || low > 0xDFFF) {
        // Not the pair's second half: it is decoded on its own next.
        pushBack(c1);
        pushBack(c0);
        return INVALID;
    }
    return 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00);
}

int32_t ReadableUnicodeStream::decodeUtf32(bool bigEndian) {
    unsigned char b[4];
    for (int i = 0; i < 4; ++i) {
        int c = nextByte();
        if (c < 0) {
            return i == 0 ? END : INVALID;
        }
        b[i] = static_cast<unsigned char>(c);
    }
    uint32_t v =
        bigEndian
            ? (uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | uint32_t(b[3]))
            : littleEndian32(b);
    return isValidScalar(v) ? static_cast<int32_t>(v) : INVALID;
}

int32_t ReadableUnicodeStream::readCodePoint() {
    detectEncoding();
    for (;;) {
        int32_t cp;
        switch (encodingOf(encoding_)) {
            case UTF16LE:
                cp = decodeUtf16(false);
                break;
            case UTF16BE:
                cp = decodeUtf16(true);
                break;
            case UTF32LE:
                cp = decodeUtf32(false);
                break;
            case UTF32BE:
                cp = decodeUtf32(true);
                break;
            default:
                cp = decodeUtf8();
                break;
        }
        if (cp == END) {
            decoderEnded_ = true;
            return -1;
        }
        if (cp == INVALID) {
            if (replaceInvalid_) {
                return REPLACEMENT;
            }
            continue;
        }
        if (cp == BYTE_ORDER_MARK) {
            continue;
        }
        return cp;
    }
}

bool ReadableUnicodeStream::reserveLine(size_t extra) {
    if (lineCapacity_ - lineLength_ >= extra) {
        return true;
    }
    size_t capacity = lineCapacity_ ? lineCapacity_ : INITIAL_LINE_CAPACITY;
    while (capacity - lineLength_ < extra) {
        if (capacity > SIZE_MAX / 2) {
            return false;
        }
        capacity *= 2;
    }
    char* grown = static_cast<char*>(std::realloc(line_, capacity));
    if (!grown) {
        return false;
    }
    line_ = grown;
    lineCapacity_ = capacity;
    return true;
}

// The CRLF flag follows the majority of line ends seen so far; a tie keeps what it was, so
// the caller's starting value decides for a text with no line ends at all.
void ReadableUnicodeStream::countLineEnd(bool removedCr, bool sawLf) {
    if (removedCr) {
        ++crLfLines_;
    } else if (sawLf) {
        ++lfLines_;
    }
    if (crLfLines_ > lfLines_) {
        encoding_ |= CRLF;
    } else if (crLfLines_ < lfLines_) {
        encoding_ &= ~CRLF;
    }
}

bool ReadableUnicodeStream::readLineInto(bool wide) {
    lineLength_ = 0;
    if (!reserveLine(4)) {
        return false;
    }
    bool any = false;
    bool sawLf = false;
    for (;;) {
        int32_t cp = readCodePoint();
        if (cp < 0) {
            break;
        }
        any = true;
        if (cp == '\n') {
            sawLf = true;
            break;
        }
        if (!reserveLine(4)) {
            return false;
        }
        if (!wide) {
            lineLength_ += Utf8::encode(static_cast<char32_t>(cp), line_ + lineLength_);
        } else {
            char16_t units[2];
            size_t count = Utf8::encodeUtf16(static_cast<char32_t>(cp), units);
            std::memcpy(line_ + lineLength_, units, count * sizeof(char16_t));
            lineLength_ += count * sizeof(char16_t);
        }
    }
    if (!any) {
        return false;
    }
    bool removedCr = false;
    if (!wide) {
        if (lineLength_ > 0 && line_[lineLength_ - 1] == '\r') {
            --lineLength_, removedCr = true;
        }
    } else if (lineLength_ >= sizeof(char16_t)) {
        char16_t last;
        std::memcpy(&last, line_ + lineLength_ - sizeof(char16_t), sizeof(char16_t));
        if (last == u'\r') {
            lineLength_ -= sizeof(char16_t), removedCr = true;
        }
    }
    countLineEnd(removedCr, sawLf);
    return true;
}

bool ReadableUnicodeStream::readLine(Str& target) {
    StrSegment view;
    if (!readLineView(view)) {
        target.clear();
        return false;
    }
    target.assign(view.data(), view.size());
    return true;
}

bool ReadableUnicodeStream::readLineView(StrSegment& view) {
    if (!readLineInto(false)) {
        view = StrSegment();
        return false;
    }
    view = StrSegment(line_, lineLength_);
    return true;
}

bool ReadableUnicodeStream::readLineWide(WStr& target) {
    target.clear();
    if (!readLineInto(true)) {
        return false;
    }
    target.resize(lineLength_ / sizeof(char16_t));
    if (lineLength_ > 0) {
        std::memcpy(target.data(), line_, lineLength_);
    }
    return true;
}

}  // namespace morvax
