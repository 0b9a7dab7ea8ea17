#pragma once

#include <cstdint>

namespace morvax {

// The encoding state word shared by the text readers and writers, and stored by the conf
// files so that a rewrite keeps the encoding, the mark and the line ends of the original.
// The low byte is the encoding; the flags above it are independent of it.
namespace UnicodeEncoding {

constexpr uint32_t UNKNOWN = 0;  // not yet detected
constexpr uint32_t EMPTY = 1;    // the input held no bytes at all
constexpr uint32_t UTF8 = 2;
constexpr uint32_t UTF16LE = 3;
constexpr uint32_t UTF16BE = 4;
constexpr uint32_t UTF32LE = 5;
constexpr uint32_t UTF32BE = 6;
constexpr uint32_t ENCODING_MASK = 0xFF;

// Lines end mostly in CR LF. On its own (16384) it also means "detect the encoding".
constexpr uint32_t CRLF = 0x4000;
// The input began with a byte-order mark.
constexpr uint32_t MARK = 0x8000;

constexpr uint32_t encodingOf(uint32_t state) {
    return state & ENCODING_MASK;
}

}  // namespace UnicodeEncoding

}  // namespace morvax
