#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "util/io/ReadableUnicodeStream.h"

namespace morvax {

// Decodes a stdio file, read through a buffer of its own. The file should be in binary mode
// (see openFileStar): the decoder handles line ends itself.
class ReadableUnicodeFileStar : public ReadableUnicodeStream {
  public:
    static constexpr size_t BUFFER_SIZE = 512;

    // With `ownsFile` the stream closes the file when it goes. A null file is an empty input.
    explicit ReadableUnicodeFileStar(FILE* file, bool ownsFile = false,
                                     uint32_t encoding = UnicodeEncoding::UNKNOWN);
    ~ReadableUnicodeFileStar() override;

    // A read error counts as the end of the input.
    int readByte() override;

    FILE* file() const { return file_; }

  private:
    FILE* file_;
    bool ownsFile_;
    bool ended_ = false;
    size_t pos_ = 0;
    size_t length_ = 0;
    unsigned char buffer_[BUFFER_SIZE];
};

}  // namespace morvax
