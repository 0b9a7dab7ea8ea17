#include "input/CommandLineOptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

namespace morvax {
namespace {

struct Parsed {
    bool ok = false;
    CommandLineOptions options;
};

// The arguments after the program name; literals, so the borrowed pointers stay valid.
Parsed parse(std::initializer_list<const char16_t*> arguments) {
    std::vector<const char16_t*> argv{u"morvax-wmi"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    Parsed parsed;
    parsed.ok =
        parseCommandLineArguments(static_cast<int>(argv.size()), argv.data(), parsed.options);
    return parsed;
}

bool accepted(std::initializer_list<const char16_t*> arguments) {
    return parse(arguments).ok;
}

TEST(CommandLineOptionsTest, NoArgumentsSetNothing) {
    for (const Parsed& parsed : {parse({}), parse({nullptr, u"-bogus"})}) {
        EXPECT_TRUE(parsed.ok);
        const CommandLineOptions& o = parsed.options;
        EXPECT_FALSE(o.runUntilPidDies || o.dieWhenPidDies || o.watch || o.test);
        EXPECT_EQ(o.pid, 0u);
        EXPECT_FALSE(o.wql || o.namespace_ || o.servers);
        EXPECT_EQ(o.loglist, nullptr);
        EXPECT_EQ(o.index, nullptr);
    }
    // The walk stops at argc even where the vector goes on.
    const char16_t* argv[] = {u"morvax-wmi", u"-test", u"-bogus"};
    CommandLineOptions options;
    EXPECT_TRUE(parseCommandLineArguments(2, argv, options));
    EXPECT_TRUE(options.test);
}

TEST(CommandLineOptionsTest, OneShotOptions) {
    Parsed parsed = parse({u"-wql", u"SELECT * FROM Win32_Process", u"-namespace", u"root\\default",
                           u"-watch", u"-index", u"main"});
    ASSERT_TRUE(parsed.ok);
    EXPECT_EQ(*parsed.options.wql, u"SELECT * FROM Win32_Process");
    EXPECT_EQ(*parsed.options.namespace_, u"root\\default");
    EXPECT_TRUE(parsed.options.watch);
    EXPECT_EQ(parsed.options.index, std::u16string_view(u"main"));

    // -namespace and -watch are known only after -wql.
    EXPECT_FALSE(accepted({u"-namespace", u"root\\default", u"-wql", u"SELECT x"}));
    EXPECT_FALSE(accepted({u"-watch", u"-wql", u"SELECT x"}));
    // A second -wql falls through every rule; a second -namespace replaces the first.
    EXPECT_FALSE(accepted({u"-wql", u"a", u"-wql", u"b"}));
    parsed = parse({u"-wql", u"a", u"-namespace", u"n1", u"-namespace", u"n2"});
    ASSERT_TRUE(parsed.ok);
    EXPECT_EQ(*parsed.options.namespace_, u"n2");
}

TEST(CommandLineOptionsTest, EventLogOptions) {
    const char16_t* secondList = u"Application";
    Parsed parsed = parse({u"-loglist", u"System", u"-servers", u"h1,h2", u"-watch", u"-loglist",
                           secondList, u"-servers", u"h3"});
    ASSERT_TRUE(parsed.ok);
    // Borrowed, not copied: the later value replaces the earlier one.
    EXPECT_EQ(parsed.options.loglist, secondList);
    EXPECT_EQ(*parsed.options.servers, u"h3");
    EXPECT_TRUE(parsed.options.watch);

    // The usage text says -server, but only -servers is known, and only after -loglist.
    EXPECT_FALSE(accepted({u"-loglist", u"System", u"-server", u"host1"}));
    EXPECT_FALSE(accepted({u"-servers", u"host1", u"-loglist", u"System"}));
    EXPECT_FALSE(accepted({u"-watch", u"-loglist", u"System"}));
    EXPECT_FALSE(accepted({u"-watch"}));
    // Both runs' options together are accepted; the one-shot run wins later.
    EXPECT_TRUE(accepted({u"-loglist", u"System", u"-wql", u"SELECT x"}));
}

TEST(CommandLineOptionsTest, PidOptions) {
    Parsed parsed = parse({u"-run-until-pid-dies", u"12"});
    ASSERT_TRUE(parsed.ok);
    EXPECT_TRUE(parsed.options.runUntilPidDies);
    EXPECT_FALSE(parsed.options.dieWhenPidDies);
    EXPECT_EQ(parsed.options.pid, 12u);

    parsed = parse({u"-die-when-pid-dies", u"5", u"-die-when-pid-dies", u"7"});
    ASSERT_TRUE(parsed.ok);
    EXPECT_TRUE(parsed.options.dieWhenPidDies);
    EXPECT_EQ(parsed.options.pid, 7u);
    parsed = parse({u"-run-until-pid-dies", u"5", u"-run-until-pid-dies", u"8"});
    ASSERT_TRUE(parsed.ok);
    EXPECT_EQ(parsed.options.pid, 8u);

    // The two exclude each other in either order.
    EXPECT_FALSE(accepted({u"-die-when-pid-dies", u"12", u"-run-until-pid-dies", u"13"}));
    EXPECT_FALSE(accepted({u"-run-until-pid-dies", u"12", u"-die-when-pid-dies", u"13"}));

    // -die-when-pid-dies beside either run is refused after the walk, whichever came first.
    EXPECT_FALSE(accepted({u"-wql", u"SELECT x", u"-die-when-pid-dies", u"12"}));
    EXPECT_FALSE(accepted({u"-die-when-pid-dies", u"12", u"-wql", u"SELECT x"}));
    EXPECT_FALSE(accepted({u"-loglist", u"System", u"-die-when-pid-dies", u"12"}));
    EXPECT_FALSE(accepted({u"-die-when-pid-dies", u"12", u"-loglist", u"System"}));
    EXPECT_TRUE(accepted({u"-wql", u"SELECT x", u"-run-until-pid-dies", u"12"}));
    EXPECT_TRUE(accepted({u"-loglist", u"System", u"-run-until-pid-dies", u"12"}));
}

TEST(CommandLineOptionsTest, PidValuesScanLikeUnsignedConversion) {
    struct Case {
        const char16_t* text;
        bool ok;
        uint32_t pid;
    };
    const Case cases[] = {
        {u"12abc", true, 12},
        {u"  42", true, 42},
        {u"+3", true, 3},
        {u"-1", true, 4294967295u},
        {u"4294967295", true, 4294967295u},
        {u"abc", false, 0},
        {u"", false, 0},
        {u"  ", false, 0},
        {u"-", false, 0},
        {u"+x", false, 0},
        {u"x12", false, 0},
    };
    for (const Case& c : cases) {
        Parsed parsed = parse({u"-run-until-pid-dies", c.text});
        EXPECT_EQ(parsed.ok, c.ok) << "value \"" << Str::fromWide(WStr(c.text)).c_str() << "\"";
        if (c.ok) {
            EXPECT_EQ(parsed.options.pid, c.pid);
        }
    }
    uint32_t value = 99;
    EXPECT_EQ(scanUnsigned(u" \t", value), -1);
    EXPECT_EQ(scanUnsigned(u"z", value), 0);
    EXPECT_EQ(value, 99u);
}

TEST(CommandLineOptionsTest, TestAndIndexAreAcceptedEverywhere) {
    EXPECT_TRUE(parse({u"-test"}).options.test);
    Parsed parsed = parse({u"-index", u"a", u"-run-until-pid-dies", u"3", u"-test", u"-wql",
                           u"SELECT x", u"-test", u"-index", u"b", u"-watch"});
    ASSERT_TRUE(parsed.ok);
    EXPECT_TRUE(parsed.options.test);
    EXPECT_TRUE(parsed.options.watch);
    EXPECT_EQ(parsed.options.index, std::u16string_view(u"b"));
    EXPECT_TRUE(accepted({u"-loglist", u"System", u"-test", u"-index", u"x"}));
}

TEST(CommandLineOptionsTest, MissingValuesAndUnknownOptions) {
    EXPECT_FALSE(accepted({u"-run-until-pid-dies"}));
    EXPECT_FALSE(accepted({u"-die-when-pid-dies"}));
    EXPECT_FALSE(accepted({u"-wql"}));
    EXPECT_FALSE(accepted({u"-wql", u"SELECT x", u"-namespace"}));
    EXPECT_FALSE(accepted({u"-loglist"}));
    EXPECT_FALSE(accepted({u"-loglist", u"System", u"-servers"}));
    EXPECT_FALSE(accepted({u"-index"}));
    // A null entry counts as a missing value.
    EXPECT_FALSE(accepted({u"-wql", nullptr}));
    // Exact and case-sensitive.
    EXPECT_FALSE(accepted({u"-WQL", u"SELECT x"}));
    EXPECT_FALSE(accepted({u"-test2"}));
    EXPECT_FALSE(accepted({u"System"}));
}

const char* const kUsage =
    "usage:\n"
    " C:\\b\xc3\xb6n\\morvax-wmi.exe [-run-until-pid-dies PID]|[-die-when-pid-dies PID]\n"
    " C:\\b\xc3\xb6n\\morvax-wmi.exe  -wql WQL [-namespace namespc] [-watch]\n"
    " C:\\b\xc3\xb6n\\morvax-wmi.exe  -loglist logchan1[,logchan2...] [-server "
    "srv1[,srv2...]] [-watch]\n";

TEST(CommandLineOptionsDeathTest, UsageGoesToStandardErrorAndExitsWithOne) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(printUsage(u"C:\\b\u00f6n\\morvax-wmi.exe"), ::testing::ExitedWithCode(1),
                ::testing::Eq(kUsage));
    const char16_t* argv[] = {u"C:\\b\u00f6n\\morvax-wmi.exe", u"-namespace", u"x", u"-wql",
                              u"SELECT x"};
    EXPECT_EXIT(parseCommandLine(5, argv), ::testing::ExitedWithCode(1), ::testing::Eq(kUsage));
}

TEST(CommandLineOptionsTest, ParseCommandLineFillsTheProcessRecord) {
    const char16_t* argv[] = {u"morvax-wmi", u"-loglist", u"System", u"-watch"};
    parseCommandLine(4, argv);
    CommandLineOptions& options = CommandLineOptions::process();
    EXPECT_EQ(options.loglist, argv[2]);
    EXPECT_TRUE(options.watch);
    options = CommandLineOptions();
}

}  // namespace
}  // namespace morvax
