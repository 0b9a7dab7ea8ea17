#include "util/log/LogConfParser.h"

#include <gtest/gtest.h>

#include <string>

namespace morvax {
namespace {

// "kind name key=value @line" per entry, and "error kind @line: text" per error.
std::string summary(const char* text, const char* section = nullptr) {
    LogConfParser parser(section, "conf");
    parser.parse(StrSegment(text));
    std::string out;
    for (const LogConfEntry& entry : parser.entries()) {
        out += std::to_string(entry.kind) + " " + entry.name.toStdString() + " " +
               entry.key.toStdString() + "=" + entry.value.toStdString() + " @" +
               std::to_string(entry.lineNumber) + "\n";
    }
    for (const LogConfError& error : parser.errors()) {
        out += "error " + std::to_string(error.kind) + " @" + std::to_string(error.lineNumber) +
               ": " + error.text.toStdString() + "\n";
    }
    return out;
}

TEST(LogConfParserTest, EntryForms) {
    EXPECT_EQ(summary("rootCategory=WARN, A1\n"
                      "  log4cpp.category.WMI = DEBUG \t\n"
                      "appender.A1=org.apache.log4j.RollingFileAppender\n"
                      "appender.A1.layout.ConversionPattern = %d %m%n\n"
                      "log4cpp.appender.A1 .fileName=x.log\r\n"),
              "0  =WARN, A1 @1\n"
              "1 WMI =DEBUG @2\n"
              "3 A1 =org.apache.log4j.RollingFileAppender @3\n"
              "2 A1 layout.ConversionPattern=%d %m%n @4\n"
              "2 A1 fileName=x.log @5\n");
}

TEST(LogConfParserTest, MalformedLinesAreErrorsWithTheirLine) {
    EXPECT_EQ(summary("rootCategory\n"
                      "rootCategory.x=INFO\n"
                      "category=INFO\n"
                      "category.=INFO\n"
                      "appender.=x\n"
                      "appender.a.=x\n"
                      "appender.a b=x\n"
                      "nonsense=1\n"
                      "Log4cpp.rootCategory=INFO\n"
                      "category.ok=INFO\n"),
              "1 ok =INFO @10\n"
              "error 0 @1: rootCategory\n"
              "error 0 @2: rootCategory.x=INFO\n"
              "error 0 @3: category=INFO\n"
              "error 0 @4: category.=INFO\n"
              "error 0 @5: appender.=x\n"
              "error 0 @6: appender.a.=x\n"
              "error 0 @7: appender.a b=x\n"
              "error 0 @8: nonsense=1\n"
              "error 0 @9: Log4cpp.rootCategory=INFO\n");
}

TEST(LogConfParserTest, CommentsAreCutAndXmlCommentsJoinTheirEnds) {
    EXPECT_EQ(summary("# whole line\n"
                      "category.a=INFO # trailing\n"
                      "category.b=<!-- inline -->WARN\n"
                      "category.c=<!-- spans\n"
                      "  two # lines -->ERROR<!-- and -->, A\n"
                      "<!-- # --> category.d=DEBUG\n"
                      "category.e=INFO #<!-- not a comment start\n"
                      "category.f=INFO\n"),
              "1 a =INFO @2\n"
              "1 b =WARN @3\n"
              "1 c =ERROR, A @4\n"
              "1 d =DEBUG @6\n"
              "1 e =INFO @7\n"
              "1 f =INFO @8\n");
}

TEST(LogConfParserTest, UnterminatedXmlCommentReportsWhereItBegan) {
    EXPECT_EQ(summary("category.a=INFO\n"
                      "category.b=WARN <!-- x\n"
                      "category.c=ERROR\n"),
              "1 a =INFO @1\n"
              "1 b =WARN @2\n"
              "error 1 @2: \n");
    // The last comment opened is the one reported.
    EXPECT_EQ(summary("<!-- a --> x=1 <!-- b\n\n"), "error 1 @1: \nerror 0 @1: x=1\n");
}

TEST(LogConfParserTest, Sections) {
    const char* text =
        "category.before=INFO\n"
        "[Main]\n"
        "category.main=INFO\n"
        "  [other ] \n"
        "category.other=INFO\n"
        "[MAIN\t]] \n"
        "category.main2=INFO\n";
    // Without a section, everything from the first section line on is ignored.
    EXPECT_EQ(summary(text), "1 before =INFO @1\n");
    EXPECT_EQ(summary(text, "main"), "1 main =INFO @3\n1 main2 =INFO @7\n");
    EXPECT_EQ(summary(text, "Other"), "1 other =INFO @5\n");
    EXPECT_EQ(summary(text, "none"), "");
}

TEST(LogConfParserTest, AnyUnicodeEncodingIsRead) {
    // UTF-16 little-endian with a byte-order mark.
    std::string utf16("\xff\xfe", 2);
    for (char c : std::string("category.w=INFO\r\n")) {
        utf16 += c;
        utf16 += '\0';
    }
    LogConfParser parser(nullptr, "conf");
    parser.parse(StrSegment(utf16.data(), utf16.size()));
    ASSERT_EQ(parser.entries().size(), 1u);
    EXPECT_EQ(parser.entries()[0].name, "w");
    EXPECT_EQ(parser.entries()[0].value, "INFO");
}

}  // namespace
}  // namespace morvax
