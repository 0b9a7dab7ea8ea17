#include "util/log/Logger.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "unit/util/log/LogTestSupport.h"
#include "util/base/LastError.h"
#include "util/log/LogConfiguration.h"
#include "util/log/LogFormatCallback.h"
#include "util/log/LogRegistry.h"
#include "util/thread/EmptyMainThread.h"

namespace morvax {
namespace {

using test::LogCapture;

// Built and used before main(): the log system must already work in static initialisers.
Logger earlyLogger("LoggerTestEarly");

struct EarlyUse {
    EarlyUse() {
        LogCapture capture;
        earlyLogger.info("early %d", 1);
        // Gone before any configuration: the registry must not keep it.
        { Logger temporary("LoggerTestTemporary"); }
        texts = capture.texts("LoggerTestEarly");
    }
    std::vector<std::string> texts;
};
EarlyUse earlyUse;

class Prefixer : public LogFormatCallback {
  public:
    void onBegin(Str& target, const char*) override { target.append("[ctx] "); }
    void onEnd(Str& target) override { target.append(" [end]"); }
};

class LoggerTest : public ::testing::Test {
  protected:
    LoggerTest() : dir_(::testing::UnitTest::GetInstance()->current_test_info()->name()) {
        LogConfiguration::reset();
    }

    test::TempDirectory dir_;
    test::LogReset reset_;
};

TEST_F(LoggerTest, LevelNames) {
    const char* names[] = {"DEBUG", "INFO",  "NOTICE", "WARN", "ERROR",
                           "CRIT",  "ALERT", "FATAL",  "EMERG"};
    for (int32_t level = 0; level <= 8; ++level) {
        EXPECT_STREQ(logLevelName(level), names[level]);
    }
    EXPECT_STREQ(logLevelName(-1), "???");
    EXPECT_STREQ(logLevelName(9), "???");
}

TEST_F(LoggerTest, StaticInitialiserLoggersWorkAndResolveLater) {
    EXPECT_EQ(earlyUse.texts, std::vector<std::string>{"early 1"});
    EXPECT_FALSE(earlyLogger.isDebugEnabled());
    ASSERT_TRUE(
        LogConfiguration::load(LogConfOptions(), StrSegment("category.LoggerTestEarly=DEBUG\n")));
    EXPECT_TRUE(earlyLogger.isDebugEnabled());
}

TEST_F(LoggerTest, DefaultOutputIsTheBareMessageAndCrLfOnStandardError) {
    Logger logger("LoggerTestDefault");
    test::StandardErrorCapture capture(dir_.path("stderr.txt"));
    logger.info("hello %d", 5);
    logger.debug("hidden");
    logger.warn("two\nlines");
    logger.log(LOG_NOTICE, "notice");
    logger.error(StrSegment("100% built"));
    LogRegistry::emergencyWrite(LOG_CRIT, "direct");
    EXPECT_EQ(capture.finish(),
              "hello 5\r\ntwo\\nlines\r\nnotice\r\n100% built\r\nCRIT - direct\r\n");
}

TEST_F(LoggerTest, ALogCallKeepsTheCallersLastError) {
    // A writer that disturbs the last error, as a failing file write would.
    class Disturbing : public LogWriter {
      public:
        void write(const Logger&, int32_t, StrSegment message) override {
            texts.emplace_back(message.view());
            LastError::set(99);
        }
        std::vector<std::string> texts;
    } writer;
    LogWriter* previous = Logger::setWriter(&writer);
    Logger logger("LoggerTestError");
    Str expected;
    expected.appendFormatError(2, "first: %m");

    LastError::set(2);
    logger.warn("first: %m");
    EXPECT_EQ(LastError::get(), 2u);
    // The next call still sees the caller's failure, not what the last one did.
    logger.warn("first: %m");
    logger.debug("off: %m");
    logger.infoStream() << "stream";
    logger.log(LOG_ERROR, "text");
    EXPECT_EQ(LastError::get(), 2u);
    Logger::setWriter(previous);

    ASSERT_EQ(writer.texts.size(), 4u);
    EXPECT_EQ(writer.texts[0], expected.toStdString());
    EXPECT_EQ(writer.texts[1], expected.toStdString());

    // The same through the appenders.
    test::StandardErrorCapture capture(dir_.path("stderr.txt"));
    LastError::set(2);
    logger.warn("first: %m");
    EXPECT_EQ(LastError::get(), 2u);
    EXPECT_EQ(capture.finish(), expected.toStdString() + "\r\n");
}

TEST_F(LoggerTest, FailuresWhileLoggingNeverReachTheCaller) {
    class Throwing : public LogFormatCallback {
      public:
        void onBegin(Str&, const char*) override { throw std::runtime_error("callback"); }
        void onEnd(Str&) override {}
    } throwing;
    class ThrowingWriter : public LogWriter {
      public:
        void write(const Logger&, int32_t, StrSegment) override { throw 42; }
    } throwingWriter;

    Logger logger("LoggerTestThrow");
    test::StandardErrorCapture capture(dir_.path("stderr.txt"));
    EXPECT_NO_THROW(logger.error(throwing, "boom %d", 7));
    LogWriter* previous = Logger::setWriter(&throwingWriter);
    EXPECT_NO_THROW(logger.warn("via %s", "writer"));
    EXPECT_NO_THROW(logger.info(StrSegment("segment")));
    Logger::setWriter(previous);
    EXPECT_EQ(capture.finish(), "ERROR - boom 7\r\nWARN - via writer\r\nINFO - segment\r\n");
}

TEST_F(LoggerTest, SuppressorCountsByFormatAndSummarisesAfterTheInterval) {
    constexpr uint64_t kStart =
        Timeval::UNIX_EPOCH_TICKS + 1600000000ULL * Timeval::TICKS_PER_SECOND;
    Timeval now(kStart);
    const Timeval* previousClock = Timeval::setClockOverride(&now);
    LogCapture capture;
    Logger logger("LoggerTestSuppress", true, 60, 3);

    for (int i = 0; i < 5; ++i) {
        logger.warn("repeat %d", i);
    }
    EXPECT_EQ(capture.texts("LoggerTestSuppress"),
              (std::vector<std::string>{"repeat 0", "repeat 1", "repeat 2"}));
    now = Timeval(kStart + 30 * Timeval::TICKS_PER_SECOND);
    logger.warn("repeat %d", 5);
    // Exactly the interval is not past it.
    now = Timeval(kStart + 60 * Timeval::TICKS_PER_SECOND);
    logger.info("other");
    EXPECT_EQ(capture.lines().size(), 4u);

    capture.clear();
    now = Timeval(kStart + 61 * Timeval::TICKS_PER_SECOND);
    logger.info("another");
    std::vector<test::LoggedLine> lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "another");
    EXPECT_EQ(lines[1].level, LOG_WARN);
    EXPECT_EQ(lines[1].text,
              "repeat 5\r\n\t\t\t\t3 similar messages suppressed.  First occurred at: " +
                  Timeval(kStart).toText().toStdString());

