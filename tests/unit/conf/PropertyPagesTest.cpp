#include "conf/PropertyPages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "conf/ConfContext.h"
#include "conf/ConfPathMapper.h"
#include "conf/ConfPathTrie.h"
#include "conf/ConfSearch.h"
#include "support/Environment.h"
#include "unit/util/log/LogTestSupport.h"
#include "util/base/LogLevel.h"
#include "util/log/LogConfiguration.h"

namespace morvax {
namespace {

using Values = std::map<std::string, std::string>;

const char kSeparator = static_cast<char>(Pathname::SEPARATOR);

const char* const kStockBootstrap =
    "[bootstrap]\n"
    "system/local = conf\n"
    "$apps-base$/*/local = conf\n"
    "$apps-base$/*/default = conf\n"
    "system/default = conf\n";

Values valuesOf(const PropertiesMap& map) {
    Values out;
    for (const auto& [key, record] : map.entries()) {
        out[key.c_str()] = record.value.c_str();
    }
    return out;
}

// One configuration root below a test's directory. Pages and systems are kept per root for the
// life of the process, so each root serves one test only.
class Installation {
  public:
    Installation(const test::TempDirectory& dir, const std::string& name)
        : dir_(dir), name_(name), etc_(dir.path(name)) {}

    // `relative` with '/' separators, below the root.
    std::string path(const std::string& relative) const {
        return dir_.path(name_ + "/" + relative);
    }
    void write(const std::string& relative, const std::string& text) const {
        test::writeFileMakingDirectories(path(relative), text);
    }
    const std::string& etc() const { return etc_; }
    ConfContext context() const { return ConfContext(Pathname(StrSegment(etc_))); }
    PropertyPages& pages(const char* type) const {
        return PropertyPages::get(StrSegment(type), context());
    }
    Values stanza(const char* type, const char* name) const {
        PropertiesMap out;
        pages(type).getStanza(StrSegment(name), out);
        return valuesOf(out);
    }
    std::map<std::string, Values> withPrefix(const char* prefix,
                                             BaseConfCache::DisabledFilter filter) const {
        std::map<Str, PropertiesMap> stanzas;
        pages("wmi").getStanzasWithPrefix(StrSegment(prefix), stanzas, filter);
        std::map<std::string, Values> out;
        for (const auto& [name, map] : stanzas) {
            out[name.c_str()] = valuesOf(map);
        }
        return out;
    }

  private:
    const test::TempDirectory& dir_;
    std::string name_;
    std::string etc_;
};

class PropertyPagesTest : public ::testing::Test {
  protected:
    PropertyPagesTest() : dir_(uniqueName()) {}

    void SetUp() override {
        ASSERT_TRUE(LogConfiguration::load(
            LogConfOptions(),
            StrSegment("category.ConfPathMapper=DEBUG\ncategory.ConfPathMapperManager=DEBUG\n")));
    }

    Installation installation(const std::string& name = "etc") const {
        return Installation(dir_, name);
    }

    // The lines of one channel at `minimum` and above, as "<channel> <LEVEL> <text>".
    std::vector<std::string> lines(const std::string& channel, int32_t minimum) const {
        std::vector<std::string> out;
        for (const test::LoggedLine& line : capture_.lines()) {
            if (line.logger == channel && line.level >= minimum) {
                out.push_back(line.logger + " " + logLevelName(line.level) + " " + line.text);
            }
        }
        return out;
    }

    test::LogReset reset_;
    test::TempDirectory dir_;
    test::LogCapture capture_;

