#include "util/log/LogPattern.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "util/log/Logger.h"

namespace morvax {
namespace {

// 2021-06-01 12:00:00.123 UTC, and an origin 1500.5 ms before it.
constexpr uint64_t kTime =
    Timeval::UNIX_EPOCH_TICKS + 1622548800ULL * Timeval::TICKS_PER_SECOND + 1230000ULL;

class LogPatternTest : public ::testing::Test {
  protected:
    LogPatternTest() {
        fields_.time = Timeval(kTime);
        fields_.timeOrigin = Timeval(kTime - 15005000ULL);
        fields_.level = LOG_WARN;
        fields_.loggerName = "WMI";
        fields_.message = "text";
        fields_.threadName = &threadName_;
        fields_.threadId = 42;
    }

    std::string render(const char* pattern) {
        Str line;
        LogPattern(StrSegment(pattern)).render(fields_, line);
        return line.toStdString();
    }

    // The fields keep a view of the message, so the text is kept here, not in the caller's
    // temporary: later renders of the same fields read it again.
    std::string renderMessage(const char* pattern, const std::string& message) {
        message_ = message;
        fields_.message = StrSegment(message_.data(), message_.size());
        return render(pattern);
    }

    std::string message_;
    LogPattern::Fields fields_;
    Str threadName_{"Worker"};
};

// Distinct bytes, so that a wrong head or tail shows.
std::string numbered(size_t length) {
    std::string text;
    for (size_t i = 0; text.size() < length; ++i) {
        text += std::to_string(i % 10);
    }
    return text;
}

TEST_F(LogPatternTest, ConversionsFlagsWidthsAndPrecisions) {
    EXPECT_EQ(render("%-8p: %m%n"), "WARN    : text\r\n");
    EXPECT_EQ(render("[%6p][%-6p][%05T][%.2c][%t][%%][%q]"),
              "[  WARN][WARN  ][00042][WM][Worker][%][]");
    // %n is a literal CR LF; a conversion or flag without its letter at the end is dropped.
    EXPECT_EQ(render("a%nb%"), "a\r\nb");
    EXPECT_EQ(render("a%-5"), "a");
    EXPECT_EQ(render("%r %R"), "1501 1");
    // A record before the origin (the clock went back) counts as no time at all.
    fields_.time = Timeval(kTime - 20000000ULL);
    EXPECT_EQ(render("%r|%R"), "0|0");
    fields_.level = 99;
    EXPECT_EQ(render("%p"), "???");
}

TEST_F(LogPatternTest, UnterminatedBracesDropTheRestOfThePattern) {
    EXPECT_EQ(render("x%d{bad"), "x");
    EXPECT_EQ(render("x%d{%Y %m%n"), "x");
    // Braces on another conversion are read and ignored.
    EXPECT_EQ(render("%p{x}|%m"), "WARN|text");
}

TEST_F(LogPatternTest, DatesUseTheNamedAndCompiledFormats) {
    const std::string day = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d,123)";
    EXPECT_TRUE(std::regex_match(render("%d"), std::regex(day)));
    EXPECT_TRUE(std::regex_match(render("%d{}"), std::regex(day)));
    EXPECT_TRUE(std::regex_match(render("%d{ISO8601}"), std::regex(day)));
    EXPECT_TRUE(std::regex_match(render("%d{ABSOLUTE}"), std::regex(R"(\d\d:\d\d:\d\d,123)")));
    EXPECT_TRUE(std::regex_match(render("%d{DATE}"),
                                 std::regex(R"(\d\d [A-Z][a-z]{2} \d{4} \d\d:\d\d:\d\d,123)")));
    EXPECT_TRUE(std::regex_match(render("%d{%Y}|%d{%M}"), std::regex(R"(202[01]\|\d\d)")));
    // A format that does not compile falls back to the first one.
    EXPECT_TRUE(std::regex_match(render("%d{%Y %}"), std::regex(day)));
    EXPECT_TRUE(std::regex_match(render("%-6d{%Y}|"), std::regex(R"(202[01]  \|)")));
}

TEST_F(LogPatternTest, MessagePrecisionCutsShortAndSkipsLong) {
    std::string message = numbered(1000);
    EXPECT_EQ(renderMessage("%.20m", message), message.substr(0, 20));
    EXPECT_EQ(renderMessage("%.44m", message), message.substr(0, 44));
    // Too little room for a tail: the head takes the marker's closing dots.
    std::string skipped = renderMessage("%.60m", message);
    EXPECT_EQ(skipped, message.substr(0, 36) + " ...{skipping 968 bytes}");
    EXPECT_EQ(skipped.size(), 60u);
    EXPECT_EQ(renderMessage("%.2000m", message), message);
    // Width pads the message but never cuts it.
    EXPECT_EQ(renderMessage("[%-6m]", "ab"), "[ab    ]");
}

TEST_F(LogPatternTest, LongMessagesAreShortenedToAnEighthOfTheLimit) {
    std::string message = numbered(5000);
    fields_.maxMessageSize = 1000;
    std::string line = renderMessage("%m", message);
    EXPECT_EQ(line, message.substr(0, 72) + " ...{skipping 4904 bytes}... " + message.substr(4976));
    EXPECT_EQ(line.size(), 125u);

    fields_.maxMessageSize = 700;
    line = renderMessage("%m", message);
    EXPECT_EQ(line, message.substr(0, 54) + " ...{skipping 4929 bytes}... " + message.substr(4983));
    EXPECT_EQ(line.size(), 100u);

    // An escape sequence at the end of the head is not cut in two.
    std::string escaped = message;
    escaped[52] = '\\';
    escaped[53] = '\\';
    line = renderMessage("%m", escaped);
    EXPECT_EQ(line, message.substr(0, 52) + " ...{skipping 4929 bytes}... " + message.substr(4983));

    fields_.maxMessageSize = 5000;
    EXPECT_EQ(renderMessage("%m", message), message);
    fields_.maxMessageSize = 700;
    fields_.truncates = false;
    EXPECT_EQ(renderMessage("%m", message), message);
}

TEST_F(LogPatternTest, LongThreadNamesAreShortenedUnlessAPrecisionIsGiven) {
    threadName_ = Str(numbered(150).c_str());
    std::string shortened = render("%t");
    EXPECT_EQ(shortened.size(), 100u);
    EXPECT_NE(shortened.find(" ...{skipping "), std::string::npos);
    EXPECT_EQ(render("%.10t"), numbered(10));
}

TEST_F(LogPatternTest, SkipRuleNeverExceedsTheSize) {
    std::string text = numbered(300);
    for (size_t size : {0u, 5u, 20u, 30u, 45u, 90u, 93u, 94u, 200u, 299u, 300u, 400u}) {
        Str out;
        LogPattern::appendSkipped(out, StrSegment(text.data(), text.size()), size);
        EXPECT_EQ(out.size(), std::min<size_t>(size, text.size())) << size;
        EXPECT_EQ(out.view().substr(0, std::min<size_t>(size, 5)),
                  text.substr(0, std::min<size_t>(size, 5)));
    }
}

TEST_F(LogPatternTest, JsonWrapsTheNamedFieldsAndTakesTheMessageAsAValue) {
    fields_.serialization = 2;
    EXPECT_EQ(renderMessage("%p %c %m%n", R"({"a":1})"),
              "{\"log_level\":\"WARN\",\"component\":\"WMI\",\"data\":{\"a\":1}}\r\n");
    // Only literals that begin with CR LF survive; other atoms write their bare value.
    EXPECT_EQ(renderMessage("[%r] %m", "[1]"), "{1501\"data\":[1]}");
    std::string dated = renderMessage("%d{%Y} %m", "0");
    EXPECT_TRUE(std::regex_match(dated, std::regex(R"(\{"datetime":"202[01]","data":0\})")))
        << dated;
    // The message is not shortened: that would break the JSON.
    fields_.maxMessageSize = 10;
    std::string big = "\"" + numbered(200) + "\"";
    EXPECT_EQ(renderMessage("%m", big), "{\"data\":" + big + "}");
}

TEST_F(LogPatternTest, FixedLayouts) {
    fields_.timeOrigin = Timeval(kTime - 25000000ULL);
    fields_.level = LOG_INFO;
    EXPECT_EQ(renderMessage("%R %p %c %m%n", "hello"), "2 INFO WMI hello\r\n");
    Str line;
    LogPattern::basicLayout()->render(fields_, line);
    EXPECT_EQ(line, "2 INFO WMI hello\r\n");
    line.clear();
    LogPattern::simpleLayout()->render(fields_, line);
    EXPECT_EQ(line, "INFO    : hello\r\n");
    line.clear();
    LogPattern::messageLayout()->render(fields_, line);
    EXPECT_EQ(line, "hello\r\n");
}

}  // namespace
}  // namespace morvax
