#include "util/log/DiagnosticsLoggers.h"

#include <gtest/gtest.h>

#include "unit/util/log/LogTestSupport.h"
#include "util/base/Diagnostics.h"
#include "util/log/LogConfiguration.h"
#include "util/log/LogRegistry.h"

namespace morvax {
namespace {

DiagnosticsChannel lowChannel("DiagnosticsLoggersTest");

// What the folders below logging report becomes a line of the Logger of the channel's name, at
// the report's level, filtered by that channel's configured level.
TEST(DiagnosticsLoggersTest, ReportsAreLinesOfTheLoggerOfTheChannelsName) {
    LogRegistry::instance();  // building the registry installs the hook
    test::LogReset reset;
    test::LogCapture capture;
    lowChannel.warn("Failed in %s error=%u", "open", 5u);
    lowChannel.debug("hidden at the default level");
    ASSERT_TRUE(LogConfiguration::load(LogConfOptions(),
                                       StrSegment("category.DiagnosticsLoggersTest=DEBUG\n")));
    lowChannel.debug("now shown");
    lowChannel.log(LOG_FATAL, StrSegment("as %s given"));

    std::vector<test::LoggedLine> lines = capture.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].logger, "DiagnosticsLoggersTest");
    EXPECT_EQ(lines[0].level, LOG_WARN);
    EXPECT_EQ(lines[0].text, "Failed in open error=5");
    EXPECT_EQ(lines[1].level, LOG_DEBUG);
    EXPECT_EQ(lines[1].text, "now shown");
    EXPECT_EQ(lines[2].level, LOG_FATAL);
    EXPECT_EQ(lines[2].text, "as %s given");
}

}  // namespace
}  // namespace morvax
