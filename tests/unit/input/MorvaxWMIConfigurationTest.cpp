#include "input/MorvaxWMIConfiguration.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "conf/InstallationInfo.h"
#include "input/WMITuning.h"
#include "support/Environment.h"
#include "unit/input/OutputTestSupport.h"
#include "unit/util/log/LogTestSupport.h"

namespace morvax {
namespace {

// Every field of an entry, so that a comparison of these texts compares the entries whole.
std::string describe(const WMIQueryEntry& entry) {
    return "type=" + std::to_string(entry.type) + " ns=" + entry.namespace_.c_str() +
           " param=" + entry.parameter.c_str() +
           " interval=" + std::to_string(entry.intervalMilliseconds) +
           " name=" + entry.name.c_str() + " host=" + entry.hostname.c_str() +
           " notify=" + std::to_string(entry.notification) +
           " mode=" + std::to_string(entry.outputMode) + " index=" + entry.index.c_str() +
           " norm=" + std::to_string(entry.disableHostnameNormalization);
}

// The entry of a stanza that sets only what is given here, as the text of describe().
std::string wql(const char* ns, const char* query, const char* name, uint64_t intervalMs = 10000,
                const char* index = "main") {
    WMIQueryEntry entry;
    entry.namespace_ = ns;
    entry.parameter = query;
    entry.intervalMilliseconds = intervalMs;
    entry.name = name;
    entry.index = index;
    return describe(entry);
}

std::string eventLog(const char* ns, const char* log, const char* index = "main") {
    WMIQueryEntry entry;
    entry.type = WMIQueryEntry::TYPE_EVENT_LOG;
    entry.namespace_ = ns;
    entry.parameter = log;
    entry.intervalMilliseconds = 10000;
    entry.name = Str("WinEventLog:") + log;
    entry.index = index;
    return describe(entry);
}

struct Reading {
    std::vector<std::string> entries;
    // The lines of the channels WMI and PropertiesMap, in order, as "<channel> <LEVEL> <text>".
    std::vector<std::string> log;
    bool hasQueries = false;
};

class MorvaxWMIConfigurationTest : public ::testing::Test {
  protected:
    MorvaxWMIConfigurationTest() : dir_(uniqueName()) {}
    void SetUp() override { WMITuning::restoreDefaults(); }
    void TearDown() override { WMITuning::restoreDefaults(); }

    // Reads `wmiConf` as the local wmi.conf of a fresh configuration root. Pages are kept per
    // root for the life of the process, so every reading has a root of its own.
    Reading read(const std::string& wmiConf, const char* defaultIndex = "main") {
        const std::string etc = "etc" + std::to_string(++readings_);
        write(etc + "/system/default/conf.conf",
              "[bootstrap]\nsystem/local = conf\nsystem/default = conf\n");
        write(etc + "/system/local/wmi.conf", wmiConf);
        test::ScopedEnvironment variable("MORVAX_ETC", dir_.path(etc).c_str());
        InstallationInfo::instance().readEnvironment();

        outputtest::LogLines lines;
        MorvaxWMIConfiguration configuration{Str(defaultIndex)};
        Reading reading;
        reading.hasQueries = configuration.hasQueries();
        while (const WMIQueryEntry* entry = configuration.nextQuery()) {
            reading.entries.push_back(describe(*entry));
        }
        for (const std::string& line : lines.formatted()) {
            if (line.starts_with("WMI ") || line.starts_with("PropertiesMap ")) {
                reading.log.push_back(line);
            }
        }
        return reading;
    }

  private:
    static std::string uniqueName() {
        static std::atomic<unsigned> counter{0};
        return "wmiconf-" + std::to_string(++counter);
    }
    void write(const std::string& relative, const std::string& text) {
        test::writeFileMakingDirectories(dir_.path(relative), text);
    }

