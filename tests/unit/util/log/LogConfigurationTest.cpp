#include "util/log/LogConfiguration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/util/log/LogTestSupport.h"
#include "util/base/LastError.h"
#include "util/log/LogAppender.h"
#include "util/log/LogRegistry.h"
#include "util/log/Logger.h"
#include "util/log/LoggerSimple.h"

namespace morvax {
namespace {

using test::LogCapture;
using test::readFile;
using test::writeFile;

class LogConfigurationTest : public ::testing::Test {
  protected:
    LogConfigurationTest()
        : dir_(::testing::UnitTest::GetInstance()->current_test_info()->name()) {}

    // Writes the configuration and loads it, with ${MORVAX_HOME} standing for the directory.
    bool load(const std::string& text, const std::string& name = "log.cfg") {
        writeFile(dir_.path(name), text);
        options_.fileName = dir_.pathname(name);
        options_.substitutions[Str("${MORVAX_HOME}")] = Str(dir_.text().c_str()).toWide();
        return LogConfiguration::load(options_);
    }
    std::string path(const std::string& relative) const { return dir_.path(relative); }
    // The line of a report about the file `name`.
    std::string at(const std::string& name, int line, const std::string& text) const {
        return dir_.path(name) + ":" + std::to_string(line) + ": " + text;
    }
    std::string reports(const LogCapture& capture) const {
        std::string out;
        for (const std::string& text : capture.texts("Logger")) {
            out += text + "\n";
        }
        return out;
    }

