#pragma once

#include <cstddef>
#include <cstdint>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/io/UnicodeEncoding.h"

namespace morvax {

// Text input in UTF-8, UTF-16 or UTF-32, with or without a byte-order mark. The encoding is
// detected from the first bytes; lines come out as UTF-8 or UTF-16 whatever the input was.
// Subclasses only supply bytes. What comes out depends on those bytes alone, and no byte
// sequence can make the decoder fail: invalid input is dropped or becomes U+FFFD.
// A stream belongs to one thread.
class ReadableUnicodeStream {
  public:
    static constexpr size_t SNIFF_SIZE = 64;
    static constexpr size_t INITIAL_LINE_CAPACITY = 128;

    // `encoding` is a state word (UnicodeEncoding). A low byte of 0 detects the encoding; any
    // other forces it, though a byte-order mark still wins. The CRLF flag is the starting value
    // of the line-end majority.
    explicit ReadableUnicodeStream(uint32_t encoding = UnicodeEncoding::UNKNOWN);
    virtual ~ReadableUnicodeStream();

    ReadableUnicodeStream(const ReadableUnicodeStream&) = delete;
    ReadableUnicodeStream& operator=(const ReadableUnicodeStream&) = delete;

    // The next byte, 0 to 255, or -1 at the end of the input. Once it has given -1 it is not
    // asked again.
    virtual int readByte() = 0;

    // With replacement invalid input becomes U+FFFD; without, it is dropped.
    void setReplaceInvalid(bool replace) { replaceInvalid_ = replace; }
    bool replaceInvalid() const { return replaceInvalid_; }

    // Reads the first bytes and settles the encoding unless that has happened; returns the
    // state word.
    uint32_t detectEncoding();
    // The state word as it stands: the encoding once detected, MARK, and CRLF as the lines
    // read so far have it.
    uint32_t encoding() const { return encoding_; }

    // The next code point, or -1 at the end of the input. U+FEFF never comes out.
    int32_t readCodePoint();

    // The next line, without LF and without a CR before it, into `target` as UTF-8. False at
    // the end of the input (or when the line buffer cannot grow).
    bool readLine(Str& target);
    // The same as a view of the stream's own buffer, valid until the next read.
    bool readLineView(StrSegment& view);
    // The same in UTF-16.
    bool readLineWide(WStr& target);

    // True once the input has been read to its end.
    bool isEof() const { return decoderEnded_; }

  private:
    static constexpr int32_t END = -1;
    static constexpr int32_t INVALID = -2;

    enum SniffState : uint32_t { SNIFF_NOTHING_READ = 0, SNIFF_REPLAYING = 1, SNIFF_LIVE = 2 };

    int nextByte();
    void pushBack(int byte) { pushback_[pushbackCount_++] = static_cast<unsigned char>(byte); }
    int32_t decodeUtf8();
    int32_t decodeUtf16(bool bigEndian);
    int32_t decodeUtf32(bool bigEndian);
    bool utf32LeGroupsValid(size_t length) const;
    bool readLineInto(bool wide);
    bool reserveLine(size_t extra);
    void countLineEnd(bool removedCr, bool sawLf);

    uint32_t encoding_;
    bool replaceInvalid_ = false;
    SniffState sniffState_ = SNIFF_NOTHING_READ;
    unsigned char sniffBuffer_[SNIFF_SIZE];
    size_t sniffLength_ = 0;
    size_t sniffPos_ = 0;
    // Look-ahead given back: the unit behind a lone UTF-16 high surrogate, or the byte that
    // broke a UTF-8 sequence. Never more than two bytes at once.
    unsigned char pushback_[4];
    size_t pushbackCount_ = 0;
    bool sourceEnded_ = false;
    bool decoderEnded_ = false;
    char* line_ = nullptr;
    size_t lineLength_ = 0;
    size_t lineCapacity_ = 0;
    uint32_t crLfLines_ = 0;
    uint32_t lfLines_ = 0;
};

}  // namespace morvax
