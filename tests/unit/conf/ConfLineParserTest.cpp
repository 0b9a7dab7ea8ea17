#include "conf/ConfLineParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/conf/ConfTestSupport.h"
#include "unit/util/log/LogTestSupport.h"
#include "util/base/LogLevel.h"

namespace morvax {
namespace {

using K = ConfLineKind;

struct Parsed {
    K kind;
    std::string line;
    std::string key;
    std::string value;
    uint32_t lineNumber;
};

std::vector<Parsed> parseAll(const std::string& text, const char* name = "test.conf",
                             uint32_t mode = ConfLineParser::MODE_CONF) {
    test::MemoryLines lines(text);
    ConfLineParser parser(lines.reader(), Pathname(name), mode);
    std::vector<Parsed> out;
    for (;;) {
        Str line, key, value;
        K kind = parser.next(line, key, value);
        if (kind == K::END_OF_FILE) {
            return out;
        }
        out.push_back({kind, line.toStdString(), key.toStdString(), value.toStdString(),
                       parser.lineNumber()});
    }
}

Parsed parseOne(const std::string& text, const char* name = "test.conf") {
    std::vector<Parsed> all = parseAll(text, name);
    EXPECT_EQ(all.size(), 1u) << text;
    return all.empty() ? Parsed{K::END_OF_FILE, "", "", "", 0} : all[0];
}

std::string where(const char* name, int line) {
    return Pathname(name).toStr().toStdString() + ", line " + std::to_string(line);
}

TEST(ConfLineParserTest, ClassifiesLinesByTheirFirstCharacter) {
    test::LogCapture quiet;
    // NBSP, ideographic space and the zero-width space are white space too.
    std::vector<Parsed> all =
        parseAll("\n \t \xC2\xA0\xE3\x80\x80\xE2\x80\x8B\n# hash\n  ; semi\n[s]\nk=v\n*star\n");
    ASSERT_EQ(all.size(), 7u);
    EXPECT_EQ(all[0].kind, K::BLANK);
    EXPECT_EQ(all[1].kind, K::BLANK);
    EXPECT_EQ(all[2].kind, K::COMMENT);
    EXPECT_EQ(all[3].kind, K::COMMENT);
    EXPECT_EQ(all[3].line, "  ; semi");
    EXPECT_EQ(all[4].kind, K::STANZA);
    EXPECT_EQ(all[5].kind, K::KEY_VALUE);
    EXPECT_EQ(all[6].kind, K::UNPARSED);

    std::vector<Parsed> spec = parseAll("*star\n  * more\n", "x.spec", ConfLineParser::MODE_SPEC);
    ASSERT_EQ(spec.size(), 2u);
    EXPECT_EQ(spec[0].kind, K::STAR_COMMENT);
    EXPECT_EQ(spec[1].kind, K::STAR_COMMENT);
}

TEST(ConfLineParserTest, StanzaNameEndsAtTheLastBracketAndIsKeptVerbatim) {
    EXPECT_EQ(parseOne("[a]b]c").key, "a]b");
    EXPECT_EQ(parseOne("[ a ]").key, " a ");
    EXPECT_EQ(parseOne("  [x] trailing").key, "x");
    EXPECT_EQ(parseOne("[]").key, "");
    EXPECT_EQ(parseOne("[a # not a comment]").key, "a # not a comment");

    test::LogCapture capture;
    Parsed open = parseAll("\n[a")[1];
    EXPECT_EQ(open.kind, K::STANZA);
    EXPECT_EQ(open.key, "a");
    EXPECT_EQ(capture.texts("IniFile"),
              std::vector<std::string>{where("test.conf", 2) +
                                       ": Stanza header is missing terminator: [a"});
    EXPECT_TRUE(capture.has(LOG_WARN, capture.texts("IniFile")[0]));
}

TEST(ConfLineParserTest, SplitsKeyAndValueAtTheFirstUnescapedEquals) {
    struct Case {
        const char* line;
        const char* key;
        const char* value;
    };
    const Case cases[] = {
        {"k\\=ey = v", "k=ey", "v"},
        {"a = b = c", "a", "b = c"},
        {"a = b # c", "b # c", nullptr},
        {"a\\\\b=c", "a\\b", "c"},
        {"x = a\\b", "x", "a\\b"},  // values are not unescaped
        {"\\[k] = v", "[k]", "v"},
        {"=v", "", "v"},
        {"k =", "k", ""},
        {"\xC2\xA0key\xE2\x80\x83 =\t value \xE3\x80\x80", "key", "value"},
    };
    for (const Case& c : cases) {
        Parsed p = parseOne(c.line);
        EXPECT_EQ(p.kind, K::KEY_VALUE) << c.line;
        if (c.value == nullptr) {
            EXPECT_EQ(p.value, c.key) << c.line;
        } else {
            EXPECT_EQ(p.key, c.key) << c.line;
            EXPECT_EQ(p.value, c.value) << c.line;
        }
    }
}

TEST(ConfLineParserTest, JoinsContinuationLinesButNeverComments) {
    std::vector<Parsed> all = parseAll("a = b\\\n  c\n#c\\\nd = e\\\n#data\nf = g\\");
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0].value, "b\n  c");
    EXPECT_EQ(all[0].line, "a = b\n  c");
    EXPECT_EQ(all[0].lineNumber, 2u);
    EXPECT_EQ(all[1].kind, K::COMMENT);
    EXPECT_EQ(all[1].lineNumber, 3u);
    EXPECT_EQ(all[2].value, "e\n#data");
    EXPECT_EQ(all[2].lineNumber, 5u);
    // The file ends inside the continuation: the backslash became a trailing LF and went.
    EXPECT_EQ(all[3].value, "g");
    EXPECT_EQ(all[3].lineNumber, 6u);

