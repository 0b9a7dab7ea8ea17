#pragma once

#include <cstdint>

#include "util/io/LineReader.h"
#include "util/io/ReadableUnicodeStream.h"

namespace morvax {

// Lines of any Unicode stream (a file, a memory buffer, a bounded source), handed out as UTF-8.
// The stream is borrowed and must outlive the reader.
class ReadableUnicodeStreamLineReader : public LineReader {
  public:
    explicit ReadableUnicodeStreamLineReader(ReadableUnicodeStream& stream) : stream_(stream) {}
    ~ReadableUnicodeStreamLineReader() override;

    bool readLine(Str& target) override { return stream_.readLine(target); }
    bool isEof() const override { return stream_.isEof(); }
    // The stream's encoding state: encoding, mark and line-end majority.
    uint32_t flags() const override { return stream_.encoding(); }

  private:
    ReadableUnicodeStream& stream_;
};

}  // namespace morvax
