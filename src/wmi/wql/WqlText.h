#pragma once

#include <cstddef>
#include <string>

namespace morvax::wmi {

// Case rules of the query language: names and strings compare by their simple lower-case
// mapping, code point by code point, as WMI compares them.
class WqlText {
  public:
    // The code point at `pos`, advancing `pos`; a lone surrogate stands for itself.
    static char32_t nextCodePoint(const std::u16string& text, size_t& pos);
    static char32_t fold(char32_t cp);
    // The folded code points of `text`.
    static std::u32string fold(const std::u16string& text);
    static bool equalNoCase(const std::u16string& a, const std::u16string& b);
    // <0, 0 or >0, ordering by folded code points.
    static int compareNoCase(const std::u16string& a, const std::u16string& b);
    // Whether `text` spells the ASCII word `lowerWord` in any case.
    static bool isWord(const std::u16string& text, const char* lowerWord);

    // Names of classes and properties: a letter, an underscore or any unit of the wide range the
    // schema language allows, then digits too. No blank, no line end, no punctuation.
    static constexpr bool isNameStart(char16_t c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
               (c >= 0x80 && c <= 0xFFEF);
    }
    static constexpr bool isNamePart(char16_t c) {
        return isNameStart(c) || (c >= '0' && c <= '9');
    }
    static bool isName(const std::u16string& text);
};

}  // namespace morvax::wmi