    test::TempDirectory dir_;
    test::LogReset reset_;
    LogConfOptions options_;
};

TEST_F(LogConfigurationTest, CategoriesAndAFileAppenderWithAPattern) {
    Logger wmi("LogCfgWMI");
    Logger other("LogCfgOther");
    LoggerSimple raw("LogCfgRaw");
    ASSERT_TRUE(
        load("# the collector's logging\n"
             "log4cpp.rootCategory=WARN, A\n"
             "appender.A.fileName=${MORVAX_HOME}/x.log\n"
             "appender.A.layout=PatternLayout\n"
             "appender.A.layout.ConversionPattern=%p %c: %m%n\n"
             "category.LogCfgWMI=DEBUG\n"));
    EXPECT_TRUE(wmi.isDebugEnabled());
    EXPECT_FALSE(other.isEnabled(LOG_INFO));
    wmi.debug("d%d", 1);
    other.info("dropped");
    other.warn("w");
    wmi.warn("line\nbreak\a");
    raw.warn("a\nb");
    LogConfiguration::reset();
    EXPECT_EQ(readFile(path("x.log")),
              "DEBUG LogCfgWMI: d1\r\n"
              "WARN LogCfgOther: w\r\n"
              "WARN LogCfgWMI: line\\nbreak\\x07\r\n"
              "WARN LogCfgRaw: a\nb\r\n");
    // After the reset the Loggers are back on the root channel.
    EXPECT_FALSE(wmi.isDebugEnabled());
    EXPECT_TRUE(other.isEnabled(LOG_INFO));
}

TEST_F(LogConfigurationTest, ErrorsAreReportedWithFileAndLineAndLeaveTheRestInForce) {
    LogCapture capture;
    Logger a("LogCfgA");
    Logger b("LogCfgB");
    EXPECT_FALSE(
        load("rootCategory=INFO\n"
             "category.LogCfgA=DEBUG, nosuch\n"
             "appender.B.maxFileSize=012\n"
             "appender.B.serialization=XML\n"
             "appender.B.escape=maybe\n"
             "appender.B.unknownKey=1\n"
             "category.LogCfgB=WARN\n"
             "garbage\n"
             "<!-- open\n"));
    EXPECT_EQ(reports(capture),
              "Invalid serialization='XML'\n"
              "Invalid escape='maybe'\n"
              "Appender \"B\" has no filename, assuming stderr\n" +
                  at("log.cfg", 2, "Parse error at \"category.LogCfgA=DEBUG, nosuch\"") + "\n" +
                  at("log.cfg", 3, "Parse error at \"appender.B.maxFileSize=012\"") + "\n" +
                  at("log.cfg", 4, "Parse error at \"appender.B.serialization=XML\"") + "\n" +
                  at("log.cfg", 5, "Parse error at \"appender.B.escape=maybe\"") + "\n" +
                  at("log.cfg", 6, "Parse error at \"appender.B.unknownKey=1\"") + "\n" +
                  at("log.cfg", 8, "Parse error at \"garbage\"") + "\n" +
                  at("log.cfg", 9, "Unterminated XML comment started") + "\n");
    EXPECT_TRUE(capture.has(LOG_WARN, at("log.cfg", 2,
                                         "Parse error at \"category.LogCfgA=DEBUG, "
                                         "nosuch\"")));
    EXPECT_TRUE(capture.has(LOG_ERROR, at("log.cfg", 9, "Unterminated XML comment started")));
    EXPECT_TRUE(capture.has(LOG_ERROR, "Invalid serialization='XML'"));
    // The good lines took effect; the bad one left its channel at the root's level.
    EXPECT_TRUE(b.isEnabled(LOG_WARN));
    EXPECT_FALSE(b.isEnabled(LOG_INFO));
    EXPECT_FALSE(a.isDebugEnabled());
    EXPECT_TRUE(a.isEnabled(LOG_INFO));
    LogAppender* appender = LogConfiguration::findAppender("B", false);
    ASSERT_NE(appender, nullptr);
    EXPECT_EQ(appender->serialization(), static_cast<uint32_t>(LogAppender::PLAIN));
    EXPECT_TRUE(appender->escape());
    EXPECT_TRUE(appender->onStandardError());
}

TEST_F(LogConfigurationTest, MissingFileIsReportedAndLeavesTheDefaults) {
    LogCapture capture;
    options_.fileName = dir_.pathname("absent.cfg");
    EXPECT_FALSE(LogConfiguration::load(options_));
    Str notFound;
    notFound.appendFormatError(2, "%m");
    EXPECT_TRUE(capture.has(LOG_ERROR, "Couldn't open log file configuration \"" +
                                           path("absent.cfg") + "\": " + notFound.toStdString()))
        << reports(capture);
    EXPECT_TRUE(LogRegistry::instance().configured());
    EXPECT_TRUE(LogRegistry::instance().rootAppender().onStandardError());
}

TEST_F(LogConfigurationTest, TheLocalCompanionOverridesTheFile) {
    Logger c("LogCfgC");
    writeFile(path("log-cmdline-local.cfg"), "category.LogCfgC=DEBUG\nrootCategory=ERROR\n");
    EXPECT_TRUE(load("log4cpp.rootCategory=INFO\ncategory.LogCfgC=ERROR\n", "log-cmdline.cfg"));
    EXPECT_TRUE(c.isDebugEnabled());
    EXPECT_EQ(LogRegistry::instance().rootChannel().level(), LOG_ERROR);

    // Errors of the companion name the companion.
    LogCapture capture;
    writeFile(path("log-cmdline-local.cfg"), "\nbad line\n");
    EXPECT_FALSE(load("bad=1\n", "log-cmdline.cfg"));
    EXPECT_EQ(reports(capture), at("log-cmdline.cfg", 1, "Parse error at \"bad=1\"") + "\n" +
                                    at("log-cmdline-local.cfg", 2, "Parse error at \"bad line\"") +
                                    "\n");
}

TEST_F(LogConfigurationTest, LocalCompanionNames) {
    auto local = [](const std::string& name) {
        std::string native = name;
        std::replace(native.begin(), native.end(), '/', static_cast<char>(Pathname::SEPARATOR));
        Pathname companion =
            LogConfiguration::localCompanionName(Pathname(StrSegment(native.c_str())));
        std::string text = companion.toStr().toStdString();
        std::replace(text.begin(), text.end(), static_cast<char>(Pathname::SEPARATOR), '/');
        return text.substr(text.find("/a/"));
    };
    EXPECT_EQ(local("/a/b/log-cmdline.cfg"), "/a/b/log-cmdline-local.cfg");
    EXPECT_EQ(local("/a/x.tar.gz"), "/a/x-local.tar.gz");
    EXPECT_EQ(local("/a/b.d/log"), "/a/b.d/log-local");
    EXPECT_EQ(local("/a/.hidden"), "/a/.hidden-local");
}

TEST_F(LogConfigurationTest, AppenderKeysSubstitutionsFiltersAndAllowedBits) {
    LogAppender& appender = *LogConfiguration::findAppender("K", true);
    options_.substitutions[Str("${MORVAX_HOME}")] = Str(dir_.text().c_str()).toWide();
    options_.substitutions[Str("$X")] = u"${MORVAX_HOME}";
    options_.filterWords.insert(Str("skipme"));
    std::string value =
        "${MORVAX_HOME}" + std::string(1, static_cast<char>(Pathname::SEPARATOR)) + "x.log";
    EXPECT_TRUE(LogConfiguration::setAppenderKey(appender, "fileName", value.c_str(), options_));
    EXPECT_EQ(appender.fileName().toStr().toStdString(), path("x.log"));
    EXPECT_EQ(appender.rawFileName().toStdString(), path("x.log"));
    // Pairs apply in key order, each to the result of those before it.
    EXPECT_EQ(LogConfiguration::substitute("$X/$X", options_.substitutions).toStdString(),
              dir_.text() + "/" + dir_.text());

    EXPECT_TRUE(LogConfiguration::setAppenderKey(appender, "maxFileSize", "100", options_));
    EXPECT_TRUE(LogConfiguration::setAppenderKey(appender, "maxFileSize", "50", options_));
    EXPECT_EQ(appender.maxFileSize(), 50);
    EXPECT_TRUE(LogConfiguration::setAppenderKey(appender, "bufferSize", " 0064\t", options_));
    EXPECT_EQ(appender.bufferSize(), 64u);
    EXPECT_TRUE(LogConfiguration::setAppenderKey(appender, "escape", "No", options_));
    EXPECT_FALSE(appender.escape());
    EXPECT_TRUE(LogConfiguration::setAppenderKey(appender, "layout", "SimpleLayout", options_));
    EXPECT_EQ(appender.layout(), LogPattern::simpleLayout());
    EXPECT_TRUE(LogConfiguration::setAppenderKey(appender, "layout", "PatternLayout", options_));
    EXPECT_EQ(appender.layout(), LogPattern::simpleLayout());
    EXPECT_FALSE(LogConfiguration::setAppenderKey(appender, "layout", "XMLLayout", options_));
    EXPECT_FALSE(LogConfiguration::setAppenderKey(appender, "Layout", "BasicLayout", options_));

    // A restricted load may only change its keys, and sizes only upward.
    options_.allowedKeys = LogConfOptions::KEY_MAX_FILE_SIZE | LogConfOptions::KEY_MAX_MESSAGE_SIZE;
    EXPECT_FALSE(LogConfiguration::setAppenderKey(appender, "maxFileSize", "49", options_));
    EXPECT_TRUE(LogConfiguration::setAppenderKey(appender, "maxFileSize", "51", options_));
    EXPECT_EQ(appender.maxFileSize(), 51);
    EXPECT_FALSE(LogConfiguration::setAppenderKey(appender, "maxMessageSize", "100", options_));
    EXPECT_FALSE(LogConfiguration::setAppenderKey(appender, "escape", "yes", options_));
    EXPECT_FALSE(appender.escape());

    options_.allowedKeys = LogConfOptions::ALL_KEYS;
    std::string filtered = dir_.path("skipme.log");
    EXPECT_TRUE(LogConfiguration::setAppenderKey(appender, "fileName", filtered.c_str(), options_));
    appender.check(true, LogPattern::messageLayout());
    EXPECT_TRUE(appender.disabled());
}

TEST_F(LogConfigurationTest, NumberAndBooleanValues) {
    uint64_t n = 7;
    EXPECT_TRUE(LogConfiguration::parseSize("0", 100, n));
    EXPECT_EQ(n, 0u);
    EXPECT_TRUE(LogConfiguration::parseSize("42 \t", 100, n));
    EXPECT_EQ(n, 42u);
    EXPECT_TRUE(LogConfiguration::parseSize("100", 100, n));
    for (const char* bad : {"", "00", "012", " 1", "1a", "-1", "101", "+1"}) {
        EXPECT_FALSE(LogConfiguration::parseSize(bad, 100, n)) << bad;
    }
    EXPECT_FALSE(LogConfiguration::parseSize("18446744073709551616", ~uint64_t{0}, n));
    EXPECT_TRUE(LogConfiguration::parseBufferSize("\t007 ", n));
    EXPECT_EQ(n, 7u);
    EXPECT_FALSE(LogConfiguration::parseBufferSize("1 2", n));
    EXPECT_FALSE(LogConfiguration::parseBufferSize("  ", n));
    bool b = false;
    for (const char* yes : {"1", "t", "T", "true", "TRUE", "yes", "Yes"}) {
        EXPECT_TRUE(LogConfiguration::parseBoolean(yes, b) && b) << yes;
    }
    for (const char* no : {"0", "f", "False", "no", "NO"}) {
        EXPECT_TRUE(LogConfiguration::parseBoolean(no, b) && !b) << no;
    }
    EXPECT_FALSE(LogConfiguration::parseBoolean("on", b));
    EXPECT_EQ(LogConfiguration::levelFromName("WARN"), LOG_WARN);
    EXPECT_EQ(LogConfiguration::levelFromName("warn"), -1);
}

TEST_F(LogConfigurationTest, CheckClearsSettingsThatNeedAFileOrASize) {
    LogCapture capture;
    EXPECT_TRUE(
        load("appender.N.maxBackupIndex=2\n"
             "appender.N.maxFileSize=10\n"
             "appender.M.fileName=${MORVAX_HOME}/m.log\n"
             "appender.M.maxBackupIndex=3\n"
             "appender.F.fileName=${MORVAX_HOME}/missing/f.log\n"));
    Str failed;
    failed.appendFormat("Failed opening \"%s\": ", path("missing/f.log").c_str());
    std::vector<std::string> texts = capture.texts("Logger");
    ASSERT_EQ(texts.size(), 5u) << reports(capture);
    EXPECT_EQ(texts[0].substr(0, failed.size()), failed.toStdString());
    EXPECT_EQ(texts[1],
              "Appender \"M\" has maxBackupIndex set without specifying maxFileSize, ignoring");
    EXPECT_EQ(texts[2], "Appender \"N\" has no filename, assuming stderr");
    EXPECT_EQ(texts[3],
              "Appender \"N\" has maxBackupIndex set without specifying a filename, ignoring");
    EXPECT_EQ(texts[4],
              "Appender \"N\" has maxFileSize set without specifying a filename, ignoring");
    EXPECT_EQ(LogConfiguration::findAppender("N", false)->maxBackupIndex(), 0u);
    EXPECT_EQ(LogConfiguration::findAppender("N", false)->maxFileSize(), 0);
    EXPECT_EQ(LogConfiguration::findAppender("M", false)->maxBackupIndex(), 0u);
    // The test opening created the file.
    EXPECT_TRUE(test::fileExists(path("m.log")));
}

TEST_F(LogConfigurationTest, OpenFailuresAreReportedOnceUntilTheFileOpens) {
    Logger logger("LogCfgOpen");
    ASSERT_TRUE(
        load("rootCategory=INFO, F\n"
             "category.Logger=DEBUG, R\n"
             "appender.R.fileName=${MORVAX_HOME}/reports.log\n"
             "appender.R.layout.ConversionPattern=%p %m%n\n"
             "appender.F.fileName=${MORVAX_HOME}/later/f.log\n"));
    logger.info("lost 1");
    logger.info("lost 2");
    test::makeDirectories(path("later"));
    logger.info("kept");
    LogConfiguration::reset();
    EXPECT_EQ(readFile(path("later/f.log")), "kept\r\n");
    std::string reportsText = readFile(path("reports.log"));
    Str failed;
    failed.appendFormat("ERROR Failed opening \"%s\": ", path("later/f.log").c_str());
    Str opened;
    opened.appendFormat("DEBUG Successfully opened \"%s\" now.\r\n", path("later/f.log").c_str());
    ASSERT_EQ(reportsText.substr(0, failed.size()), failed.toStdString());
    // One failure at the check, none for the lost lines, then the success.
    EXPECT_EQ(reportsText.find("Failed", failed.size()), std::string::npos) << reportsText;
    EXPECT_EQ(reportsText.substr(reportsText.size() - opened.size()), opened.toStdString());
}

TEST_F(LogConfigurationTest, AFailingAppenderIsNotAskedToReportItsOwnFailure) {
    // The reports of the log system go to the root's only appender, the one that fails: they
    // fall back to a direct line on standard error.
    test::StandardErrorCapture capture(path("stderr.txt"));
    ASSERT_TRUE(
        load("rootCategory=INFO, F\n"
             "appender.F.fileName=${MORVAX_HOME}/missing/f.log\n"));
    std::string written = capture.finish();
    Str expected;
    expected.appendFormat("ERROR - Failed opening \"%s\": ", path("missing/f.log").c_str());
    EXPECT_EQ(written.substr(0, expected.size()), expected.toStdString()) << written;
    EXPECT_EQ(written.find("\r\n"), written.size() - 2);
}

TEST_F(LogConfigurationTest, BufferedChannelsWriteInBlocks) {
    Logger logger("LogCfgBuffered");
    ASSERT_TRUE(
        load("rootCategory=INFO, buffered, A\n"
             "appender.A.fileName=${MORVAX_HOME}/b.log\n"
             "appender.A.bufferSize=20\n"));
    logger.info("one");
    logger.info("two");
    EXPECT_EQ(readFile(path("b.log")), "");
    logger.info("three-three");
    EXPECT_EQ(readFile(path("b.log")), "one\r\ntwo\r\nthree-three\r\n");
    logger.info("four");
    EXPECT_EQ(readFile(path("b.log")), "one\r\ntwo\r\nthree-three\r\n");
    // A reload flushes what was held back.
    LogConfiguration::reset();
    EXPECT_EQ(readFile(path("b.log")), "one\r\ntwo\r\nthree-three\r\nfour\r\n");
}

TEST_F(LogConfigurationTest, EscapeSettingAndJsonSerialisation) {
    Logger logger("LogCfgJson");
    ASSERT_TRUE(
        load("rootCategory=INFO, E, J\n"
             "appender.E.fileName=${MORVAX_HOME}/e.log\n"
             "appender.E.escape=no\n"
             "appender.J.fileName=${MORVAX_HOME}/j.log\n"
             "appender.J.serialization=JSON\n"
             "appender.J.layout.ConversionPattern=%p %c %m%n\n"));
    logger.info("{\"bell\":\"\a\",\"n\":\"\n\"}");
    LogConfiguration::reset();
    EXPECT_EQ(readFile(path("e.log")), "{\"bell\":\"\a\",\"n\":\"\\n\"}\r\n");
    // The first appender's setting decides the escaping for all.
    EXPECT_EQ(readFile(path("j.log")),
              "{\"log_level\":\"INFO\",\"component\":\"LogCfgJson\",\"data\":{\"bell\":\"\a\","
              "\"n\":\"\\n\"}}\r\n");
}

TEST_F(LogConfigurationTest, SilentLoadSwitchesOffStandardError) {
    Logger logger("LogCfgSilent");
    options_.report = 0;
    ASSERT_TRUE(load("rootCategory=INFO\nappender.S.layout=BasicLayout\n"));
    EXPECT_TRUE(LogRegistry::instance().rootAppender().disabled());
    EXPECT_TRUE(LogConfiguration::findAppender("S", false)->disabled());
    test::StandardErrorCapture stderrCapture(path("stderr.txt"));
    logger.info("nothing");
    LogRegistry::emergencyWrite(LOG_ERROR, "nothing either");
    EXPECT_EQ(stderrCapture.finish(), "");
}

TEST_F(LogConfigurationTest, SetAppenderByNameAtRunTime) {
    ASSERT_TRUE(
        load("appender.P.fileName=${MORVAX_HOME}/p.log\n"
             "appender.Q.fileName=${MORVAX_HOME}/q.log\n"));
    EXPECT_TRUE(LogConfiguration::setAppenderByName(options_, nullptr, "maxMessageSize", "900"));
    EXPECT_EQ(LogConfiguration::findAppender("P", false)->maxMessageSize(), 900u);
    EXPECT_EQ(LogConfiguration::findAppender("Q", false)->maxMessageSize(), 900u);
    EXPECT_FALSE(LogConfiguration::setAppenderByName(options_, nullptr, "maxMessageSize", "x"));
    EXPECT_TRUE(LogConfiguration::setAppenderByName(options_, "New", "escape", "0"));
    EXPECT_FALSE(LogConfiguration::findAppender("New", false)->escape());
    EXPECT_EQ(LogConfiguration::findAppender("rootAppender", false),
              &LogRegistry::instance().rootAppender());
}

}  // namespace
}  // namespace morvax
