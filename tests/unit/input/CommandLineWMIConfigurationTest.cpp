#include "input/CommandLineWMIConfiguration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "input/CommandLineOptions.h"
#include "input/WMIConfigurationFactory.h"
#include "unit/input/CheckpointPathTestSupport.h"
#include "unit/input/OutputTestSupport.h"
#include "util/io/Pathname.h"

namespace morvax {
namespace {

std::vector<WMIQueryEntry> drain(IWMIConfiguration& configuration) {
    std::vector<WMIQueryEntry> entries;
    while (const WMIQueryEntry* entry = configuration.nextQuery()) {
        entries.push_back(*entry);
    }
    return entries;
}

TEST(CommandLineWMIConfigurationTest, OneEntryPerServerAndLogServersOutside) {
    CommandLineOptions options;
    options.loglist = u"System,Application";
    options.servers = u"h1,h2";
    options.watch = true;
    options.index = u"main";
    std::unique_ptr<IWMIConfiguration> configuration = createWMIConfiguration(options);
    ASSERT_TRUE(configuration->hasQueries());

    std::vector<WMIQueryEntry> entries = drain(*configuration);
    ASSERT_EQ(entries.size(), 4u);
    const char* expected[][2] = {{"\\\\h1\\root\\cimv2", "System"},
                                 {"\\\\h1\\root\\cimv2", "Application"},
                                 {"\\\\h2\\root\\cimv2", "System"},
                                 {"\\\\h2\\root\\cimv2", "Application"}};
    for (size_t i = 0; i < entries.size(); ++i) {
        const WMIQueryEntry& e = entries[i];
        EXPECT_EQ(e.type, WMIQueryEntry::TYPE_EVENT_LOG);
        EXPECT_EQ(e.namespace_, expected[i][0]);
        EXPECT_EQ(e.parameter, expected[i][1]);
        EXPECT_EQ(e.name, expected[i][1]);
        EXPECT_EQ(e.intervalMilliseconds, 1000u);
        EXPECT_EQ(e.hostname, "");
        EXPECT_TRUE(e.notification);
        EXPECT_EQ(e.outputMode, 2u);
        // -index has no effect beside -loglist.
        EXPECT_EQ(e.index, "");
        EXPECT_FALSE(e.disableHostnameNormalization);
    }
    // A one-way cursor that still has queries behind it.
    EXPECT_EQ(configuration->nextQuery(), nullptr);
    EXPECT_TRUE(configuration->hasQueries());
}

TEST(CommandLineWMIConfigurationTest, LocalMachineAndListsAsTheyStand) {
    std::optional<Str> noServers;
    CommandLineWMIConfiguration local("System", noServers, false);
    std::vector<WMIQueryEntry> entries = drain(local);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].namespace_, "\\\\.\\root\\cimv2");
    EXPECT_FALSE(entries[0].notification);

    // Nothing is stripped; quotes group and empty names drop out.
    CommandLineWMIConfiguration listed(" System,,\"a,b\"", Str("srv "), false);
    entries = drain(listed);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].namespace_, "\\\\srv \\root\\cimv2");
    EXPECT_EQ(entries[0].parameter, " System");
    EXPECT_EQ(entries[1].name, "a,b");

    // No log, or an empty server list, gives no entry; the caller decides what that means.
    CommandLineWMIConfiguration noLogs(",", noServers, false);
    EXPECT_FALSE(noLogs.hasQueries());
    EXPECT_EQ(noLogs.nextQuery(), nullptr);
    CommandLineWMIConfiguration emptyServers("System", Str(""), false);
    EXPECT_FALSE(emptyServers.hasQueries());
}

TEST(CommandLineWMIConfigurationTest, IndexLosesOnePairOfEnclosingQuotes) {
    CommandLineOptions options;
    EXPECT_EQ(indexFromOptions(options), "default");
    const std::pair<const char16_t*, const char*> cases[] = {
        {u"\"main\"", "main"}, {u"\"", "\""},           {u"\"\"", ""},
        {u"\"a", "\"a"},       {u"\"\"x\"\"", "\"x\""}, {u"m\u00e4in", "m\xc3\xa4in"},
    };
    for (const auto& [index, expected] : cases) {
        options.index = index;
        EXPECT_EQ(indexFromOptions(options), expected);
    }
}

TEST(CommandLineWMIConfigurationTest, CheckpointPathIsMadeOnceAndCached) {
    cmdlinetest::ScopedDatabaseDirectory database;
    CommandLineWMIConfiguration configuration("System", std::nullopt, false);
    const Pathname expected = database.pathname("persistentstorage/wmi/wmicmdln.ini");
    EXPECT_EQ(configuration.getCheckpointPath().toStr(), expected.toStr());
    EXPECT_TRUE(expected.dirName().isDirectory());

    // Formed once: a later change of the installation does not move it.
    cmdlinetest::ScopedDatabaseDirectory other;
    EXPECT_EQ(configuration.getCheckpointPath().toStr(), expected.toStr());
}

TEST(CommandLineWMIConfigurationTest, CheckpointPathFailureLogsAndGivesTheEmptyPath) {
    cmdlinetest::ScopedDatabaseDirectory database;
    // A file where the directory should be.
    Pathname blocker = database.pathname("persistentstorage");
    ASSERT_TRUE(blocker.openForWrite().isValid());

    CommandLineWMIConfiguration configuration("System", std::nullopt, false);
    outputtest::LogLines writer;
    EXPECT_TRUE(configuration.getCheckpointPath().empty());
    ASSERT_EQ(writer.formatted().size(), 2u);
    EXPECT_EQ(
        writer.formatted()[0].rfind("WMI ERROR getMorvaxWmiCheckpointPath: Failed to create AD "
                                    "Monitor check point directory: ",
                                    0),
        0u);
    EXPECT_EQ(writer.formatted()[1],
              "WMI ERROR CommandLineWMIConfiguration::getCheckpointPath: Cannot resolve "
              "checkpoint file: ");
}

}  // namespace
}  // namespace morvax
