#include "util/log/LogAppender.h"

#include <gtest/gtest.h>

#include <string>

#include "unit/util/log/LogTestSupport.h"
#include "util/log/LogConfiguration.h"
#include "util/log/LogMessage.h"
#include "util/log/LogRecord.h"
#include "util/log/Logger.h"

namespace morvax {
namespace {

using test::fileExists;
using test::readFile;
using test::writeFile;

// Lines of 8 bytes ("line-N" and CR LF) into r.log, which rolls past 20 bytes.
class LogAppenderTest : public ::testing::Test {
  protected:
    LogAppenderTest() : dir_(::testing::UnitTest::GetInstance()->current_test_info()->name()) {}

    void configure(int maxBackupIndex) {
        std::string text =
            "rootCategory=INFO, R\n"
            "appender.R.fileName=" +
            dir_.path("r.log") +
            "\n"
            "appender.R.maxFileSize=20\n"
            "appender.R.maxBackupIndex=" +
            std::to_string(maxBackupIndex) + "\n";
        ASSERT_TRUE(LogConfiguration::load(LogConfOptions(), StrSegment(text.c_str())));
    }
    void logLines(int from, int to) {
        for (int i = from; i <= to; ++i) {
            logger_.info("line-%d", i);
        }
    }
    std::string file(const std::string& name) { return readFile(dir_.path(name)); }

    test::TempDirectory dir_;
    test::LogReset reset_;
    Logger logger_{"LogRolling"};
};

TEST_F(LogAppenderTest, RollingKeepsTheNewestBackups) {
    configure(2);
    logLines(1, 10);
    LogConfiguration::reset();
    EXPECT_EQ(file("r.log"), "line-10\r\n");
    EXPECT_EQ(file("r.log.1"), "line-7\r\nline-8\r\nline-9\r\n");
    EXPECT_EQ(file("r.log.2"), "line-4\r\nline-5\r\nline-6\r\n");
    EXPECT_FALSE(fileExists(dir_.path("r.log.3")));
}

TEST_F(LogAppenderTest, ShiftStopsAtTheFirstGapSoNumbersStayDense) {
    // An existing file counts toward the size; backup 2 is missing and 3 is left over.
    writeFile(dir_.path("r.log"), "old\r\n");
    writeFile(dir_.path("r.log.1"), "one");
    writeFile(dir_.path("r.log.3"), "stale");
    configure(5);
    logLines(1, 3);
    LogConfiguration::reset();
    EXPECT_EQ(file("r.log"), "line-3\r\n");
    EXPECT_EQ(file("r.log.1"), "old\r\nline-1\r\nline-2\r\n");
    EXPECT_EQ(file("r.log.2"), "one");
    EXPECT_EQ(file("r.log.3"), "stale");
    EXPECT_FALSE(fileExists(dir_.path("r.log.4")));
}

TEST_F(LogAppenderTest, WithoutBackupsAFullFileStartsOver) {
    configure(0);
    logLines(1, 4);
    LogConfiguration::reset();
    EXPECT_EQ(file("r.log"), "line-4\r\n");
    EXPECT_FALSE(fileExists(dir_.path("r.log.1")));
}

TEST_F(LogAppenderTest, BackupNames) {
    Pathname base = dir_.pathname("x.log");
    EXPECT_EQ(RollingLogFile::backupName(base, 0), base);
    EXPECT_EQ(RollingLogFile::backupName(base, 12).toStr().toStdString(), dir_.path("x.log.12"));
}

TEST_F(LogAppenderTest, RetiredAppenderWritesNothingMore) {
    configure(2);
    LogAppender* appender = LogConfiguration::findAppender("R", false);
    ASSERT_NE(appender, nullptr);
    LogConfiguration::reset();
    // A thread that still holds the old pointer after a reload finds it switched off.
    EXPECT_TRUE(appender->disabled());
    LogRecord record;
    record.time = Timeval::now();
    record.logger = &logger_;
    record.level = LOG_INFO;
    LogMessage message("after", false);
    EXPECT_FALSE(appender->append(record, message, false, nullptr));
    EXPECT_EQ(file("r.log"), "");
}

}  // namespace
}  // namespace morvax
