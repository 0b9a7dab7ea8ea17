#pragma once

#include <cstdint>
#include <string>

#include "util/base/StrSegment.h"
#include "util/base/Utf8.h"
#include "util/io/ReadableUnicodeMemoryStream.h"
#include "util/io/ReadableUnicodeStreamLineReader.h"
#include "util/io/UnicodeEncoding.h"

namespace morvax::test {

// The lines of bytes held in memory, decoded as a conf file's are: encoding detected, CR LF
// presumed until the text says otherwise.
class MemoryLines {
  public:
    explicit MemoryLines(std::string bytes)
        : bytes_(std::move(bytes)),
          stream_(StrSegment(bytes_.data(), bytes_.size()), UnicodeEncoding::CRLF),
          reader_(stream_) {}
    MemoryLines(const MemoryLines&) = delete;
    MemoryLines& operator=(const MemoryLines&) = delete;

    LineReader& reader() { return reader_; }

  private:
    std::string bytes_;
    ReadableUnicodeMemoryStream stream_;
    ReadableUnicodeStreamLineReader reader_;
};

// UTF-8 text in one of the file encodings, written independently of the library's writer:
// each LF becomes CR LF with `crLf`, and `mark` puts the byte-order mark first.
inline std::string encodeText(const std::string& utf8, uint32_t encoding, bool mark, bool crLf) {
    std::string out;
    auto unit = [&](uint32_t value, int bytes, bool bigEndian) {
        for (int i = 0; i < bytes; ++i) {
            int shift = 8 * (bigEndian ? bytes - 1 - i : i);
            out.push_back(static_cast<char>((value >> shift) & 0xFF));
        }
    };
    auto put = [&](char32_t cp) {
        switch (encoding) {
            case UnicodeEncoding::UTF16LE:
            case UnicodeEncoding::UTF16BE: {
                char16_t units[2];
                size_t n = Utf8::encodeUtf16(cp, units);
                for (size_t i = 0; i < n; ++i) {
                    unit(units[i], 2, encoding == UnicodeEncoding::UTF16BE);
                }
                break;
            }
            case UnicodeEncoding::UTF32LE:
            case UnicodeEncoding::UTF32BE:
                unit(cp, 4, encoding == UnicodeEncoding::UTF32BE);
                break;
            default: {
                char buf[4];
                out.append(buf, Utf8::encode(cp, buf));
            }
        }
    };
    if (mark) {
        put(0xFEFF);
    }
    const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
    const auto* end = p + utf8.size();
    while (p != end) {
        char32_t cp = Utf8::decode(p, end);
        if (cp == '\n' && crLf) {
            put('\r');
        }
        put(cp);
    }
    return out;
}

}  // namespace morvax::test