  private:
    static std::string uniqueName() {
        static std::atomic<unsigned> counter{0};
        return "pages-" +
               std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()) + "-" +
               std::to_string(++counter);
    }
};

// Six layers, each of which has the key of its own name and the one of the layer before it.
void writeLayers(const Installation& etc) {
    etc.write("system/local/wmi.conf", "[s]\na = system-local\n");
    etc.write("apps/alpha/local/wmi.conf", "[s]\na = alpha-local\nb = alpha-local\n");
    etc.write("apps/beta/local/wmi.conf", "[s]\nb = beta-local\nc = beta-local\n");
    etc.write("apps/alpha/default/wmi.conf", "[s]\nc = alpha-default\nd = alpha-default\n");
    etc.write("apps/beta/default/wmi.conf", "[s]\nd = beta-default\ne = beta-default\n");
    etc.write("system/default/wmi.conf", "[s]\ne = system-default\nf = system-default\n");
}

TEST_F(PropertyPagesTest, TheBootstrapOrderRanksTheLayersAndPathOrderTheAppsOfOneEntry) {
    const Installation stock = installation("stock");
    writeLayers(stock);
    stock.write("system/default/conf.conf", kStockBootstrap);
    EXPECT_EQ(stock.stanza("wmi", "s"), (Values{{"a", "system-local"},
                                                {"b", "alpha-local"},
                                                {"c", "beta-local"},
                                                {"d", "alpha-default"},
                                                {"e", "beta-default"},
                                                {"f", "system-default"}}));

    // The reverse order, written with either separator (a backslash of a key is escaped): no
    // built-in rank of local over default.
    const Installation reversed = installation("reversed");
    writeLayers(reversed);
    reversed.write("system/default/conf.conf",
                   "[bootstrap]\n"
                   "system\\\\default = conf\n"
                   "$apps-base$\\\\*\\\\default = conf\n"
                   "$apps-base$/*/local = conf\n"
                   "system/local = conf\n");
    EXPECT_EQ(reversed.stanza("wmi", "s"), (Values{{"a", "alpha-local"},
                                                   {"b", "alpha-local"},
                                                   {"c", "alpha-default"},
                                                   {"d", "alpha-default"},
                                                   {"e", "system-default"},
                                                   {"f", "system-default"}}));
}

TEST_F(PropertyPagesTest, DefaultFillsInWithoutOverridingAndNamesListedFirstWin) {
    const Installation etc = installation();
    etc.write("system/default/conf.conf", kStockBootstrap);
    etc.write("system/local/wmi.conf", "[default]\nx = local-default\ny = local-default\n");
    etc.write("apps/alpha/default/wmi.conf",
              "[settings]\nx = alpha-settings\n[default]\nw = alpha\n");
    etc.write("system/default/wmi.conf",
              "[default]\ny = system-default\nz = system-default\nk = default\n"
              "[settings]\nk = settings\n"
              "[a]\nk = a\nonlyA = a\n"
              "[b]\nk = b\nonlyB = b\n");
    const Values defaults{{"k", "default"},
                          {"w", "alpha"},
                          {"x", "local-default"},
                          {"y", "local-default"},
                          {"z", "system-default"}};
    EXPECT_EQ(etc.stanza("wmi", "nowhere"), defaults);
    EXPECT_EQ(etc.stanza("wmi", "default"), defaults);

    Values settings = defaults;
    settings["k"] = "settings";
    settings["x"] = "alpha-settings";
    EXPECT_EQ(etc.stanza("wmi", "settings"), settings);

    Values ab = defaults;
    ab["k"] = "a";
    ab["onlyA"] = "a";
    ab["onlyB"] = "b";
    EXPECT_EQ(etc.stanza("wmi", "a|b"), ab);
    ab["k"] = "b";
    EXPECT_EQ(etc.stanza("wmi", "b|a"), ab);
    ab.erase("onlyA");
    EXPECT_EQ(etc.stanza("wmi", "nowhere|b"), ab);
}

TEST_F(PropertyPagesTest, KeysBeforeAHeaderAreDefaultsAndTheLastOfAFileWins) {
    const Installation etc = installation();
    etc.write("system/default/conf.conf", kStockBootstrap);
    etc.write("system/default/wmi.conf",
              "top = before\n[s]\na = 1\nb = x\n[t]\nc = 1\n[s]\na = 2\n[empty]\n");
    EXPECT_EQ(etc.stanza("wmi", "s"), (Values{{"a", "2"}, {"b", "x"}, {"top", "before"}}));
    // The empty stanza is listed; [default] is not, since it fills in the others.
    const Values top{{"top", "before"}};
    EXPECT_EQ(etc.withPrefix("", BaseConfCache::ALL_STANZAS),
              (std::map<std::string, Values>{{"empty", top},
                                             {"s", {{"a", "2"}, {"b", "x"}, {"top", "before"}}},
                                             {"t", {{"c", "1"}, {"top", "before"}}}}));
}

TEST_F(PropertyPagesTest, DisabledApplicationsGiveNothingButTheirAppType) {
    const Installation etc = installation();
    etc.write("system/default/conf.conf", kStockBootstrap);
    // "back" is disabled by default/ and enabled again by local/.
    etc.write("apps/back/default/app.conf", "[install]\nstate = disabled\n");
    etc.write("apps/back/local/app.conf", "[install]\nstate = enabled\n");
    etc.write("apps/back/local/wmi.conf", "[s]\nback = 1\n");
    etc.write("apps/off/default/app.conf", "[install]\nstate = disabled\nlabel = off\n");
    etc.write("apps/off/local/wmi.conf", "[s]\noff = 1\nshared = off\n");
    etc.write("apps/on/default/wmi.conf", "[s]\non = 1\nshared = on\n");
    EXPECT_EQ(etc.stanza("wmi", "s"), (Values{{"back", "1"}, {"on", "1"}, {"shared", "on"}}));
    EXPECT_EQ(etc.stanza("app", "install"), (Values{{"label", "off"}, {"state", "enabled"}}));
}

TEST_F(PropertyPagesTest, DisabledStanzasByFilter) {
    const Installation etc = installation();
    etc.write("system/default/conf.conf", kStockBootstrap);
    etc.write("system/local/wmi.conf", "[WMI:revived]\ndisabled = 0\n");
    etc.write("system/default/wmi.conf",
              "[default]\ninterval = 60\n"
              "[WMI:on]\n"
              "[WMI:off]\ndisabled = 1\n"
              "[WMI:false]\ndisabled = false\n"
              "[WMI:junk]\ndisabled = maybe\n"
              "[WMI:revived]\ndisabled = 1\n"
              "[WMX:other]\n");
    const Values on{{"interval", "60"}};
    const std::map<std::string, Values> enabled{
        {"WMI:false", {{"disabled", "false"}, {"interval", "60"}}},
        {"WMI:on", on},
        {"WMI:revived", {{"disabled", "0"}, {"interval", "60"}}}};
    const std::map<std::string, Values> disabled{
        {"WMI:junk", {{"disabled", "maybe"}, {"interval", "60"}}},
        {"WMI:off", {{"disabled", "1"}, {"interval", "60"}}}};
    std::map<std::string, Values> all = enabled;
    all.insert(disabled.begin(), disabled.end());

    EXPECT_EQ(etc.withPrefix("WMI", BaseConfCache::ENABLED_ONLY), enabled);
    EXPECT_EQ(etc.withPrefix("WMI", BaseConfCache::DISABLED_ONLY), disabled);
    EXPECT_EQ(etc.withPrefix("WMI", BaseConfCache::ALL_STANZAS), all);
}

TEST_F(PropertyPagesTest, AReadOpensOnlyTheFilesOfItsType) {
    const Installation etc = installation();
    etc.write("system/default/wmi.conf", "[s]\na = 1\n");
    etc.write("system/default/other.conf", "[s]\nb = 1\n");

    ConfPathMapper mapper(Pathname(StrSegment(etc.path("system/default"))),
                          Pathname(StrSegment(etc.path("system"))), ConfUserContext(),
                          Str("system"));
    ConfSearch search;
    search.type = "wmi";
    for (int i = 0; i < 2; ++i) {
        ConfPathTrie tree;
        mapper.fillSearch(search, tree);
        EXPECT_NE(tree.find("nobody"), nullptr);
        EXPECT_EQ(mapper.filesOpened(), 1u);
    }
    search.type = "absent";
    ConfPathTrie none;
    mapper.fillSearch(search, none);
    EXPECT_TRUE(none.children().empty());
    EXPECT_EQ(mapper.filesOpened(), 1u);

    // Through the pages: the layers list other.conf when the system is set up; once it is gone,
    // only a read of its own type notices.
    etc.write("system/default/conf.conf", kStockBootstrap);
    PropertyPages& wmi = etc.pages("wmi");
    ASSERT_EQ(std::remove(etc.path("system/default/other.conf").c_str()), 0);
    PropertiesMap out;
    wmi.getStanza("s", out);
    EXPECT_EQ(valuesOf(out), (Values{{"a", "1"}}));
    EXPECT_EQ(lines("ConfPathMapper", LOG_DEBUG), std::vector<std::string>{});

    EXPECT_EQ(etc.stanza("other", "s"), Values{});
    EXPECT_EQ(lines("ConfPathMapper", LOG_DEBUG),
              std::vector<std::string>{"ConfPathMapper DEBUG Tried to open missing file \"" +
                                       etc.path("system/default/other.conf") +
                                       "\", possibly app was deleted?"});
}

TEST_F(PropertyPagesTest, BootstrapProblems) {
    struct Case {
        const char* name;
        std::optional<std::string> bootstrap;
        // With "@" for the root.
        std::vector<std::string> lines;
        Values values;
    };
    const Case cases[] = {
        {"missing",
         std::nullopt,
         {"ConfSettings WARN No bootstrap configuration available for: @",
          "ConfPathMapperManager ERROR Could not read bootstrap configuration: @"},
         {}},
        {"empty",
         "",
         {"ConfPathMapperManager ERROR Could not find 'bootstrap' stanza in bootstrapping conf: @"},
         {}},
        {"no-bootstrap",
         "[writes]\nsystem/local = conf\n",
         {"ConfPathMapperManager ERROR Could not find 'bootstrap' stanza in bootstrapping conf: @"},
         {}},
        {"unknown-handler",
         "[bootstrap]\nsystem/local = bogus\nsystem/default = conf\n",
         {"ConfPathMapperManager ERROR Unrecognized handler name 'bogus' for path: @" +
          std::string(1, kSeparator) + "system" + kSeparator + "local"},
         {{"k", "default"}}},
        {"ignored",
         "[bootstrap]\nsystem/local = ignore\nsystem/default = conf\n",
         {},
         {{"k", "default"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Installation etc = installation(c.name);
        etc.write("system/local/wmi.conf", "[s]\nk = local\n");
        etc.write("system/default/wmi.conf", "[s]\nk = default\n");
        if (c.bootstrap) {
            etc.write("system/default/conf.conf", *c.bootstrap);
        }
        capture_.clear();
        EXPECT_EQ(etc.stanza("wmi", "s"), c.values);
        std::vector<std::string> expected;
        for (std::string line : c.lines) {
            expected.push_back(line.replace(line.find('@'), 1, etc.etc()));
        }
        std::vector<std::string> logged = lines("ConfSettings", LOG_WARN);
        for (const std::string& line : lines("ConfPathMapperManager", LOG_WARN)) {
            logged.push_back(line);
        }
        EXPECT_EQ(logged, expected);
    }
}

TEST_F(PropertyPagesTest, DotDirectoriesAreIgnored) {
    const Installation etc = installation();
    etc.write("system/default/conf.conf",
              "[bootstrap]\nsystem/* = conf\n$apps-base$/*/local = conf\n");
    etc.write("system/.old/wmi.conf", "[s]\na = old\n");
    etc.write("system/default/wmi.conf", "[s]\na = default\nb = default\n");
    etc.write("system/local/wmi.conf", "[s]\nb = local\nc = local\n");
    etc.write("apps/.hidden/local/wmi.conf", "[s]\nc = hidden\nd = hidden\n");
    etc.write("apps/zed/local/wmi.conf", "[s]\nd = zed\n");
    EXPECT_EQ(etc.stanza("wmi", "s"),
              (Values{{"a", "default"}, {"b", "default"}, {"c", "local"}, {"d", "zed"}}));
    EXPECT_TRUE(capture_.has(LOG_DEBUG, "Ignoring dot file: " + etc.path("system/.old")));
}

TEST_F(PropertyPagesTest, RootMarkerExpandsToTheLayerInTheExpansionOnly) {
    const Installation etc = installation();
    etc.write("system/default/conf.conf", kStockBootstrap);
    etc.write("system/local/wmi.conf", "[monitor://.\\logs]\na = system\n");
    etc.write("apps/alpha/local/wmi.conf",
              "[monitor://.\\logs]\nb = alpha\n[script://.\\$MORVAX_CONF_TEST_DIR\\run]\n");
    test::ScopedEnvironment variable("MORVAX_CONF_TEST_DIR", "bin");

    PropertiesMap monitor;
    etc.pages("wmi").getStanza("monitor://.\\logs", monitor);
    EXPECT_EQ(valuesOf(monitor), (Values{{"a", "system"}, {"b", "alpha"}}));
    const std::string system = "monitor://" + etc.path("system") + "\\logs";
    const std::string alpha = "monitor://" + etc.path("apps/alpha") + "\\logs";
    EXPECT_EQ(monitor.expansion().c_str(), system);
    EXPECT_EQ(
        capture_.formatted("IConfCache"),
        std::vector<std::string>{"IConfCache WARN Stanza has an expansion [" + system +
                                 "], ignoring alternate expansion [" + alpha + "] in wmi.conf"});

    PropertiesMap script;
    etc.pages("wmi").getStanza("script://.\\$MORVAX_CONF_TEST_DIR\\run", script);
    EXPECT_EQ(script.expansion().c_str(), "script://" + etc.path("apps/alpha") + "\\bin\\run");
}

}  // namespace
}  // namespace morvax
