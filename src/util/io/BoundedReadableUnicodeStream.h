#pragma once

#include <cstdint>

#include "util/io/ReadableUnicodeStream.h"

namespace morvax {

// Decodes at most `limit` bytes of another stream's bytes, so that untrusted input cannot make
// a line or a whole text grow without end. What lies beyond the limit is not decoded; exceeded()
// tells the caller that the text was cut, so that it can refuse it rather than use a part.
// The source is borrowed; only its bytes are taken, not its decoding.
class BoundedReadableUnicodeStream : public ReadableUnicodeStream {
  public:
    BoundedReadableUnicodeStream(ReadableUnicodeStream& source, uint64_t limit,
                                 uint32_t encoding = UnicodeEncoding::UNKNOWN);
    ~BoundedReadableUnicodeStream() override;

    int readByte() override;

    // True once a byte beyond the limit was seen.
    bool exceeded() const { return exceeded_; }

  private:
    ReadableUnicodeStream& source_;
    uint64_t limit_;
    uint64_t count_ = 0;
    bool exceeded_ = false;
};

}  // namespace morvax
