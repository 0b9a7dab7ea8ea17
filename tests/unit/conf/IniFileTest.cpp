#include "conf/IniFile.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "unit/conf/ConfTestSupport.h"
#include "unit/util/log/LogTestSupport.h"
#include "util/base/LogLevel.h"
#include "util/io/FileHandle.h"
#include "util/io/UnicodeEncoding.h"

namespace morvax {
namespace {

using namespace UnicodeEncoding;

IniFile fromText(const std::string& text, const char* name = "test.conf") {
    test::MemoryLines lines(text);
    return IniFile(lines.reader(), Pathname(name));
}

std::vector<std::string> names(const IniFile& file) {
    std::vector<std::string> out;
    for (const auto& entry : file.stanzas()) {
        out.push_back(entry.first.toStdString());
    }
    return out;
}

std::vector<std::string> keys(const IniFile& file, const char* stanza) {
    std::vector<std::string> out;
    if (const IniStanza* found = file.stanza(Str(stanza))) {
        for (const auto& entry : found->entries) {
            out.push_back(entry.first.toStdString());
        }
    }
    return out;
}

std::vector<std::string> texts(const std::vector<Str>& lines) {
    std::vector<std::string> out;
    for (const Str& line : lines) {
        out.push_back(line.toStdString());
    }
    return out;
}

std::string valueOf(const IniFile& file, const char* stanza, const char* key) {
    const Str* value = file.value(Str(stanza), Str(key));
    return value ? value->toStdString() : "<absent>";
}

std::string where(const char* name, int line) {
    return Pathname(name).toStr().toStdString() + ", line " + std::to_string(line);
}

// Reads the file into an IniFile and flushes it back where it was.
std::string rewrite(const test::TempDirectory& dir, const std::string& name,
                    const std::string& bytes) {
    test::writeFile(dir.path(name), bytes);
    IniFile file(dir.pathname(name));
    EXPECT_TRUE(file.isLoaded()) << file.error().c_str();
    EXPECT_NE(file.flush(), 0) << file.error().c_str();
    return test::readFile(dir.path(name));
}

size_t entriesIn(const test::TempDirectory& dir) {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::u8path(dir.text()))) {
        ++count;
    }
    return count;
}

