#include "input/WMIException.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "util/log/Logger.h"

namespace morvax {
namespace {

class CapturingWriter : public LogWriter {
  public:
    void write(const Logger& logger, int32_t level, StrSegment message) override {
        lines.push_back(std::string(logger.name()) + " " + logLevelName(level) + " " +
                        std::string(message.view()));
    }
    std::vector<std::string> lines;
};

TEST(WMIExceptionTest, FormatsMessageCodeTextAndDescription) {
    EXPECT_EQ(formatWMIError("Executing query failed (query=\"SELECT x\")",
                             static_cast<int32_t>(0x80041021u), ": SELECT x"),
              "Executing query failed (query=\"SELECT x\") (error=\"Query is syntactically not "
              "valid.\" HRESULT=80041021) (: SELECT x)");
    // Without a description the text ends behind the HRESULT's parenthesis.
    EXPECT_EQ(formatWMIError("Connect failed", static_cast<int32_t>(0x80041002u), ""),
              "Connect failed (error=\"Object cannot be found.\" HRESULT=80041002)");
    EXPECT_EQ(formatWMIError("x", static_cast<int32_t>(0x8004104Au), ""),
              "x (error=\"Undefined error.\" HRESULT=8004104A)");
    EXPECT_EQ(formatWMIError("x", static_cast<int32_t>(0x8004108Bu), ""),
              "x (error=\"FormatMessage was unable to decode error (2147750027), (0x8004108b)\" "
              "HRESULT=8004108B)");
}

TEST(WMIExceptionTest, IsLoggedOnceWhenMadeEvenWithoutACatcher) {
    CapturingWriter writer;
    LogWriter* old = Logger::setWriter(&writer);
    {
        WMIException unthrown(static_cast<int32_t>(0x8004100Eu), "Connecting failed", "");
        EXPECT_EQ(unthrown.code(), static_cast<int32_t>(0x8004100Eu));
        EXPECT_STREQ(unthrown.what(),
                     "Connecting failed (error=\"Namespace specified cannot be found.\" "
                     "HRESULT=8004100E)");
    }
    Logger::setWriter(old);
    ASSERT_EQ(writer.lines.size(), 1u);
    EXPECT_EQ(writer.lines[0],
              "WMI ERROR Connecting failed (error=\"Namespace specified cannot be found.\" "
              "HRESULT=8004100E)");
}

}  // namespace
}  // namespace morvax
