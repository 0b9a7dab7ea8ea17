#pragma once

#include <cstddef>

#include "util/base/StrSegment.h"

namespace morvax {

// The white space of conf files: ASCII blank, tab, CR and LF, and the Unicode spaces (the
// zero-width space among them), held as UTF-8. Bytes that do not decode are never white.
class ConfWhiteSpace {
  public:
    // Whether the code point is white space.
    static bool contains(char32_t cp);
    // The offset of the first character that is not white space; the size when there is none.
    static size_t skipLeading(StrSegment text);
    // The text without white space at either end.
    static StrSegment trim(StrSegment text);
};

}  // namespace morvax
