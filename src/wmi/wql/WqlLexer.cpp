#include "wmi/wql/WqlLexer.h"

#include <string_view>

#include "util/base/Ascii.h"
#include "wmi/wql/WqlNumber.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

bool isBlank(char16_t c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

struct KeywordName {
    const char* word;
    WqlKeyword keyword;
};

constexpr KeywordName kKeywords[] = {
    {"select", WqlKeyword::KW_SELECT},
    {"from", WqlKeyword::KW_FROM},
    {"where", WqlKeyword::KW_WHERE},
    {"and", WqlKeyword::KW_AND},
    {"or", WqlKeyword::KW_OR},
    {"not", WqlKeyword::KW_NOT},
    {"like", WqlKeyword::KW_LIKE},
    {"isa", WqlKeyword::KW_ISA},
    {"is", WqlKeyword::KW_IS},
    {"null", WqlKeyword::KW_NULL},
    {"true", WqlKeyword::KW_TRUE},
    {"false", WqlKeyword::KW_FALSE},
    {"within", WqlKeyword::KW_WITHIN},
    {"group", WqlKeyword::KW_GROUP},
    {"by", WqlKeyword::KW_BY},
    {"having", WqlKeyword::KW_HAVING},
    {"associators", WqlKeyword::KW_ASSOCIATORS},
    {"references", WqlKeyword::KW_REFERENCES},
    {"of", WqlKeyword::KW_OF},
};

}  // namespace

WqlToken WqlLexer::invalid(size_t offset, const char* reason) {
    error_.clear();
    error_.appendFormat("%s at offset %zu", reason, offset);
    WqlToken token;
    token.type = WqlTokenType::INVALID;
    token.offset = offset;
    return token;
}

void WqlLexer::skipBlanks() {
    while (pos_ < text_.size() && isBlank(text_[pos_])) {
        ++pos_;
    }
}

WqlToken WqlLexer::next() {
    skipBlanks();
    WqlToken token;
    token.offset = pos_;
    if (pos_ >= text_.size()) {
        return token;
    }
    const size_t start = pos_;
    const char16_t c = text_[pos_];
    const char16_t after = pos_ + 1 < text_.size() ? text_[pos_ + 1] : u'\0';
    if (WqlText::isNameStart(c)) {
        while (pos_ < text_.size() && WqlText::isNamePart(text_[pos_])) {
            ++pos_;
        }
        token.text = text_.substr(start, pos_ - start);
        token.type = WqlTokenType::IDENTIFIER;
        for (const KeywordName& k : kKeywords) {
            if (WqlText::isWord(token.text, k.word)) {
                token.type = WqlTokenType::KEYWORD;
                token.keyword = k.keyword;
                break;
            }
        }
        return token;
    }
    if (isDigit(c) || (c == '-' && isDigit(after))) {
        return readNumber(start);
    }
    if (c == '\'' || c == '"') {
        return readString(start);
    }
    ++pos_;
    switch (c) {
        case '*':
            token.type = WqlTokenType::STAR;
            return token;
        case ',':
            token.type = WqlTokenType::COMMA;
            return token;
        case '.':
            token.type = WqlTokenType::DOT;
            return token;
        case '(':
            token.type = WqlTokenType::OPEN_PAREN;
            return token;
        case ')':
            token.type = WqlTokenType::CLOSE_PAREN;
            return token;
        case '=':
            token.type = WqlTokenType::COMPARISON;
            token.op = WMIQ_RPN_OP_EQ;
            return token;
        case '!':
            if (after != '=') {
                return invalid(start, "'!' without '='");
            }
            ++pos_;
            token.type = WqlTokenType::COMPARISON;
            token.op = WMIQ_RPN_OP_NE;
            return token;
        case '<':
            token.type = WqlTokenType::COMPARISON;
            token.op = WMIQ_RPN_OP_LT;
            if (after == '=') {
                ++pos_;
                token.op = WMIQ_RPN_OP_LE;
            } else if (after == '>') {
                ++pos_;
                token.op = WMIQ_RPN_OP_NE;
            }
            return token;
        case '>':
            token.type = WqlTokenType::COMPARISON;
            token.op = WMIQ_RPN_OP_GT;
            if (after == '=') {
                ++pos_;
                token.op = WMIQ_RPN_OP_GE;
            }
            return token;
        default:
            return invalid(start, "unexpected character");
    }
}