    // The summarised format starts counting afresh.
    capture.clear();
    logger.warn("repeat %d", 6);
    EXPECT_EQ(capture.texts("LoggerTestSuppress"), std::vector<std::string>{"repeat 6"});
    Timeval::setClockOverride(previousClock);
}

TEST_F(LoggerTest, StreamsLogOnceAtTheEndOfTheStatement) {
    LogCapture capture;
    Logger logger("LoggerTestStream");
    logger.infoStream() << "a" << 5 << ' ' << 2.5 << true << Str("!") << -3L << 7u;
    EXPECT_EQ(capture.texts("LoggerTestStream"), std::vector<std::string>{"a5 2.5true!-37"});
    EXPECT_FALSE(logger.debugStream());
    bool built = false;
    if (LogStream stream = logger.debugStream()) {
        built = true;
    }
    EXPECT_FALSE(built);
    logger.warnStream();
    EXPECT_EQ(capture.texts("LoggerTestStream").size(), 2u);
}

TEST_F(LoggerTest, FormatCallbackAndTheThreadBuffer) {
    EmptyMainThread mainThread;
    LogCapture capture;
    Logger logger("LoggerTestBuffer");
    Prefixer prefixer;
    logger.info(prefixer, "x=%d", 1);

    // A log call made while the thread's buffer holds another message gets its own.
    class Nesting : public LogFormatCallback {
      public:
        explicit Nesting(Logger& logger) : logger_(logger) {}
        void onBegin(Str& target, const char*) override {
            target.append("outer ");
            logger_.info("inner");
        }
        void onEnd(Str&) override {}

      private:
        Logger& logger_;
    } nesting(logger);
    logger.warn(nesting, "%s", "text");
    EXPECT_EQ(capture.texts("LoggerTestBuffer"),
              (std::vector<std::string>{"[ctx] x=1 [end]", "inner", "outer text"}));
    // The buffer is free again afterwards.
    int owner = 0;
    EXPECT_NE(Thread::acquireLogBuffer(&owner), nullptr);
    Thread::releaseLogBuffer(&owner);
}

TEST_F(LoggerTest, ThreadNamesAndConcurrentLines) {
    EmptyMainThread mainThread;
    std::string text = "rootCategory=INFO, A\nappender.A.fileName=" + dir_.path("t.log") +
                       "\nappender.A.layout.ConversionPattern=%t|%m%n\n";
    ASSERT_TRUE(LogConfiguration::load(LogConfOptions(), StrSegment(text.c_str())));
    Logger logger("LoggerTestThreads");
    logger.info("main");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&logger, t] {
            for (int i = 0; i < 200; ++i) {
                logger.info("t%d-%d", t, i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    LogConfiguration::reset();
    std::string written = test::readFile(dir_.path("t.log"));
    EXPECT_EQ(written.substr(0, 17), "MainThread|main\r\n");
    // Every line whole, each thread's lines in order.
    std::vector<int> next(4, 0);
    size_t lines = 0;
    for (size_t at = written.find("\r\n") + 2; at < written.size(); ++lines) {
        size_t end = written.find("\r\n", at);
        ASSERT_NE(end, std::string::npos);
        std::string line = written.substr(at, end - at);
        at = end + 2;
        int t = -1;
        int i = -1;
        ASSERT_EQ(std::sscanf(line.c_str(), "Unknown Thread|t%d-%d", &t, &i), 2) << line;
        ASSERT_TRUE(t >= 0 && t < 4);
        EXPECT_EQ(i, next[t]++);
    }
    EXPECT_EQ(lines, 800u);
}

}  // namespace
}  // namespace morvax