TEST(IniFileTest, KeepsCommentsWhereTheyStood) {
    test::LogCapture capture;
    IniFile file = fromText(
        "# head\n"
        "\n"
        "[s]\n"
        "# before a\n"
        "a = 1\n"
        "novalue\n"
        "b = 2\n"
        "a = 3\n"
        "; before t\n"
        "[t]\n"
        "[s]\n"
        "c = 4\n"
        "# tail\n");
    EXPECT_TRUE(file.isLoaded());
    EXPECT_EQ(texts(file.headComments()), (std::vector<std::string>{"# head", ""}));
    EXPECT_EQ(texts(file.tailComments()), std::vector<std::string>{"# tail"});
    EXPECT_EQ(names(file), (std::vector<std::string>{"s", "t"}));
    // A repeated header goes on with the first stanza; a repeated key keeps its first value.
    EXPECT_EQ(keys(file, "s"), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(valueOf(file, "s", "a"), "1");
    EXPECT_EQ(texts(file.stanza(Str("t"))->comments), std::vector<std::string>{"; before t"});
    EXPECT_EQ(texts(file.stanza(Str("s"))->entries.find(Str("a"))->comments),
              std::vector<std::string>{"# before a"});
    // The line that does not parse is kept as a comment of the next key.
    EXPECT_EQ(texts(file.stanza(Str("s"))->entries.find(Str("b"))->comments),
              std::vector<std::string>{"novalue"});
    EXPECT_TRUE(capture.has(
        LOG_WARN,
        where("test.conf", 8) + ": Key used more than once in the same stanza: a: a = 3"));
}

TEST(IniFileTest, KeysBeforeAnyHeaderBelongToDefaultExceptInMetaFiles) {
    IniFile conf = fromText("# c\nk=1\n[x]\n[default]\nj=2\n");
    EXPECT_EQ(names(conf), (std::vector<std::string>{"default", "x"}));
    EXPECT_EQ(keys(conf, "default"), (std::vector<std::string>{"k", "j"}));
    EXPECT_TRUE(conf.headComments().size() == 1);

    test::LogCapture capture;
    IniFile meta = fromText("k=1\n[x]\nj=2\n", "foo.meta");
    EXPECT_EQ(names(meta), std::vector<std::string>{"x"});
    EXPECT_EQ(capture.texts("IniFile"),
              std::vector<std::string>{where("foo.meta", 1) + ": Incorrect Stanza Format : k=1"});
}

TEST(IniFileTest, OpensFilesAndTellsWhyNot) {
    IniFile fresh;
    EXPECT_EQ(fresh.error(), "Not yet initialized");

    test::TempDirectory dir("conf-lines-open");
    test::LogCapture capture;
    IniFile missing(dir.pathname("none.conf"));
    const std::string prefix = "Cannot open file=" + dir.path("none.conf") + " for parsing: ";
    EXPECT_EQ(missing.error().toStdString().rfind(prefix, 0), 0u) << missing.error().c_str();
    // Logged at DEBUG only, so nothing shows at the default level.
    EXPECT_TRUE(capture.lines().empty());

    // A failed parse keeps the old content; the path still changes.
    test::writeFile(dir.path("a.conf"), "[s]\nk = v\n");
    IniFile file(dir.pathname("a.conf"));
    EXPECT_TRUE(file.isLoaded());
    EXPECT_FALSE(file.parse(dir.pathname("none.conf")));
    EXPECT_EQ(valueOf(file, "s", "k"), "v");
    EXPECT_TRUE(file.path() == dir.pathname("none.conf"));

    // An empty file: nothing in it, and written back empty as UTF-8 with CR LF presumed.
    test::writeFile(dir.path("empty.conf"), "");
    IniFile empty(dir.pathname("empty.conf"));
    EXPECT_TRUE(empty.isLoaded());
    EXPECT_TRUE(empty.stanzas().empty() && empty.headComments().empty());
    EXPECT_EQ(empty.encodingState(), EMPTY | CRLF);
    EXPECT_NE(empty.flush(), 0);
    EXPECT_EQ(test::readFile(dir.path("empty.conf")), "");
}

TEST(IniFileTest, WritesEntriesSoThatTheyReadBackTheSame) {
    test::TempDirectory dir("conf-lines-canonical");
    const std::string written = rewrite(dir, "c.conf",
                                        "k=v\n"
                                        "[s]\n"
                                        "e =\n"
                                        "a\\=b\\[c\\\\d = 1\n"
                                        "m = one\\\n  two\n"
                                        "t = ends\\ \n"
                                        "\\#h = 2\n"
                                        "[u]\n"
                                        "x=y\n");
    EXPECT_EQ(written,
              "[default]\n"
              "k = v\n"
              "\n"
              "[s]\n"
              "e = \n"
              "a\\=b\\[c\\\\d = 1\n"
              "m = one\\\n  two\n"
              "t = ends\\ \n"
              "\\#h = 2\n"
              "\n"
              "[u]\n"
              "x = y\n");
    IniFile again(dir.pathname("c.conf"));
    EXPECT_EQ(keys(again, "s"), (std::vector<std::string>{"e", "a=b[c\\d", "m", "t", "#h"}));
    EXPECT_EQ(valueOf(again, "s", "m"), "one\n  two");
    EXPECT_EQ(valueOf(again, "s", "t"), "ends\\");
}

TEST(IniFileTest, RoundTripsEveryEncodingMarkAndLineEnd) {
    // Canonical text, so that only the encoding could change it: comments, a blank line, text
    // outside the BMP (a surrogate pair in UTF-16).
    const std::string text =
        "# r\xC3\xA9sum\xC3\xA9\n"
        "[s]\n"
        "k = \xE2\x82\xAC \xF0\x9F\x98\x80\n"
        "\n"
        "; note\n"
        "[t]\n"
        "j = 2\n";
    struct Form {
        uint32_t encoding;
        bool mark;
    };
    const Form forms[] = {{UTF8, false},   {UTF8, true},    {UTF16LE, true}, {UTF16LE, false},
                          {UTF16BE, true}, {UTF32LE, true}, {UTF32BE, true}};
    test::TempDirectory dir("conf-lines-encodings");
    for (const Form& form : forms) {
        for (bool crLf : {false, true}) {
            SCOPED_TRACE(testing::Message() << "encoding " << form.encoding << " mark " << form.mark
                                            << " crlf " << crLf);
            const std::string bytes = test::encodeText(text, form.encoding, form.mark, crLf);
            EXPECT_EQ(rewrite(dir, "e.conf", bytes), bytes);
            IniFile file(dir.pathname("e.conf"));
            EXPECT_EQ(encodingOf(file.encodingState()), form.encoding);
            EXPECT_EQ(valueOf(file, "s", "k"), "\xE2\x82\xAC \xF0\x9F\x98\x80");
        }
    }

    // The majority of line ends wins: seven CR LF and three LF, and the other way round.
    const std::string mostlyCrLf =
        "[a]\r\nb = 1\r\nc = 2\nd = 3\r\ne = 4\r\n#x\nf = 5\r\n\r\n"
        "[g]\r\nh = 6\n";
    EXPECT_EQ(rewrite(dir, "m.conf", mostlyCrLf),
              "[a]\r\nb = 1\r\nc = 2\r\nd = 3\r\ne = 4\r\n#x\r\nf = 5\r\n\r\n[g]\r\nh = 6\r\n");
    const std::string mostlyLf =
        "[a]\nb = 1\r\nc = 2\nd = 3\ne = 4\r\n#x\nf = 5\n\n"
        "[g]\r\nh = 6\n";
    EXPECT_EQ(rewrite(dir, "m.conf", mostlyLf),
              "[a]\nb = 1\nc = 2\nd = 3\ne = 4\n#x\nf = 5\n\n[g]\nh = 6\n");
}

TEST(IniFileTest, RemovesStanzasWithoutLeavingABlankHead) {
    IniFile file = fromText("# head\n[a]\nk = 1\n\n[b]\nj = 2\n\n# c\n[c]\n");
    IniFile copy = file;
    file.removeStanza(Str("b"));
    EXPECT_EQ(names(file), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(texts(file.stanza(Str("c"))->comments), (std::vector<std::string>{"", "# c"}));
    file.removeStanza(Str("a"));
    EXPECT_EQ(texts(file.stanza(Str("c"))->comments), std::vector<std::string>{"# c"});
    file.removeStanza(Str("absent"));
    EXPECT_EQ(names(file), std::vector<std::string>{"c"});
    // The copy was deep and keeps the order.
    EXPECT_EQ(names(copy), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(keys(copy, "b"), std::vector<std::string>{"j"});
}

TEST(IniFileTest, FlushReplacesTheFileWholeOrNotAtAll) {
    test::TempDirectory dir("conf-lines-flush");
    test::LogCapture capture;

    IniFile nowhere = fromText("[s]\n");
    nowhere.setPath(Pathname());
    EXPECT_EQ(nowhere.flush(), 0);
    EXPECT_EQ(nowhere.error(), "No destination set for IniFile flush");
    EXPECT_TRUE(capture.has(LOG_ERROR, "No destination set for IniFile flush"));

    // Missing directories are made; the temporary file is renamed away.
    IniFile file = fromText("[s]\nk = v\n");
    file.setPath(dir.pathname("sub/deeper/x.conf"));
    capture.clear();
    EXPECT_NE(file.flush(), 0);
    EXPECT_EQ(test::readFile(dir.path("sub/deeper/x.conf")), "[s]\nk = v\n");
    // The regex module may say how it is set up at its first use; only IniFile counts here.
    std::vector<test::LoggedLine> logged;
    for (const test::LoggedLine& line : capture.lines()) {
        if (line.logger == "IniFile") {
            logged.push_back(line);
        }
    }
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0].level, LOG_INFO);
    EXPECT_EQ(logged[0].text.rfind("Renamed " + dir.path("sub/deeper/"), 0), 0u);
    EXPECT_NE(
        logged[0].text.find(" to " + dir.path("sub/deeper/x.conf") + ": succeeded=1 attempts=1 "),
        std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(
                                std::filesystem::u8path(dir.path("sub/deeper"))),
                            std::filesystem::directory_iterator()),
              1);

    // A directory that cannot be made, because a file stands in its way.
    test::writeFile(dir.path("plain"), "");
    file.setPath(dir.pathname("plain/x.conf"));
    EXPECT_EQ(file.flush(), 0);
    EXPECT_EQ(file.error().toStdString().rfind("Could not create directory " + dir.path("plain") +
                                                   " while flushing to " + dir.path("plain/x.conf"),
                                               0),
              0u);

    // A destination that cannot be replaced: the rename fails and leaves nothing behind.
    test::makeDirectories(dir.path("taken.conf"));
    file.setPath(dir.pathname("taken.conf"));
    const size_t before = entriesIn(dir);
    EXPECT_EQ(file.flush(), 0);
    EXPECT_EQ(file.error().toStdString().rfind("Cannot rename ", 0), 0u);
    EXPECT_TRUE(capture.has(LOG_ERROR, file.error().toStdString()));
    EXPECT_EQ(entriesIn(dir), before);
}

