#pragma once

#include <vector>

#include "util/base/ITokenHandler.h"
#include "util/base/Str.h"

namespace morvax {

// Splits text on delimiter bytes, with double quotes and backslash escapes.
class Tokenizer {
  public:
    // Returns the quote character if the input ended inside a quote, else 0.
    static char tokenize(const char* begin, const char* end, ITokenHandler& handler,
                         const char* delimiters, bool keepDelimiters, bool keepQuotes,
                         bool noEscapes, bool unescape);
    static char tokenize(const char* begin, const char* end, std::vector<Str>& tokens,
                         const char* delimiters, bool keepDelimiters, bool keepQuotes,
                         bool noEscapes, bool keepEmpty, bool unescape);
    // The collector's form for lists of names: "," with the flags 0, 0, 0, 0, 1.
    static std::vector<Str> splitList(StrSegment text);
};

}  // namespace morvax
