#include "util/io/LineReader.h"

#include "util/io/UnicodeEncoding.h"

namespace morvax {

LineReader::~LineReader() = default;

// A reader that does not decode claims CR LF line ends, with bit 2 set in the low byte.
uint32_t LineReader::flags() const {
    return UnicodeEncoding::CRLF | 0x4;
}

}  // namespace morvax