    // A continued stanza header and key.
    EXPECT_EQ(parseOne("[a\\\nb]").key, "a\nb");
    Parsed key = parseOne("k\\\n = v");
    EXPECT_EQ(key.key, "k");
    EXPECT_EQ(key.value, "v");
}

TEST(ConfLineParserTest, WarnsOfUnparsedLinesExceptInSpecFiles) {
    test::LogCapture capture;
    test::MemoryLines lines("[s]\nnovalue\n");
    ConfLineParser parser(lines.reader(), Pathname("foo.conf"));
    Str line, key, value, diagnostic;
    EXPECT_EQ(parser.next(line, key, value, &diagnostic), K::STANZA);
    EXPECT_EQ(parser.next(line, key, value, &diagnostic), K::UNPARSED);
    const std::string expected =
        where("foo.conf", 2) + ": Cannot parse into key-value pair: novalue\n";
    EXPECT_EQ(diagnostic.toStdString(), expected);
    EXPECT_TRUE(capture.has(LOG_WARN, expected));
    EXPECT_EQ(parser.location().toStdString(), where("foo.conf", 2));

    capture.clear();
    EXPECT_EQ(parseOne("novalue", "foo.spec").kind, K::UNPARSED);
    EXPECT_EQ(parseOne("*x", "foo.spec").kind, K::UNPARSED);  // not in spec mode
    EXPECT_TRUE(capture.texts("IniFile").empty());
    parseOne("novalue", "foo.specs");
    EXPECT_EQ(capture.texts("IniFile").size(), 1u);
}

TEST(ConfLineParserTest, NulBytesInValuesWarnAndInKeysGoSilently) {
    test::LogCapture capture;
    const std::string line("k = a\0b\0", 8);
    Parsed value = parseOne(line);
    EXPECT_EQ(value.value, "ab");
    EXPECT_EQ(capture.texts("IniFile"),
              std::vector<std::string>{where("test.conf", 1) + ":  Found null character: " + line});

    capture.clear();
    // The NUL goes, and the '=' behind it is taken into the key unexamined.
    Parsed key = parseOne(std::string("a\0=b = c", 8));
    EXPECT_EQ(key.key, "a=b");
    EXPECT_EQ(key.value, "c");
    EXPECT_TRUE(capture.texts("IniFile").empty());
}

TEST(ConfLineParserTest, RefusesLogicalLinesBeyondTheBound) {
    test::LogCapture capture;
    const std::string atLimit = "k=" + std::string(ConfLineParser::MAX_LINE_BYTES - 2, 'x');
    const std::string beyond = "[" + std::string(ConfLineParser::MAX_LINE_BYTES, 'y') + "]";
    // A long comment is no risk: it is never taken apart.
    const std::string comment = "#" + std::string(ConfLineParser::MAX_LINE_BYTES, 'z');
    std::vector<Parsed> all = parseAll(atLimit + "\n" + beyond + "\n" + comment + "\nk2=v\n");
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0].kind, K::KEY_VALUE);
    EXPECT_EQ(all[0].value.size(), ConfLineParser::MAX_LINE_BYTES - 2);
    EXPECT_EQ(all[1].kind, K::UNPARSED);
    EXPECT_EQ(all[1].line, beyond);
    EXPECT_EQ(all[2].kind, K::COMMENT);
    EXPECT_EQ(all[3].key, "k2");
    EXPECT_EQ(capture.texts("IniFile"),
              std::vector<std::string>{where("test.conf", 2) +
                                       ": Line of 1048578 bytes is longer than the limit of "
                                       "1048576 and is not parsed"});
}

}  // namespace
}  // namespace morvax