TEST(IniFileTest, ReadersNeverSeeAPartlyWrittenFile) {
    test::TempDirectory dir("conf-lines-atomic");
    test::LogCapture quiet;
    const std::string small = "[s]\nk = v\n";
    std::string large = "[s]\n";
    for (int i = 0; i < 2000; ++i) {
        large += "key" + std::to_string(i) + " = " + std::string(40, 'x') + "\n";
    }
    test::writeFile(dir.path("a.conf"), small);
    IniFile smallFile = fromText(small);
    IniFile largeFile = fromText(large);
    smallFile.setEncodingState(UTF8);
    largeFile.setEncodingState(UTF8);
    smallFile.setPath(dir.pathname("a.conf"));
    largeFile.setPath(dir.pathname("a.conf"));

    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::thread reader([&] {
        while (!done.load()) {
            // Shared for deletion, as the readers of conf files are, so that the rename can
            // replace the file under it.
            FileHandle handle = dir.pathname("a.conf").openForRead();
            std::string seen;
            char buffer[4096];
            int64_t got;
            while (handle && (got = handle.read(buffer, sizeof buffer)) > 0) {
                seen.append(buffer, static_cast<size_t>(got));
            }
            if (handle && seen != small && seen != large) {
                ++torn;
            }
            std::this_thread::yield();
        }
    });
    // A rename may still fail while the file is open, where the platform cannot replace an
    // open file (Wine); what matters is that no reader ever sees half of one.
    int written = 0;
    for (int i = 0; i < 12; ++i) {
        written += (i % 2 ? smallFile : largeFile).flush() != 0;
    }
    done = true;
    reader.join();
    EXPECT_GT(written, 0);
    EXPECT_EQ(torn.load(), 0);
    EXPECT_NE(largeFile.flush(), 0);
    EXPECT_EQ(test::readFile(dir.path("a.conf")), large);
}

