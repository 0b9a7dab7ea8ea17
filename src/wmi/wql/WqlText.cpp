#include "wmi/wql/WqlText.h"

#include <algorithm>

#include "util/base/UnicodeCase.h"

namespace morvax::wmi {

char32_t WqlText::nextCodePoint(const std::u16string& text, size_t& pos) {
    char32_t c = text[pos++];
    if (c >= 0xD800 && c <= 0xDBFF && pos < text.size()) {
        char32_t low = text[pos];
        if (low >= 0xDC00 && low <= 0xDFFF) {
            ++pos;
            return 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        }
    }
    return c;
}

char32_t WqlText::fold(char32_t cp) {
    if (cp < 0x80) {
        return (cp >= 'A' && cp <= 'Z') ? cp + 32 : cp;
    }
    return UnicodeCase::toLower(cp);
}

std::u32string WqlText::fold(const std::u16string& text) {
    std::u32string out;
    out.reserve(text.size());
    for (size_t pos = 0; pos < text.size();) {
        out.push_back(fold(nextCodePoint(text, pos)));
    }
    return out;
}

bool WqlText::equalNoCase(const std::u16string& a, const std::u16string& b) {
    return compareNoCase(a, b) == 0;
}

int WqlText::compareNoCase(const std::u16string& a, const std::u16string& b) {
    size_t i = 0, j = 0;
    // ASCII, as names and most values are, folds without a call; the rest from its first unit
    // beyond ASCII on.
    const size_t common = std::min(a.size(), b.size());
    while (i < common && a[i] < 0x80 && b[i] < 0x80) {
        const char16_t x = a[i] >= u'A' && a[i] <= u'Z' ? a[i] + 32 : a[i];
        const char16_t y = b[i] >= u'A' && b[i] <= u'Z' ? b[i] + 32 : b[i];
        if (x != y) {
            return x < y ? -1 : 1;
        }
        ++i;
    }
    j = i;
    while (i < a.size() && j < b.size()) {
        char32_t x = fold(nextCodePoint(a, i));
        char32_t y = fold(nextCodePoint(b, j));
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    if (i < a.size()) {
        return 1;
    }
    return j < b.size() ? -1 : 0;
}

bool WqlText::isWord(const std::u16string& text, const char* lowerWord) {
    size_t i = 0;
    for (; i < text.size(); ++i) {
        char16_t c = text[i];
        if (lowerWord[i] == '\0') {
            return false;
        }
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char16_t>(c + 32);
        }
        if (c != static_cast<unsigned char>(lowerWord[i])) {
            return false;
        }
    }
    return lowerWord[i] == '\0';
}

bool WqlText::isName(const std::u16string& text) {
    if (text.empty() || !isNameStart(text[0])) {
        return false;
    }
    for (char16_t c : text) {
        if (!isNamePart(c)) {
            return false;
        }
    }
    return true;
}

}  // namespace morvax::wmi