// A backslash escapes the quote, the other quote and itself; any other escape is an error,
// which catches the unescaped backslash of a path such as 'C:\Windows'.
WqlToken WqlLexer::readString(size_t start) {
    const char16_t quote = text_[pos_++];
    WqlToken token;
    token.type = WqlTokenType::STRING_LITERAL;
    token.offset = start;
    while (pos_ < text_.size()) {
        char16_t c = text_[pos_++];
        if (c == quote) {
            return token;
        }
        if (c == '\\') {
            if (pos_ >= text_.size()) {
                break;
            }
            char16_t escaped = text_[pos_++];
            if (escaped != '\\' && escaped != '\'' && escaped != '"') {
                return invalid(pos_ - 2, "unknown escape in string");
            }
            c = escaped;
        }
        token.text.push_back(c);
    }
    return invalid(start, "unterminated string");
}

WqlToken WqlLexer::readNumber(size_t start) {
    WqlToken token;
    token.type = WqlTokenType::NUMBER_LITERAL;
    token.offset = start;
    const bool negative = text_[pos_] == '-';
    if (negative) {
        ++pos_;
    }
    if (text_[pos_] == '0' && pos_ + 2 < text_.size() &&
        (text_[pos_ + 1] == 'x' || text_[pos_ + 1] == 'X') && isHexDigit(text_[pos_ + 2])) {
        pos_ += 2;
        WqlNumber n;
        n.negative = negative;
        while (pos_ < text_.size() && isHexDigit(text_[pos_])) {
            char16_t h = text_[pos_++];
            unsigned digit = isDigit(h) ? h - '0' : (h | 0x20) - 'a' + 10;
            if (n.magnitude >> 60) {
                return invalid(start, "hexadecimal number beyond 64 bits");
            }
            n.magnitude = n.magnitude << 4 | digit;
        }
        n.negative = negative && n.magnitude != 0;
        token.number = n.toConstant();
    } else {
        while (pos_ < text_.size() && isDigit(text_[pos_])) {
            ++pos_;
        }
        if (pos_ + 1 < text_.size() && text_[pos_] == '.' && isDigit(text_[pos_ + 1])) {
            pos_ += 2;
            while (pos_ < text_.size() && isDigit(text_[pos_])) {
                ++pos_;
            }
        }
        if (pos_ < text_.size() && (text_[pos_] == 'e' || text_[pos_] == 'E')) {
            size_t e = pos_ + 1;
            if (e < text_.size() && (text_[e] == '+' || text_[e] == '-')) {
                ++e;
            }
            if (e < text_.size() && isDigit(text_[e])) {
                pos_ = e;
                while (pos_ < text_.size() && isDigit(text_[pos_])) {
                    ++pos_;
                }
            }
        }
        WqlNumber n;
        if (!WqlNumber::parse(std::u16string_view(text_).substr(start, pos_ - start), n)) {
            return invalid(start, "malformed number");
        }
        token.number = n.toConstant();
    }
    if (pos_ < text_.size() && (WqlText::isNamePart(text_[pos_]) || text_[pos_] == '.')) {
        return invalid(start, "malformed number");
    }
    return token;
}

bool WqlLexer::readBraced(std::u16string& out) {
    skipBlanks();
    if (pos_ >= text_.size() || text_[pos_] != '{') {
        error_.clear();
        error_.appendFormat("expected '{' at offset %zu", pos_);
        return false;
    }
    const size_t start = pos_++;
    char16_t quote = 0;
    for (; pos_ < text_.size(); ++pos_) {
        char16_t c = text_[pos_];
        if (quote != 0) {
            if (c == '\\' && pos_ + 1 < text_.size()) {
                ++pos_;
            } else if (c == quote) {
                quote = 0;
            }
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '}') {
            out = text_.substr(start + 1, pos_ - start - 1);
            ++pos_;
            for (char16_t p : out) {
                if (!isBlank(p)) {
                    return true;
                }
            }
            error_.clear();
            error_.appendFormat("empty object path at offset %zu", start);
            return false;
        }
    }
    error_.clear();
    error_.appendFormat("unclosed '{' at offset %zu", start);
    return false;
}

}  // namespace morvax::wmi