// That any bytes load is the ini_file fuzz target's to show, over its corpus.
TEST(IniFileTest, DropsWhatCannotBeDecodedAndRefusesHugeLines) {
    test::LogCapture capture;
    // What cannot be decoded is dropped, and so is a byte-order mark within the text.
    IniFile cleaned = fromText("[s]\nk\xFF\xC0=v\xED\xA0\x80w\nj\xEF\xBB\xBF = x\xEF\xBB\xBFy\n");
    EXPECT_EQ(keys(cleaned, "s"), (std::vector<std::string>{"k", "j"}));
    EXPECT_EQ(valueOf(cleaned, "s", "k"), "vw");
    EXPECT_EQ(valueOf(cleaned, "s", "j"), "xy");

    // A line of megabytes is refused, kept as a comment and written back as it was.
    test::TempDirectory dir("conf-lines-long");
    const std::string huge = "[s]\nk = " + std::string(3 * 1024 * 1024, 'v') + "\nj = 1\n";
    EXPECT_EQ(rewrite(dir, "h.conf", huge), huge);
    IniFile file(dir.pathname("h.conf"));
    EXPECT_EQ(keys(file, "s"), std::vector<std::string>{"j"});
}

TEST(IniFileTest, RefusesAFileBeyondTheBound) {
    test::TempDirectory dir("conf-lines-bound");
    {
        test::writeFile(dir.path("big.conf"), "[s]\nk = v\n");
        std::filesystem::resize_file(std::filesystem::u8path(dir.path("big.conf")),
                                     IniFile::MAX_FILE_BYTES + 1);
    }
    test::LogCapture capture;
    IniFile file(dir.pathname("big.conf"));
    const std::string expected = "Cannot parse file=" + dir.path("big.conf") +
                                 ": it is larger than the limit of 67108864 bytes";
    EXPECT_EQ(file.error().toStdString(), expected);
    EXPECT_TRUE(capture.has(LOG_WARN, expected));
    EXPECT_TRUE(file.stanzas().empty());
    // Nothing of it can be written back over the file.
    EXPECT_EQ(file.flush(), 0);
    EXPECT_EQ(std::filesystem::file_size(std::filesystem::u8path(dir.path("big.conf"))),
              IniFile::MAX_FILE_BYTES + 1);
}

}  // namespace
}  // namespace morvax
