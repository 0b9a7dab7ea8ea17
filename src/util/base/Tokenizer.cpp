#include "util/base/Tokenizer.h"

#include "util/base/CharSet.h"
#include "util/base/VecTokenInserter.h"

namespace morvax {

char Tokenizer::tokenize(const char* begin, const char* end, ITokenHandler& handler,
                         const char* delimiters, bool keepDelimiters, bool keepQuotes,
                         bool noEscapes, bool unescape) {
    const CharSet delimiterSet(delimiters);
    Str token;
    char inQuote = 0;
    bool escaped = false;
    bool quotedFromStart = false;

    auto deliver = [&]() {
        if (quotedFromStart) {
            handler.onToken(token, true);
        } else {
            handler.onTokenText(token, 0);
        }
        token.clear();
        quotedFromStart = false;
    };

    for (const char* p = begin; p < end; ++p) {
        const char c = *p;
        if (escaped) {
            escaped = false;
            if (!(unescape && (c == '\\' || c == '"'))) {
                token.append('\\');
            }
            token.append(c);
            continue;
        }
        if (!noEscapes && c == '\\') {
            escaped = true;
            continue;
        }
        if (inQuote) {
            if (c == inQuote) {
                inQuote = 0;
                if (keepQuotes) {
                    token.append(c);
                }
            } else {
                token.append(c);
            }
            continue;
        }
        if (!delimiterSet.contains(c)) {
            if (c == '"') {
                inQuote = c;
                if (token.empty()) {
                    quotedFromStart = true;
                }
                if (keepQuotes) {
                    token.append(c);
                }
            } else {
                token.append(c);
                if (quotedFromStart && inQuote == 0) {
                    quotedFromStart = false;  // more text follows the closing quote
                }
            }
            continue;
        }
        deliver();
        if (keepDelimiters) {
            Str delimiter(&c, 1);
            handler.onTokenText(delimiter, 0);
        }
    }
    if (!token.empty() || quotedFromStart) {
        deliver();
    }
    return inQuote;
}

char Tokenizer::tokenize(const char* begin, const char* end, std::vector<Str>& tokens,
                         const char* delimiters, bool keepDelimiters, bool keepQuotes,
                         bool noEscapes, bool keepEmpty, bool unescape) {
    VecTokenInserter inserter(tokens, keepEmpty);
    return tokenize(begin, end, inserter, delimiters, keepDelimiters, keepQuotes, noEscapes,
                    unescape);
}

std::vector<Str> Tokenizer::splitList(StrSegment text) {
    std::vector<Str> tokens;
    tokenize(text.begin(), text.end(), tokens, ",", false, false, false, false, true);
    return tokens;
}

}  // namespace morvax
