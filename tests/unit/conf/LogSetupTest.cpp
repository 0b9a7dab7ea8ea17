#include "conf/LogSetup.h"

#include <gtest/gtest.h>

#include <string>

#include "support/Environment.h"
#include "unit/util/log/LogTestSupport.h"
#include "util/log/Logger.h"

namespace morvax {
namespace {

using test::ScopedEnvironment;

TEST(LogSetupTest, ReadsTheInstallationsFileAndItsCompanion) {
    test::TempDirectory home("setup");
    test::LogReset reset;
    ScopedEnvironment homeVariable("MORVAX_HOME", home.text().c_str());
    ScopedEnvironment etcVariable("MORVAX_ETC", nullptr);
    test::makeDirectories(home.path("etc"));
    test::makeDirectories(home.path("var/log"));
    test::writeFile(home.path("etc/log-cmdline.cfg"),
                    "rootCategory=WARN, F\n"
                    "appender.F.fileName=${MORVAX_HOME}" +
                        home.path("var/log/x.log").substr(home.text().size()) +
                        "\n"
                        "appender.F.layout.ConversionPattern=%p %c %m%n\n");
    test::writeFile(home.path("etc/log-cmdline-local.cfg"), "category.LogSetupTest=DEBUG\n");

    test::StandardErrorCapture capture(home.path("stderr.txt"));
    setupLogging(false, nullptr);
    Logger logger("LogSetupTest");
    Logger other("LogSetupOther");
    logger.debug("shown");
    other.info("hidden");
    EXPECT_EQ(capture.finish(),
              "Using logging configuration at " + home.path("etc/log-cmdline.cfg") + ".\n");
    LogConfiguration::reset();
    EXPECT_EQ(test::readFile(home.path("var/log/x.log")), "DEBUG LogSetupTest shown\r\n");
}

TEST(LogSetupDeathTest, StopsWithoutAHome) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto exitedWithMinusOne = [](int status) {
        return ::testing::ExitedWithCode(255)(status) || ::testing::ExitedWithCode(-1)(status);
    };
    EXPECT_EXIT(
        {
            test::setEnvironment("MORVAX_HOME", nullptr);
            setupLogging(true, nullptr);
        },
        exitedWithMinusOne, "MORVAX_HOME must be set\\.  Stopping\\.");
}

}  // namespace
}  // namespace morvax
