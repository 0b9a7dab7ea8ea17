#pragma once

#include <cstdint>
#include <cstdio>

#include "util/io/LineReader.h"
#include "util/io/ReadableUnicodeFileStar.h"

namespace morvax {

// Lines of a stdio file in any of the Unicode encodings, handed out as UTF-8.
class ReadableUnicodeFileStarLineReader : public LineReader {
  public:
    // With `ownsFile` the file is closed with the reader. The default encoding state detects
    // the encoding and presumes CR LF line ends until the text says otherwise.
    explicit ReadableUnicodeFileStarLineReader(FILE* file, bool ownsFile = false,
                                               uint32_t encoding = UnicodeEncoding::CRLF);
    ~ReadableUnicodeFileStarLineReader() override;

    bool readLine(Str& target) override { return stream_.readLine(target); }
    bool isEof() const override { return stream_.isEof(); }
    // The stream's encoding state: encoding, mark and line-end majority.
    uint32_t flags() const override { return stream_.encoding(); }

    ReadableUnicodeFileStar& stream() { return stream_; }

  private:
    ReadableUnicodeFileStar stream_;
};

}  // namespace morvax
