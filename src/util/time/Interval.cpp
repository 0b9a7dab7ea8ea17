#include "util/time/Interval.h"

namespace morvax {

uint64_t Interval::fromMicroseconds(uint64_t microseconds) {
    if (microseconds == FOREVER) {
        return FOREVER;
    }
    if (microseconds > FOREVER - 999) {
        return MAX_FROM_MICROSECONDS;
    }
    return (microseconds + 999) / 1000;
}

bool Interval::parse(StrSegment text, uint64_t& out) {
    size_t i = 0;
    size_t n = text.size();
    bool anyDigit = false;
    bool nonZero = false;
    bool huge = false;
    uint64_t seconds = 0;
    for (; i < n && text[i] >= '0' && text[i] <= '9'; ++i) {
        anyDigit = true;
        nonZero |= text[i] != '0';
        if (!huge) {
            seconds = seconds * 10 + static_cast<uint64_t>(text[i] - '0');
            huge = seconds >= MAX_FROM_MICROSECONDS;
        }
    }
    // Tenths of a millisecond from the first four fraction digits.
    uint64_t fraction = 0;
    if (i < n && text[i] == '.') {
        ++i;
        uint64_t scale = 1000;
        for (; i < n && text[i] >= '0' && text[i] <= '9'; ++i) {
            anyDigit = true;
            nonZero |= text[i] != '0';
            fraction += static_cast<uint64_t>(text[i] - '0') * scale;
            scale /= 10;
        }
    }
    if (i != n || !anyDigit) {
        return false;
    }
    if (huge) {
        out = FOREVER;
        return true;
    }
    uint64_t whole = seconds * 1000;
    uint64_t rounded = (fraction + 5) / 10;
    uint64_t result = whole > FOREVER - rounded ? FOREVER : whole + rounded;
    if (result == 0 && nonZero) {
        result = 1;
    }
    out = result;
    return true;
}

void Interval::appendText(uint64_t milliseconds, Str& target) {
    target.appendFormat("%llu.%03u", static_cast<unsigned long long>(milliseconds / 1000),
                        static_cast<unsigned>(milliseconds % 1000));
}

Str Interval::toText(uint64_t milliseconds) {
    Str text;
    appendText(milliseconds, text);
    return text;
}

void Interval::printCrashSafe(uint64_t milliseconds, FormatSink& sink) {
    if (milliseconds == 0) {
        sink.write("<zero>", 6);
        return;
    }
    if (milliseconds == FOREVER) {
        sink.write("<max>", 5);
        return;
    }
    static const char hex[] = "0123456789ABCDEF";
    char text[16];
    for (int i = 15; i >= 0; --i) {
        text[i] = hex[milliseconds & 0xF];
        milliseconds >>= 4;
    }
    sink.write(text, sizeof(text));
}

}  // namespace morvax
