#pragma once

#include <cstddef>

#include "util/base/StrSegment.h"
#include "util/io/ReadableUnicodeStream.h"

namespace morvax {

// Decodes bytes held in memory; the bytes must outlive the stream.
class ReadableUnicodeMemoryStream : public ReadableUnicodeStream {
  public:
    explicit ReadableUnicodeMemoryStream(StrSegment bytes,
                                         uint32_t encoding = UnicodeEncoding::UNKNOWN)
        : ReadableUnicodeStream(encoding), bytes_(bytes) {}

    int readByte() override {
        return pos_ < bytes_.size() ? static_cast<unsigned char>(bytes_[pos_++]) : -1;
    }

  private:
    StrSegment bytes_;
    size_t pos_ = 0;
};

}  // namespace morvax
