#include "util/io/WritableUnicodeStream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "unit/util/io/TextStreamTestSupport.h"
#include "util/io/ReadableUnicodeFileStar.h"
#include "util/io/ReadableUnicodeMemoryStream.h"
#include "util/io/WritableUnicodeFileStar.h"

namespace morvax {
namespace {

using namespace UnicodeEncoding;
using test::bytes;
using test::segment;

class MemoryWriter : public WritableUnicodeStream {
  public:
    explicit MemoryWriter(uint32_t encoding, size_t limit = SIZE_MAX)
        : WritableUnicodeStream(encoding), limit_(limit) {}
    bool writeByte(uint8_t byte) override {
        if (out.size() == limit_) {
            return false;
        }
        out.push_back(static_cast<char>(byte));
        return true;
    }
    std::string out;

  private:
    size_t limit_;
};

const uint32_t ALL_ENCODINGS[] = {UTF8, UTF16LE, UTF16BE, UTF32LE, UTF32BE};

TEST(WritableUnicodeStreamTest, MarkOfEachEncoding) {
    const std::string expected[] = {
        bytes({0xEF, 0xBB, 0xBF}), bytes({0xFF, 0xFE}),       bytes({0xFE, 0xFF}),
        bytes({0xFF, 0xFE, 0, 0}), bytes({0, 0, 0xFE, 0xFF}),
    };
    for (size_t i = 0; i < 5; ++i) {
        MemoryWriter writer(ALL_ENCODINGS[i]);
        EXPECT_TRUE(writer.writeMark());
        EXPECT_EQ(writer.out, expected[i]) << ALL_ENCODINGS[i];
    }
}

TEST(WritableUnicodeStreamTest, EncodesEachEncodingExactly) {
    const std::string text = "A\xE2\x82\xAC\xF0\x9F\x98\x80";  // A, U+20AC, U+1F600
    const std::string expected[] = {
        text,
        bytes({0x41, 0, 0xAC, 0x20, 0x3D, 0xD8, 0x00, 0xDE}),
        bytes({0, 0x41, 0x20, 0xAC, 0xD8, 0x3D, 0xDE, 0x00}),
        bytes({0x41, 0, 0, 0, 0xAC, 0x20, 0, 0, 0x00, 0xF6, 0x01, 0}),
        bytes({0, 0, 0, 0x41, 0, 0, 0x20, 0xAC, 0, 0x01, 0xF6, 0x00}),
    };
    for (size_t i = 0; i < 5; ++i) {
        MemoryWriter narrow(ALL_ENCODINGS[i]);
        EXPECT_TRUE(narrow.write(segment(text)));
        EXPECT_EQ(narrow.out, expected[i]) << ALL_ENCODINGS[i];
        MemoryWriter wide(ALL_ENCODINGS[i]);
        EXPECT_TRUE(wide.writeWide(u"A\u20AC\U0001F600"));
        EXPECT_EQ(wide.out, expected[i]) << ALL_ENCODINGS[i];
    }
}

TEST(WritableUnicodeStreamTest, UnknownEncodingsWriteUtf8) {
    EXPECT_EQ(MemoryWriter(UNKNOWN).encoding(), UTF8);
    EXPECT_EQ(MemoryWriter(EMPTY | MARK).encoding(), UTF8);
    EXPECT_EQ(MemoryWriter(UTF16BE | MARK | CRLF).encoding(), UTF16BE);
}

TEST(WritableUnicodeStreamTest, InvalidInputBecomesReplacement) {
    MemoryWriter narrow(UTF16LE);
    EXPECT_TRUE(
        narrow.write("a\xC0\x80"
                     "b"));
    EXPECT_EQ(narrow.out, bytes({'a', 0, 0xFD, 0xFF, 0xFD, 0xFF, 'b', 0}));

    MemoryWriter wide(UTF8);
    const char16_t lone[] = {u'a', 0xDC00, 0xD800, u'b', 0xD800};
    EXPECT_TRUE(wide.writeWide(lone, 5));
    EXPECT_EQ(wide.out,
              "a\xEF\xBF\xBD\xEF\xBF\xBD"
              "b\xEF\xBF\xBD");

    MemoryWriter points(UTF32BE);
    EXPECT_TRUE(points.writeCodePoint(0x110000));
    EXPECT_EQ(points.out, bytes({0, 0, 0xFF, 0xFD}));
}

TEST(WritableUnicodeStreamTest, CrLfFlagAddsMissingCarriageReturns) {
    MemoryWriter writer(UTF8 | CRLF);
    EXPECT_TRUE(writer.write("a\nb\r\n"));
    // A CR at the end of one write still counts for an LF that starts the next.
    EXPECT_TRUE(writer.write("c\r"));
    EXPECT_TRUE(writer.write("\nd\n\n"));
    EXPECT_EQ(writer.out, "a\r\nb\r\nc\r\nd\r\n\r\n");

    MemoryWriter wide(UTF16BE | CRLF);
    EXPECT_TRUE(wide.writeWide(u"\n"));
    EXPECT_EQ(wide.out, bytes({0, '\r', 0, '\n'}));

    MemoryWriter plain(UTF8);
    EXPECT_TRUE(plain.write("a\nb\r\n"));
    EXPECT_EQ(plain.out, "a\nb\r\n");
}

TEST(WritableUnicodeStreamTest, StopsAtTheFirstFailedByte) {
    MemoryWriter writer(UTF32LE, 6);
    EXPECT_TRUE(writer.write("a"));
    EXPECT_FALSE(writer.write("bc"));
    EXPECT_EQ(writer.out.size(), 6u);
}

// What the writer puts out, with its mark, the reader detects and gives back line for line.
TEST(WritableUnicodeStreamTest, RoundTripsThroughTheReader) {
    const std::vector<std::string> lines = {"first", "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80",
                                            "", "tab\there", "last"};
    for (uint32_t encoding : ALL_ENCODINGS) {
        for (bool mark : {true, false}) {
            MemoryWriter writer(encoding | CRLF);
            if (mark) {
                ASSERT_TRUE(writer.writeMark());
            }
            for (const std::string& line : lines) {
                ASSERT_TRUE(writer.write(segment(line)));
                ASSERT_TRUE(writer.write("\n"));
            }
            ReadableUnicodeMemoryStream reader(segment(writer.out));
            uint32_t detected = reader.detectEncoding();
            if (mark) {
                EXPECT_EQ(detected, encoding | MARK);
            } else if (encoding == UTF8 || encoding == UTF16LE || encoding == UTF16BE) {
                // Mostly ASCII, so UTF-16 is recognised by its zero bytes; UTF-32 is not
                // guessed without its mark.
                EXPECT_EQ(detected, encoding);
            } else {
                continue;
            }
            std::vector<std::string> back;
            Str line;
            while (reader.readLine(line)) {
                back.push_back(line.toStdString());
            }
            EXPECT_EQ(back, lines) << encoding << " mark " << mark;
            EXPECT_EQ(reader.encoding() & CRLF, CRLF);
        }
    }
}

TEST(WritableUnicodeStreamTest, FileStarBuffersFlushesAndCloses) {
    test::TempFile file;
    std::string expected = bytes({0xFE, 0xFF});
    {
        FILE* f = file.open("w");
        ASSERT_NE(f, nullptr);
        WritableUnicodeFileStar writer(f, true, UTF16BE);
        ASSERT_TRUE(writer.writeMark());
        // More than one buffer's worth.
        for (int i = 0; i < 300; ++i) {
            ASSERT_TRUE(writer.write("x\n"));
            expected += bytes({0, 'x', 0, '\n'});
        }
        ASSERT_TRUE(writer.flush());
        EXPECT_EQ(file.read(), expected);
        ASSERT_TRUE(writer.write("end"));
        expected += bytes({0, 'e', 0, 'n', 0, 'd'});
        EXPECT_FALSE(writer.failed());
    }
    // The destructor flushed the rest and closed the file.
    EXPECT_EQ(file.read(), expected);

    ReadableUnicodeFileStar reader(file.open("r"), true);
    Str line;
    int count = 0;
    while (reader.readLine(line)) {
        ++count;
    }
    EXPECT_EQ(count, 301);
    EXPECT_EQ(line.toStdString(), "");
    EXPECT_EQ(reader.encoding(), UTF16BE | MARK);
}

TEST(WritableUnicodeStreamTest, FileStarCloseLeavesABorrowedFileOpen) {
    test::TempFile file;
    FILE* f = file.open("w");
    ASSERT_NE(f, nullptr);
    WritableUnicodeFileStar writer(f);
    ASSERT_TRUE(writer.write("abc"));
    ASSERT_TRUE(writer.close());
    EXPECT_FALSE(writer.write("d"));
    EXPECT_GE(std::fputs("def", f), 0);
    ASSERT_EQ(std::fclose(f), 0);
    EXPECT_EQ(file.read(), "abcdef");
}

}  // namespace
}  // namespace morvax
