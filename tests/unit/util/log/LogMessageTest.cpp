#include "util/log/LogMessage.h"

#include <gtest/gtest.h>

#include <string>

namespace morvax {
namespace {

std::string escaped(const std::string& text, bool escape) {
    Str out;
    if (!LogMessage::escapeText(StrSegment(text.data(), text.size()), escape, out)) {
        return "(unchanged)";
    }
    return out.toStdString();
}

TEST(LogMessageTest, EscapingReplacesControlBytesBelow128) {
    EXPECT_EQ(escaped("a\nb\rc\ad\te\x7f\x01\xc3\xa9", true),
              "a\\nb\\rc\\x07d\te\\x7F\\x01\xc3\xa9");
    // With escape off only the line ends are replaced.
    EXPECT_EQ(escaped("a\nb\rc\ad", false), "a\\nb\\rc\ad");
    EXPECT_EQ(escaped("plain\ttext \xc3\xa9", true), "(unchanged)");
    EXPECT_EQ(escaped("bell\a", false), "(unchanged)");
}

TEST(LogMessageTest, EscapesOnceWithTheFirstSetting) {
    std::string text = "a\ab\n";
    LogMessage message(StrSegment(text.data(), text.size()), false);
    EXPECT_EQ(message.text(false), StrSegment("a\ab\\n"));
    // Later appenders share the first one's result.
    EXPECT_EQ(message.text(true), StrSegment("a\ab\\n"));

    LogMessage raw(StrSegment(text.data(), text.size()), true);
    EXPECT_EQ(raw.text(true), StrSegment(text.data(), text.size()));
}

}  // namespace
}  // namespace morvax