    test::TempDirectory dir_;
    unsigned readings_ = 0;
};

TEST_F(MorvaxWMIConfigurationTest, SettingsSetTheTuningInSecondsAndKeepDefaultsOtherwise) {
    struct Case {
        const char* conf;
        uint64_t initialBackoff, maxBackoff;
        uint32_t maxRetries;
        uint64_t checkpointSync;
        std::vector<std::string> log;
    };
    const Case cases[] = {
        {"", 5000, 20000, 2, 2000, {}},
        {"[settings]\ninitial_backoff = 1\nmax_backoff = 60\nmax_retries_at_max_backoff = 7\n"
         "checkpoint_sync_interval = 0\n",
         1000,
         60000,
         7,
         0,
         {}},
        // [default] fills in what [settings] lacks.
        {"[default]\nmax_backoff = 30\n[settings]\ninitial_backoff = 3\n",
         3000,
         30000,
         2,
         2000,
         {}},
        {"[settings]\ninitial_backoff = soon\nmax_retries_at_max_backoff = -1\n",
         5000,
         20000,
         2,
         2000,
         {"PropertiesMap WARN Cannot convert string \"soon\" into unsigned for \"initial_backoff\"",
          "PropertiesMap WARN Cannot convert string \"-1\" into unsigned for "
          "\"max_retries_at_max_backoff\""}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.conf);
        WMITuning::restoreDefaults();
        const Reading reading = read(c.conf);
        const WMITuning& tuning = WMITuning::process();
        EXPECT_EQ(tuning.initialBackoffMilliseconds, c.initialBackoff);
        EXPECT_EQ(tuning.maxBackoffMilliseconds, c.maxBackoff);
        EXPECT_EQ(tuning.maxRetriesAtMaxBackoff, c.maxRetries);
        EXPECT_EQ(tuning.checkpointSyncIntervalMilliseconds, c.checkpointSync);
        EXPECT_EQ(reading.log, c.log);
        EXPECT_FALSE(reading.hasQueries);
    }
}

TEST_F(MorvaxWMIConfigurationTest, EveryKeyOfAStanzaAndItsDefault) {
    test::ScopedEnvironment server("MORVAX_TEST_SERVER", "srv7");
    test::ScopedEnvironment host("MORVAX_TEST_HOST", "h-7");
    const Reading reading = read(
        "[default]\ninterval = 30\n"
        "[WMI:Full]\n"
        "interval = 0\n"
        "wql = SELECT Name FROM Win32_Process\n"
        "namespace = root\\$MORVAX_TEST_SERVER\n"
        "server = $MORVAX_TEST_SERVER\n"
        "hostname = $MORVAX_TEST_HOST\n"
        "index = summary\n"
        "current_only = 1\n"
        "disable_hostname_normalization = true\n"
        "[WMI:Minimal]\n"
        "wql = SELECT * FROM Win32_OperatingSystem\n");

    WMIQueryEntry full;
    full.namespace_ = "\\\\srv7\\root\\srv7";
    full.parameter = "SELECT Name FROM Win32_Process";
    full.intervalMilliseconds = 0;
    full.name = "Full";
    full.hostname = "h-7";
    full.notification = true;
    full.index = "summary";
    full.disableHostnameNormalization = true;
    EXPECT_EQ(reading.entries,
              (std::vector<std::string>{
                  describe(full),
                  wql("root\\cimv2", "SELECT * FROM Win32_OperatingSystem", "Minimal", 30000)}));
    EXPECT_EQ(reading.log, std::vector<std::string>{});
    EXPECT_TRUE(reading.hasQueries);
}

TEST_F(MorvaxWMIConfigurationTest, ServersAndNamespaces) {
    const Reading reading = read(
        "[default]\ninterval = 10\nwql = Q\n"
        "[WMI:1]\n"
        "[WMI:2]\nserver = a ,\tb\n"
        "[WMI:3]\nserver = \"a,b\"\n"
        "[WMI:4]\nserver = ::1\n"
        "[WMI:5]\nnamespace = \\\\host\\root\\x\n"
        "[WMI:6]\nnamespace = root\\wmi\nserver = a,,b\n");
    EXPECT_EQ(reading.entries, (std::vector<std::string>{
                                   wql("root\\cimv2", "Q", "1"),
                                   wql("\\\\a\\root\\cimv2", "Q", "2"),
                                   wql("\\\\b\\root\\cimv2", "Q", "2"),
                                   wql("\\\\a,b\\root\\cimv2", "Q", "3"),
                                   wql("\\\\[::1]\\root\\cimv2", "Q", "4"),
                                   wql("\\\\host\\root\\x", "Q", "5"),
                                   wql("\\\\a\\root\\wmi", "Q", "6"),
                                   wql("\\\\b\\root\\wmi", "Q", "6"),
                               }));
    EXPECT_EQ(reading.log,
              std::vector<std::string>{"WMI WARN '::1' looks like a ipv6 address, Will enclose in "
                                       "'[]' if not already done."});
}

TEST_F(MorvaxWMIConfigurationTest, NamesIndexesAndEventLogs) {
    const Reading reading = read(
        "[default]\ninterval = 10\nwql = Q\n"
        "[WMI]\n"
        "[WMIx]\n"
        "[WMIxy]\nindex = DEFAULT\n"
        "[WMI:Both]\nevent_log_file = System\nindex = Default\n"
        "[WMI:Index]\nindex = other\n"
        "[WMX:Other]\n");
    // Byte order: ':' comes before 'x'.
    EXPECT_EQ(reading.entries, (std::vector<std::string>{
                                   wql("root\\cimv2", "Q", ""),
                                   wql("root\\cimv2", "Q", "Both"),
                                   wql("root\\cimv2", "Q", "Index", 10000, "other"),
                                   wql("root\\cimv2", "Q", ""),
                                   wql("root\\cimv2", "Q", "y"),
                               }));

    const Reading logs = read(
        "[WMI:Logs]\ninterval = 10\nserver = a, b\nevent_log_file = Application, \tSystem\n"
        "[WMI:Security]\ninterval = 10\nevent_log_file = Security\nindex =\n",
        "default");
    EXPECT_EQ(logs.entries, (std::vector<std::string>{
                                eventLog("\\\\a\\root\\cimv2", "Application", "default"),
                                eventLog("\\\\a\\root\\cimv2", "System", "default"),
                                eventLog("\\\\b\\root\\cimv2", "Application", "default"),
                                eventLog("\\\\b\\root\\cimv2", "System", "default"),
                                eventLog("root\\cimv2", "Security", "default"),
                            }));
    EXPECT_EQ(logs.log, std::vector<std::string>{});
}

TEST_F(MorvaxWMIConfigurationTest, BadStanzasAreReportedAndLeftOutDisabledOnesSilently) {
    const Reading reading = read(
        "[WMI:a]\nwql = Q\n"
        "[WMI:b]\ninterval = abc\nwql = Q\n"
        "[WMI:c]\ninterval = 10\n"
        "[WMI:d]\ninterval = 10\nnamespace = \\\\h\\root\\cimv2\nserver = a\nwql = Q\n"
        "[WMI:e]\ninterval = 10\nevent_log_file = Security\n"
        "[WMI:f]\ndisabled = 1\ninterval = abc\nnamespace = \\\\h\\x\nserver = a\n"
        "[WMI:g]\ndisabled = yes\n");
    EXPECT_EQ(reading.entries, std::vector<std::string>{eventLog("root\\cimv2", "Security")});
    EXPECT_EQ(
        reading.log,
        (std::vector<std::string>{
            "WMI ERROR The stanza \"WMI:a\" is missing the \"interval\" property, which is "
            "required. Skipping this stanza.",
            "PropertiesMap WARN Cannot convert string \"abc\" into unsigned for \"interval\"",
            "WMI ERROR The stanza \"WMI:b\" is missing the \"interval\" property, which is "
            "required. Skipping this stanza.",
            "WMI ERROR The stanza \"WMI:c\" is invalid: either wql or event_log_file must be "
            "present. Skipping this stanza.",
            "WMI ERROR The stanza \"WMI:d\" is invalid: You cannot specify absolute \"namespace\" "
            "parameter (one that contains server name) and also specify the \"server\" "
            "parameter in the same stanza. Skipping this stanza.",
        }));

    const Reading disabled = read("[WMI:x]\ndisabled = true\ninterval = abc\n");
    EXPECT_FALSE(disabled.hasQueries);
    EXPECT_EQ(disabled.log, std::vector<std::string>{});
}

}  // namespace
}  // namespace morvax
