#pragma once

#include <cstddef>
#include <cstdint>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/io/UnicodeEncoding.h"

namespace morvax {

// Text output in UTF-8, UTF-16 or UTF-32 of either byte order. Text comes in as UTF-8 or
// UTF-16 and is transcoded; invalid input is written as U+FFFD. Subclasses only take bytes.
// A stream belongs to one thread.
class WritableUnicodeStream {
  public:
    // `encoding` is a state word (UnicodeEncoding). Its low byte picks the encoding; any value
    // other than the UTF-16 and UTF-32 ones means UTF-8. With the CRLF flag a CR is written
    // before every LF that does not already follow one. The MARK flag is the caller's to act
    // on, by calling writeMark first.
    explicit WritableUnicodeStream(uint32_t encoding = UnicodeEncoding::UTF8);
    virtual ~WritableUnicodeStream();

    WritableUnicodeStream(const WritableUnicodeStream&) = delete;
    WritableUnicodeStream& operator=(const WritableUnicodeStream&) = delete;

    // False when the byte could not be taken.
    virtual bool writeByte(uint8_t byte) = 0;

    // UTF8, UTF16LE, UTF16BE, UTF32LE or UTF32BE.
    uint32_t encoding() const { return encoding_; }
    bool crLf() const { return crLf_; }

    // The byte-order mark: 3 bytes in UTF-8, 2 in UTF-16, 4 in UTF-32.
    bool writeMark();
    // Each of these stops at the first byte that cannot be written and answers false.
    bool writeCodePoint(char32_t cp);
    bool write(StrSegment utf8);
    bool writeWide(const char16_t* wide, size_t length);
    bool writeWide(const WStr& wide) { return writeWide(wide.data(), wide.size()); }

  private:
    bool encode(char32_t cp);

    uint32_t encoding_;
    bool crLf_;
    bool afterCr_ = false;
};

}  // namespace morvax
