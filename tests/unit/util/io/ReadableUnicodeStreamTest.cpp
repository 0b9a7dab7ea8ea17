#include "util/io/ReadableUnicodeStream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "unit/util/io/TextStreamTestSupport.h"
#include "util/base/Str.h"
#include "util/io/ReadableUnicodeMemoryStream.h"

namespace morvax {
namespace {

using namespace UnicodeEncoding;
using test::bytes;
using test::segment;

uint32_t detect(const std::string& input, uint32_t encoding = UNKNOWN) {
    ReadableUnicodeMemoryStream stream(segment(input), encoding);
    return stream.detectEncoding();
}

std::vector<std::string> lines(const std::string& input, uint32_t encoding = UNKNOWN,
                               bool replace = false) {
    ReadableUnicodeMemoryStream stream(segment(input), encoding);
    stream.setReplaceInvalid(replace);
    std::vector<std::string> out;
    Str line;
    while (stream.readLine(line)) {
        out.push_back(line.toStdString());
    }
    EXPECT_TRUE(stream.isEof());
    return out;
}

// The whole text, lines joined by LF, for decoding checks that do not care about lines.
std::string text(const std::string& input, uint32_t encoding = UNKNOWN, bool replace = false) {
    std::string out;
    for (const std::string& line : lines(input, encoding, replace)) {
        out += out.empty() ? line : "\n" + line;
    }
    return out;
}

TEST(ReadableUnicodeStreamTest, DetectsMarks) {
    EXPECT_EQ(detect(""), EMPTY);
    EXPECT_EQ(detect(bytes({0xEF, 0xBB, 0xBF})), UTF8 | MARK);
    EXPECT_EQ(detect(bytes({0x00, 0x00, 0xFE, 0xFF})), UTF32BE | MARK);
    EXPECT_EQ(detect(bytes({0xFE, 0xFF})), UTF16BE | MARK);
    EXPECT_EQ(detect(bytes({0xFF, 0xFE})), UTF16LE | MARK);
    EXPECT_EQ(detect(bytes({0xFF, 0xFE, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46})), UTF16LE | MARK);
}

TEST(ReadableUnicodeStreamTest, Utf32LittleEndianNeedsPlausibleGroups) {
    EXPECT_EQ(detect(bytes({0xFF, 0xFE, 0, 0, 0x41, 0, 0, 0})), UTF32LE | MARK);
    // A zero group is accepted right behind the mark only.
    EXPECT_EQ(detect(bytes({0xFF, 0xFE, 0, 0, 0, 0, 0, 0, 0x41, 0, 0, 0})), UTF32LE | MARK);
    EXPECT_EQ(detect(bytes({0xFF, 0xFE, 0, 0, 0x41, 0, 0, 0, 0, 0, 0, 0})), UTF16LE | MARK);
    // Above U+10FFFF, or a surrogate: the bytes are UTF-16 after all.
    EXPECT_EQ(detect(bytes({0xFF, 0xFE, 0, 0, 0x41, 0, 0x42, 0})), UTF16LE | MARK);
    EXPECT_EQ(detect(bytes({0xFF, 0xFE, 0, 0, 0, 0xD8, 0, 0})), UTF16LE | MARK);
    // Fewer than 8 bytes.
    EXPECT_EQ(detect(bytes({0xFF, 0xFE, 0, 0, 0x41, 0, 0})), UTF16LE | MARK);
    // Only the first 64 bytes are looked at: a bad group beyond them does not count.
    std::string longText = bytes({0xFF, 0xFE, 0, 0});
    for (int i = 0; i < 15; ++i) {
        longText += bytes({0x41, 0, 0, 0});
    }
    longText += bytes({0x41, 0, 0x42, 0});
    EXPECT_EQ(detect(longText), UTF32LE | MARK);
}

TEST(ReadableUnicodeStreamTest, DetectsUtf16WithoutMarkByZeroBytes) {
    EXPECT_EQ(detect(std::string("a\0b\0c\0d\0", 8)), UTF16LE);
    EXPECT_EQ(detect(std::string("\0a\0b\0c\0d", 8)), UTF16BE);
    // Three zeros of eight on one side are enough; two are not.
    EXPECT_EQ(detect(std::string("a\0b\0c\0de", 8)), UTF16LE);
    EXPECT_EQ(detect(std::string("a\0b\0cdef", 8)), UTF8);
    // One zero on the other side spoils it.
    EXPECT_EQ(detect(std::string("\0\0b\0c\0d\0", 8)), UTF8);
    // Too short to judge.
    EXPECT_EQ(detect(std::string("a\0b\0c\0", 6)), UTF8);
    EXPECT_EQ(detect("abc"), UTF8);
    EXPECT_EQ(detect("plain ascii text"), UTF8);
}

TEST(ReadableUnicodeStreamTest, ForcedEncodingYieldsOnlyToAMark) {
    EXPECT_EQ(detect(std::string("a\0b\0c\0d\0", 8), UTF8), UTF8);
    EXPECT_EQ(detect("abcdefgh", UTF16BE), UTF16BE);
    EXPECT_EQ(detect("", UTF32BE), UTF32BE);
    EXPECT_EQ(detect(bytes({0xEF, 0xBB, 0xBF, 'a'}), UTF16LE), UTF8 | MARK);
    EXPECT_EQ(detect(bytes({0xFF, 0xFE, 'a', 0}), UTF8), UTF16LE | MARK);
    EXPECT_EQ(text(std::string("a\0b\0", 4), UTF16LE), "ab");
}

TEST(ReadableUnicodeStreamTest, DetectionKeepsTheLineEndFlagAndResetsTheMark) {
    EXPECT_EQ(detect("", CRLF), EMPTY | CRLF);
    EXPECT_EQ(detect("abc", CRLF | MARK), UTF8 | CRLF);
    EXPECT_EQ(detect(bytes({0xFE, 0xFF}), CRLF), UTF16BE | MARK | CRLF);
}

TEST(ReadableUnicodeStreamTest, ByteOrderMarkIsDroppedAnywhere) {
    EXPECT_EQ(text("a\xEF\xBB\xBF"
                   "b\n\xEF\xBB\xBF"
                   "c"),
              "ab\nc");
    EXPECT_EQ(text(bytes({0xFF, 0xFE, 'a', 0, 0xFF, 0xFE, 'b', 0})), "ab");
    // Input that holds nothing but marks has no lines.
    EXPECT_TRUE(lines("\xEF\xBB\xBF\xEF\xBB\xBF").empty());
}

TEST(ReadableUnicodeStreamTest, DecodesUtf8AndRejectsWhatIsNotShortestForm) {
    const std::string valid = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD";
    EXPECT_EQ(text(valid), valid);
    struct Case {
        std::string input;
        std::string replaced;
    };
    const std::string R = "\xEF\xBF\xBD";
    const Case cases[] = {
        {"a\xC0\x80z", "a" + R + R + "z"},                  // overlong NUL
        {"a\xE0\x80\xAFz", "a" + R + R + R + "z"},          // overlong '/'
        {"a\xED\xA0\x80z", "a" + R + R + R + "z"},          // surrogate
        {"a\xF4\x90\x80\x80z", "a" + R + R + R + R + "z"},  // above U+10FFFF
        {"a\xF5\x80z", "a" + R + R + "z"},                  // no such lead byte
        {"a\x80z", "a" + R + "z"},                          // lone continuation
        {"a\xE2\x82z", "a" + R + "z"},                      // cut short; z survives
        {"a\xF0\x9F\x98", "a" + R},                         // cut short by the end
        {"a\xFF\xFEz", "a" + R + R + "z"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(text(c.input, UNKNOWN, true), c.replaced);
        EXPECT_EQ(text(c.input, UNKNOWN, false), c.input.size() > 1 && c.input.back() == 'z'
                                                     ? std::string("az")
                                                     : std::string("a"));
    }
}

TEST(ReadableUnicodeStreamTest, Utf16SurrogatePairsAndLoneHalves) {
    const std::string R = "\xEF\xBF\xBD";
    const std::string mark = bytes({0xFF, 0xFE});
    // U+1F600 as a pair.
    EXPECT_EQ(text(mark + bytes({0x3D, 0xD8, 0x00, 0xDE})), "\xF0\x9F\x98\x80");
    // Lone low half.
    EXPECT_EQ(text(mark + bytes({'a', 0, 0x00, 0xDE, 'b', 0}), UNKNOWN, true), "a" + R + "b");
    EXPECT_EQ(text(mark + bytes({'a', 0, 0x00, 0xDE, 'b', 0})), "ab");
    // High half followed by something else: the something else survives.
    EXPECT_EQ(text(mark + bytes({0x3D, 0xD8, 'b', 0}), UNKNOWN, true), R + "b");
    EXPECT_EQ(text(mark + bytes({0x3D, 0xD8, 0x3D, 0xD8, 0x00, 0xDE})), "\xF0\x9F\x98\x80");
    // High half at the end, and half a unit at the end.
    EXPECT_EQ(text(mark + bytes({'a', 0, 0x3D, 0xD8}), UNKNOWN, true), "a" + R);
    EXPECT_EQ(text(mark + bytes({'a', 0, 0x3D, 0xD8, 0x00}), UNKNOWN, true), "a" + R + R);
    EXPECT_EQ(text(mark + bytes({'a', 0, 'b'}), UNKNOWN, true), "a" + R);
    EXPECT_EQ(text(mark + bytes({'a', 0, 'b'})), "a");
    // Big endian.
    EXPECT_EQ(text(bytes({0xFE, 0xFF, 0xD8, 0x3D, 0xDE, 0x00, 0xDC, 0x00}), UNKNOWN, true),
              "\xF0\x9F\x98\x80" + R);
}

TEST(ReadableUnicodeStreamTest, Utf32RangeChecks) {
    const std::string R = "\xEF\xBF\xBD";
    const std::string mark = bytes({0, 0, 0xFE, 0xFF});
    EXPECT_EQ(text(mark + bytes({0, 0x01, 0xF6, 0x00, 0, 0, 0, 'a'})),
              "\xF0\x9F\x98\x80"
              "a");
    EXPECT_EQ(text(mark + bytes({0, 0x11, 0, 0, 0, 0, 0xD8, 0, 0xFF, 0, 0, 'a', 0, 0, 0, 'b'}),
                   UNKNOWN, true),
              R + R + R + "b");
    EXPECT_EQ(text(mark + bytes({0, 0x11, 0, 0, 0, 0, 0, 'b'})), "b");
    // A truncated unit at the end.
    EXPECT_EQ(text(mark + bytes({0, 0, 0, 'a', 0, 0}), UNKNOWN, true), "a" + R);
    EXPECT_EQ(text(mark + bytes({0, 0, 0, 'a', 0, 0})), "a");
}

TEST(ReadableUnicodeStreamTest, SplitsLines) {
    using V = std::vector<std::string>;
    EXPECT_EQ(lines(""), V{});
    EXPECT_EQ(lines("\n"), V{""});
    EXPECT_EQ(lines("\n\n"), (V{"", ""}));
    EXPECT_EQ(lines("one\r\ntwo\nthree"), (V{"one", "two", "three"}));
    EXPECT_EQ(lines("a\rb\r\n"), V{"a\rb"});
    EXPECT_EQ(lines("a\r\r\n"), V{"a\r"});
    // A CR at the very end goes too, and still makes a line.
    EXPECT_EQ(lines("a\nb\r"), (V{"a", "b"}));
    EXPECT_EQ(lines("a\n\r"), (V{"a", ""}));
    EXPECT_EQ(lines(std::string("a\0b\n", 4)), V{std::string("a\0b", 3)});
    EXPECT_EQ(lines(bytes({0xFE, 0xFF, 0, 'a', 0, '\r', 0, '\n', 0, 'b'})), (V{"a", "b"}));
}

TEST(ReadableUnicodeStreamTest, AnEmptyLineAfterALongerOneIsEmptyText) {
    ReadableUnicodeMemoryStream stream(StrSegment("long line\n\n"));
    Str line;
    ASSERT_TRUE(stream.readLine(line));
    ASSERT_TRUE(stream.readLine(line));
    EXPECT_STREQ(line.c_str(), "");
}

TEST(ReadableUnicodeStreamTest, LineEndFlagFollowsTheMajority) {
    ReadableUnicodeMemoryStream stream(StrSegment("a\r\nb\nc\nd\r\ne\r\n"));
    Str line;
    const uint32_t expected[] = {CRLF, CRLF, 0, 0, CRLF};
    for (uint32_t flag : expected) {
        ASSERT_TRUE(stream.readLine(line));
        EXPECT_EQ(stream.encoding() & CRLF, flag) << line.c_str();
    }
    EXPECT_FALSE(stream.readLine(line));

    // A tie keeps what the lines before it made of the flag; with no line end at all the
    // starting value stands.
    auto finalFlag = [](const std::string& input, uint32_t start) {
        ReadableUnicodeMemoryStream s(segment(input), start);
        Str l;
        while (s.readLine(l)) {
        }
        return s.encoding() & CRLF;
    };
    EXPECT_EQ(finalFlag("a\r\nb\n", UNKNOWN), CRLF);
    EXPECT_EQ(finalFlag("a\nb\r\n", CRLF), 0u);
    EXPECT_EQ(finalFlag("", CRLF), CRLF);
    EXPECT_EQ(finalFlag("x", CRLF), CRLF);
    EXPECT_EQ(finalFlag("a\nb\nc\nd\r", CRLF), 0u);
    std::string sevenAndThree;
    for (int i = 0; i < 10; ++i) {
        sevenAndThree += i < 7 ? "l\r\n" : "l\n";
    }
    EXPECT_EQ(finalFlag(sevenAndThree, UNKNOWN), CRLF);
}

TEST(ReadableUnicodeStreamTest, LineFormsAgree) {
    // Long enough to make the line buffer grow several times.
    std::string longLine;
    for (int i = 0; i < 300; ++i) {
        longLine += "\xC3\xA9\xF0\x9F\x98\x80";
    }
    const std::string input = "first\r\n" + longLine + "\n\nlast";

    ReadableUnicodeMemoryStream narrow(segment(input));
    ReadableUnicodeMemoryStream view(segment(input));
    ReadableUnicodeMemoryStream wide(segment(input));
    Str line;
    StrSegment segment;
    WStr wideLine;
    for (const std::string& expected :
         {std::string("first"), longLine, std::string(), std::string("last")}) {
        ASSERT_TRUE(narrow.readLine(line));
        EXPECT_EQ(line.toStdString(), expected);
        ASSERT_TRUE(view.readLineView(segment));
        EXPECT_EQ(std::string(segment.view()), expected);
        ASSERT_TRUE(wide.readLineWide(wideLine));
        EXPECT_EQ(wideLine, Str::toWide(StrSegment(expected)));
    }
    EXPECT_FALSE(narrow.readLine(line));
    EXPECT_TRUE(line.empty());
    EXPECT_FALSE(view.readLineView(segment));
    EXPECT_FALSE(wide.readLineWide(wideLine));
    EXPECT_TRUE(wide.isEof());
}

// Once the source has said -1 it is never asked again, so a source that would have more (a
// terminal, a growing file) cannot make a finished stream start over.
TEST(ReadableUnicodeStreamTest, SourceIsNotAskedPastItsEnd) {
    class Source : public ReadableUnicodeStream {
      public:
        int readByte() override {
            ++calls;
            return calls == 1 ? 'x' : calls == 2 ? -1 : 'y';
        }
        int calls = 0;
    } source;
    Str line;
    EXPECT_TRUE(source.readLine(line));
    EXPECT_EQ(line, "x");
    EXPECT_FALSE(source.readLine(line));
    EXPECT_FALSE(source.readLine(line));
    EXPECT_EQ(source.calls, 2);
}

}  // namespace
}  // namespace morvax
