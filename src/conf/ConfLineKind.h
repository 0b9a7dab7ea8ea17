#pragma once

#include <cstdint>

namespace morvax {

// What ConfLineParser::next found, in this numbering.
enum class ConfLineKind : uint32_t {
    END_OF_FILE = 0,
    BLANK = 1,
    // The first character that is not white space is ';' or '#'.
    COMMENT = 2,
    // The first such character is '['; the stanza name comes with it.
    STANZA = 3,
    KEY_VALUE = 4,
    // In .spec reading only: the first such character is '*'.
    STAR_COMMENT = 5,
    UNPARSED = 6,
};

}  // namespace morvax
