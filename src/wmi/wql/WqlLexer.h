#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "util/base/Str.h"
#include "wmi/Wmi.h"

namespace morvax::wmi {

enum class WqlTokenType {
    END_OF_TEXT,
    IDENTIFIER,
    KEYWORD,
    STRING_LITERAL,
    NUMBER_LITERAL,
    COMPARISON,  // = <> != < > <= >=
    STAR,
    COMMA,
    DOT,
    OPEN_PAREN,
    CLOSE_PAREN,
    INVALID,
};

// The reserved words; none of them can name a class or a property.
enum class WqlKeyword {
    KW_NONE,
    KW_SELECT,
    KW_FROM,
    KW_WHERE,
    KW_AND,
    KW_OR,
    KW_NOT,
    KW_LIKE,
    KW_ISA,
    KW_IS,
    KW_NULL,
    KW_TRUE,
    KW_FALSE,
    KW_WITHIN,
    KW_GROUP,
    KW_BY,
    KW_HAVING,
    KW_ASSOCIATORS,
    KW_REFERENCES,
    KW_OF,
};

struct WqlToken {
    WqlTokenType type = WqlTokenType::END_OF_TEXT;
    WqlKeyword keyword = WqlKeyword::KW_NONE;
    uint32_t op = WMIQ_RPN_OP_UNDEFINED;  // COMPARISON
    size_t offset = 0;
    std::u16string text;  // IDENTIFIER as written; STRING_LITERAL with its escapes resolved
    Variant number;       // NUMBER_LITERAL, typed as the analysis record types constants
};

// Splits a query text into tokens on demand, so that the parser can take the object path of
// ASSOCIATORS OF {...} as raw text.
class WqlLexer {
  public:
    explicit WqlLexer(const std::u16string& text) : text_(text) {}

    // An INVALID token leaves the reason in error().
    WqlToken next();
    // Reads "{...}" after optional blanks, quoted braces included; false when there is none or
    // it holds nothing but blanks.
    bool readBraced(std::u16string& out);

    const Str& error() const { return error_; }

  private:
    WqlToken invalid(size_t offset, const char* reason);
    void skipBlanks();
    WqlToken readString(size_t start);
    WqlToken readNumber(size_t start);

    const std::u16string& text_;
    size_t pos_ = 0;
    Str error_;
};

}  // namespace morvax::wmi
