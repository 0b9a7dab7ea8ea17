#pragma once

#include <cstdint>

#include "util/base/Str.h"

namespace morvax {

// A uniform source of text lines.
class LineReader {
  public:
    virtual ~LineReader();
    // The next line without its end into `target`; false at the end of the input.
    virtual bool readLine(Str& target) = 0;
    // True once the input has been read to its end.
    virtual bool isEof() const = 0;
    // The encoding state word (UnicodeEncoding) of what was read. Readers that do not decode
    // have no encoding of their own to report.
    virtual uint32_t flags() const;
};

}  // namespace morvax
