// Fuzz target of the text readers. The first two bytes of an input choose the decoder's settings
// and a byte limit; the rest is the text, with or without a mark, in any encoding. Lines come
// out the same as UTF-8, as UTF-16 and as code points; they never hold more than the input
// allows; a limit cuts the text exactly where a shorter input would end; the byte readers of
// files agree with each other and the decoding reader of a file with the one of memory; and
// what was decoded, encoded again and decoded, is the same lines, in the same bytes.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzScratch.h"
#include "FuzzSupport.h"
#include "util/base/Str.h"
#include "util/base/Utf8.h"
#include "util/io/BoundedReadableUnicodeStream.h"
#include "util/io/FileDescriptorLineReader.h"
#include "util/io/FileHandle.h"
#include "util/io/FileStarLineReader.h"
#include "util/io/FileStarOpen.h"
#include "util/io/ReadableUnicodeFileStarLineReader.h"
#include "util/io/ReadableUnicodeMemoryStream.h"
#include "util/io/ReadableUnicodeStreamLineReader.h"
#include "util/io/UnicodeEncoding.h"
#include "util/io/WritableUnicodeStream.h"

namespace morvax {
namespace {

using fuzz::check;
namespace Enc = UnicodeEncoding;

class StringOutput : public WritableUnicodeStream {
  public:
    explicit StringOutput(uint32_t encoding) : WritableUnicodeStream(encoding) {}
    bool writeByte(uint8_t byte) override {
        bytes.push_back(static_cast<char>(byte));
        return true;
    }
    std::string bytes;
};

std::vector<Str> linesOf(ReadableUnicodeStream& stream) {
    std::vector<Str> lines;
    Str line;
    while (stream.readLine(line)) {
        lines.push_back(line);
    }
    check(stream.isEof(), "the stream is read to its end");
    return lines;
}

std::vector<Str> linesOf(LineReader& reader) {
    std::vector<Str> lines;
    Str line;
    while (reader.readLine(line)) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<Str> decode(std::string_view bytes, uint32_t encoding, bool replace) {
    ReadableUnicodeMemoryStream stream(StrSegment(bytes.data(), bytes.size()), encoding);
    stream.setReplaceInvalid(replace);
    return linesOf(stream);
}

// Lines as the byte readers cut them: at LF, with one CR before it.
std::vector<Str> byteLines(std::string_view bytes) {
    std::vector<Str> lines;
    size_t start = 0;
    while (start < bytes.size()) {
        size_t end = bytes.find('\n', start);
        const size_t next = end == std::string_view::npos ? bytes.size() : end + 1;
        if (end == std::string_view::npos) {
            end = bytes.size();
        }
        if (end > start && bytes[end - 1] == '\r') {
            --end;
        }
        lines.emplace_back(bytes.data() + start, end - start);
        start = next;
    }
    return lines;
}

// Every line and a CR LF of its own, so that a CR the line ends with stays its own.
std::string encode(const std::vector<Str>& lines, uint32_t encoding, bool mark) {
    StringOutput out(encoding);
    if (mark) {
        out.writeMark();
    }
    for (const Str& line : lines) {
        out.write(line);
        out.write(StrSegment("\r\n", 2));
    }
    return out.bytes;
}

void checkReencoding(const std::vector<Str>& lines, uint32_t encoding, bool mark) {
    const std::string bytes = encode(lines, encoding, mark);
    const std::vector<Str> again = decode(bytes, encoding, false);
    check(again == lines, "decoded text encoded again decodes to the same lines");
    check(encode(again, encoding, mark) == bytes, "encoding again gives the same bytes");
}

void checkDecoding(std::string_view bytes, uint32_t encoding, bool replace) {
    const StrSegment segment(bytes.data(), bytes.size());
    const std::vector<Str> lines = decode(bytes, encoding, replace);

    ReadableUnicodeMemoryStream wideStream(segment, encoding);
    wideStream.setReplaceInvalid(replace);
    std::vector<Str> wideLines;
    WStr wide;
    size_t units = 0;
    while (wideStream.readLineWide(wide)) {
        units += wide.size();
        wideLines.push_back(Str::fromWide(wide));
    }
    check(wideLines == lines, "UTF-16 lines are the UTF-8 lines");
    check(units <= bytes.size(), "no more UTF-16 units than input bytes");

    ReadableUnicodeMemoryStream pointStream(segment, encoding);
    pointStream.setReplaceInvalid(replace);
    std::string text;
    for (int32_t cp; (cp = pointStream.readCodePoint()) >= 0;) {
        check(cp <= 0x10FFFF && (cp < 0xD800 || cp > 0xDFFF) && cp != 0xFEFF,
              "code points are scalar values other than the mark");
        char buffer[4];
        text.append(buffer, Utf8::encode(static_cast<char32_t>(cp), buffer));
    }
    check(byteLines(text) == lines, "lines are the code points cut at LF");

    size_t total = 0;
    for (const Str& line : lines) {
        total += line.size();
    }
    check(lines.size() <= bytes.size(), "no more lines than input bytes");
    const uint32_t detected = Enc::encodingOf(wideStream.encoding());
    check(detected == Enc::encodingOf(pointStream.encoding()), "one detection for one input");
    check(total <= (detected == Enc::UTF8 && !replace ? bytes.size() : 3 * bytes.size()),
          "decoded text within the input's size");

    // Encodings whose mark cannot be taken for another one's when the text follows it.
    checkReencoding(lines, Enc::UTF8, false);
    checkReencoding(lines, Enc::UTF8, true);
    checkReencoding(lines, Enc::UTF16BE, true);
    checkReencoding(lines, Enc::UTF32BE, true);
    if (lines.empty() || lines[0].empty() || lines[0][0] != '\0') {
        checkReencoding(lines, Enc::UTF16LE, true);
    }
}

void checkBound(std::string_view bytes, uint32_t encoding, uint64_t limit) {
    ReadableUnicodeMemoryStream source(StrSegment(bytes.data(), bytes.size()));
    BoundedReadableUnicodeStream bounded(source, limit, encoding);
    const std::vector<Str> lines = linesOf(bounded);
    const std::string_view kept = bytes.substr(0, limit < bytes.size() ? limit : bytes.size());
    check(lines == decode(kept, encoding, false), "a bound cuts the text where its bytes end");
    check(bounded.exceeded() == (bytes.size() > limit), "exceeded only beyond the bound");
}

void checkFiles(std::string_view bytes, const fuzz::ScratchDirectory& scratch) {
    const std::filesystem::path path = scratch.path() / "text";
    check(fuzz::ScratchDirectory::write(path, bytes.data(), bytes.size()), "the input is written");
    const Pathname name = fuzz::ScratchDirectory::pathname(path);
    const std::vector<Str> expected = byteLines(bytes);

    FileStarLineReader starReader(openFileStar(name.c_str(), "rb"), true);
    check(linesOf(starReader) == expected, "a file's byte lines cut at LF");
    check(starReader.isEof(), "the file is read to its end");

    FileHandle handle = name.openForRead();
    check(static_cast<bool>(handle), "the input opens");
    FileDescriptorLineReader handleReader(handle.release(), true);
    check(linesOf(handleReader) == expected, "a handle's lines are the file's lines");
    check(handleReader.isEof() && !handleReader.wouldBlock(), "the handle is read to its end");

    ReadableUnicodeFileStarLineReader textReader(openFileStar(name.c_str(), "rb"), true);
    ReadableUnicodeMemoryStream memory(StrSegment(bytes.data(), bytes.size()), Enc::CRLF);
    ReadableUnicodeStreamLineReader memoryReader(memory);
    check(linesOf(textReader) == linesOf(memoryReader), "a file decodes as memory does");
    check(textReader.flags() == memoryReader.flags(), "a file's encoding is memory's");
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    static const fuzz::ScratchDirectory scratch("text");
    const uint8_t settings = size > 0 ? data[0] : 0;
    const uint8_t limitByte = size > 1 ? data[1] : 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + (size > 2 ? 2 : size),
                                 size > 2 ? size - 2 : 0);

    // The low bits force an encoding (0 detects); bit 3 replaces invalid input.
    static const uint32_t kEncodings[] = {Enc::UNKNOWN, Enc::UTF8,    Enc::UTF16LE, Enc::UTF16BE,
                                          Enc::UTF32LE, Enc::UTF32BE, Enc::UNKNOWN, Enc::UNKNOWN};
    const uint32_t encoding = kEncodings[settings & 7] | ((settings & 16) ? Enc::CRLF : 0);
    checkDecoding(bytes, encoding, (settings & 8) != 0);
    checkBound(bytes, encoding, limitByte == 255 ? UINT64_MAX : limitByte);
    checkFiles(bytes, scratch);
    return 0;
}
