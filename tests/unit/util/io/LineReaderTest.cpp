#include "util/io/LineReader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "unit/util/io/LineReaderTestHandles.h"
#include "unit/util/io/TextStreamTestSupport.h"
#include "util/base/LastError.h"
#include "util/io/FileDescriptorLineReader.h"
#include "util/io/FileStarLineReader.h"
#include "util/io/ReadableUnicodeFileStarLineReader.h"

namespace morvax {
namespace {

using namespace UnicodeEncoding;
using test::bytes;
using V = std::vector<std::string>;

V readAll(LineReader& reader) {
    V out;
    Str line;
    while (reader.readLine(line)) {
        out.push_back(line.toStdString());
    }
    EXPECT_TRUE(reader.isEof());
    return out;
}

TEST(LineReaderTest, BaseFlags) {
    FileStarLineReader reader(nullptr);
    EXPECT_EQ(reader.flags(), 0x4004u);
}

TEST(LineReaderTest, UnicodeFileReaderDecodesAcrossBufferBoundaries) {
    test::TempFile file;
    // UTF-16LE with a mark and CR LF line ends, long enough to span several 512-byte reads
    // with pairs split across them.
    std::string content = bytes({0xFF, 0xFE});
    V expected;
    for (int i = 0; i < 80; ++i) {
        std::string line = "line " + std::to_string(i) + " \xF0\x9F\x98\x80";
        expected.push_back(line);
        content += std::string("l\0i\0n\0e\0 \0", 10);
        for (char c : std::to_string(i)) {
            content += std::string(1, c) + '\0';
        }
        content += bytes({' ', 0, 0x3D, 0xD8, 0x00, 0xDE, '\r', 0, '\n', 0});
    }
    ASSERT_GT(content.size(), 1024u);
    file.write(content);

    ReadableUnicodeFileStarLineReader reader(file.open("r"), true);
    EXPECT_EQ(reader.flags(), CRLF);  // nothing read yet
    EXPECT_EQ(readAll(reader), expected);
    EXPECT_EQ(reader.flags(), UTF16LE | MARK | CRLF);
}

TEST(LineReaderTest, UnicodeFileReaderKeepsCarriageReturnsOfTheFile) {
    // Opened with "r": a text-mode translation would lose the CRs and with them the flag.
    test::TempFile file;
    file.write("a\r\nb\r\nc\n");
    ReadableUnicodeFileStarLineReader reader(file.open("r"), true, UNKNOWN);
    EXPECT_EQ(readAll(reader), (V{"a", "b", "c"}));
    EXPECT_EQ(reader.flags(), UTF8 | CRLF);

    test::TempFile empty;
    empty.write("");
    ReadableUnicodeFileStarLineReader emptyReader(empty.open("r"), true);
    EXPECT_EQ(readAll(emptyReader), V{});
    EXPECT_EQ(emptyReader.flags(), EMPTY | CRLF);
}

TEST(LineReaderTest, FileStarReaderTakesBytesAsTheyAre) {
    test::TempFile file;
    std::string longLine(1000, 'x');
    longLine[255] = 'a', longLine[256] = 'b';
    const std::string exact256(256, 'y');
    file.write("\xEF\xBB\xBFone\r\n" + longLine + "\n" + exact256 + "\nmid\rdle\r\n" +
               std::string("nul\0here\n", 9) + "\n" + "last\r");
    FileStarLineReader reader(file.open("r"), true);
    EXPECT_EQ(reader.flags(), 0x4004u);
    EXPECT_EQ(readAll(reader), (V{"\xEF\xBB\xBFone", longLine, exact256, "mid\rdle",
                                  std::string("nul\0here", 8), "", "last"}));
    Str line = "stale";
    EXPECT_FALSE(reader.readLine(line));
    EXPECT_TRUE(line.empty());
}

TEST(LineReaderTest, FileStarReaderEmptyAndLoneLf) {
    test::TempFile empty;
    empty.write("");
    FileStarLineReader emptyReader(empty.open("r"), true);
    EXPECT_EQ(readAll(emptyReader), V{});

    test::TempFile lf;
    lf.write("\n");
    FileStarLineReader lfReader(lf.open("r"), true);
    EXPECT_EQ(readAll(lfReader), V{""});
}

TEST(LineReaderTest, FileDescriptorReaderOverAFile) {
    test::TempFile file;
    std::string big(10000, 'z');
    file.write("one\r\n" + big + "\nmid\rdle\n\nlast");
    intptr_t handle = test::openHandleForRead(file.path());
    ASSERT_NE(handle, -1);
    FileDescriptorLineReader reader(handle, true);
    EXPECT_EQ(readAll(reader), (V{"one", big, "mid\rdle", "", "last"}));
    EXPECT_FALSE(reader.wouldBlock());
    EXPECT_EQ(reader.lastError(), 0u);
}

// Reads a line, waiting a bounded time for data written to the pipe to become readable.
bool readLineWithin(FileDescriptorLineReader& reader, Str& line) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        if (reader.readLine(line)) {
            return true;
        }
        if (!reader.wouldBlock() || std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

TEST(LineReaderTest, FileDescriptorReaderReportsAPipeThatWouldBlock) {
    test::TestPipe pipe;
    ASSERT_TRUE(pipe.isOpen());
    FileDescriptorLineReader reader(pipe.readEnd());
    Str line;

    EXPECT_FALSE(reader.readLine(line));
    EXPECT_TRUE(reader.wouldBlock());
    EXPECT_FALSE(reader.isEof());
    EXPECT_EQ(reader.lastError(), FileDescriptorLineReader::wouldBlockCode());
    EXPECT_EQ(LastError::get(), FileDescriptorLineReader::wouldBlockCode());

    // A partial line is kept until its end arrives.
    ASSERT_TRUE(pipe.write("one\r\ntw"));
    ASSERT_TRUE(readLineWithin(reader, line));
    EXPECT_EQ(line, "one");
    EXPECT_FALSE(reader.readLine(line));
    EXPECT_TRUE(reader.wouldBlock());
    ASSERT_TRUE(pipe.write("o\nthree"));
    ASSERT_TRUE(readLineWithin(reader, line));
    EXPECT_EQ(line, "two");
    EXPECT_FALSE(reader.wouldBlock());

    // Closing the writer ends the input; the unterminated rest is the last line.
    pipe.closeWriteEnd();
    ASSERT_TRUE(readLineWithin(reader, line));
    EXPECT_EQ(line, "three");
    EXPECT_FALSE(reader.readLine(line));
    EXPECT_FALSE(reader.wouldBlock());
    EXPECT_TRUE(reader.isEof());
}

}  // namespace
}  // namespace morvax
