#include "conf/ConfWhiteSpace.h"

#include "util/base/Utf8.h"

namespace morvax {

namespace {

struct CodePointRange {
    char32_t first;
    char32_t last;
};

constexpr CodePointRange kWhiteSpace[] = {
    {0x0009, 0x000A}, {0x000D, 0x000D}, {0x0020, 0x0020}, {0x00A0, 0x00A0}, {0x1680, 0x1680},
    {0x2000, 0x200B}, {0x2028, 0x2029}, {0x202F, 0x202F}, {0x205F, 0x205F}, {0x3000, 0x3000},
};

// The code point at `p`, which moves past it; an invalid sequence is not white space.
char32_t decodeAt(const unsigned char*& p, const unsigned char* end) {
    const unsigned char* start = p;
    char32_t cp = Utf8::decode(p, end);
    return cp == Utf8::REPLACEMENT && !Utf8::isGenuineReplacement(start, p) ? 0 : cp;
}

}  // namespace

bool ConfWhiteSpace::contains(char32_t cp) {
    for (const CodePointRange& range : kWhiteSpace) {
        if (cp >= range.first && cp <= range.last) {
            return true;
        }
    }
    return false;
}

size_t ConfWhiteSpace::skipLeading(StrSegment text) {
    const auto* begin = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = begin + text.size();
    const unsigned char* p = begin;
    while (p != end) {
        const unsigned char* start = p;
        if (!contains(decodeAt(p, end))) {
            return static_cast<size_t>(start - begin);
        }
    }
    return text.size();
}

StrSegment ConfWhiteSpace::trim(StrSegment text) {
    const size_t first = skipLeading(text);
    const auto* begin = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = begin + text.size();
    // UTF-8 cannot be decoded backwards safely, so one pass forward finds the last character
    // that is not white.
    const unsigned char* p = begin + first;
    const unsigned char* lastEnd = p;
    while (p != end) {
        if (!contains(decodeAt(p, end))) {
            lastEnd = p;
        }
    }
    return StrSegment(text.data() + first, static_cast<size_t>(lastEnd - (begin + first)));
}

}  // namespace morvax
