#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "util/io/WritableUnicodeStream.h"

namespace morvax {

// Encodes text into a stdio file through a buffer of its own. The file should be in binary
// mode (see openFileStar), or the C runtime would add to the line ends.
class WritableUnicodeFileStar : public WritableUnicodeStream {
  public:
    static constexpr size_t BUFFER_SIZE = 512;

    // With `ownsFile` the stream closes the file when it goes.
    explicit WritableUnicodeFileStar(FILE* file, bool ownsFile = false,
                                     uint32_t encoding = UnicodeEncoding::UTF8);
    // Flushes what is left; a failure there can only be seen by flushing first.
    ~WritableUnicodeFileStar() override;

    bool writeByte(uint8_t byte) override;

    // Hands the buffer to the file and flushes the file. False once any write has failed.
    bool flush();
    // Flushes, and closes the file if the stream owns it. Writes after it fail.
    bool close();

    FILE* file() const { return file_; }
    bool failed() const { return failed_; }

  private:
    bool drain();

    FILE* file_;
    bool ownsFile_;
    bool failed_;
    size_t length_ = 0;
    uint8_t buffer_[BUFFER_SIZE];
};

}  // namespace morvax
