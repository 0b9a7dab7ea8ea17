#include "conf/PropertiesMap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/Environment.h"
#include "unit/util/log/LogTestSupport.h"
#include "util/base/LogLevel.h"

namespace morvax {
namespace {

using test::LogCapture;
using test::ScopedEnvironment;

// The messages of the PropertiesMap channel, each as "LEVEL text".
std::vector<std::string> logged(const LogCapture& capture) {
    std::vector<std::string> result;
    for (const test::LoggedLine& line : capture.lines()) {
        if (line.logger == "PropertiesMap") {
            result.push_back(std::string(logLevelName(line.level)) + " " + line.text);
        }
    }
    return result;
}

template <typename T>
struct Conversion {
    std::string text;
    // Empty when the text is refused.
    std::optional<T> value;
};

// Each text as the value of "key": an accepted one sets the output silently, a refused one
// warns once and leaves the output as it was.
template <typename T>
void expectConversions(bool (PropertiesMap::*getter)(StrSegment, T&) const, const char* typeWord,
                       const std::vector<Conversion<T>>& cases, T untouched) {
    LogCapture capture;
    for (const Conversion<T>& c : cases) {
        PropertiesMap map;
        map.set("key", std::string_view(c.text));
        capture.clear();
        T out = untouched;
        const bool converted = (map.*getter)("key", out);
        if (c.value) {
            EXPECT_TRUE(converted) << c.text;
            EXPECT_EQ(out, *c.value) << c.text;
            EXPECT_TRUE(logged(capture).empty()) << c.text;
        } else {
            EXPECT_FALSE(converted) << c.text;
            EXPECT_EQ(out, untouched) << c.text;
            EXPECT_EQ(logged(capture),
                      std::vector<std::string>{"WARN Cannot convert string \"" + c.text +
                                               "\" into " + typeWord + " for \"key\""})
                << c.text;
        }
    }
}

// Each key as "key=value@stanza", in map order.
std::string describe(const PropertiesMap& map) {
    std::string result;
    for (const auto& [key, record] : map.entries()) {
        result += std::string(key.view()) + "=" + std::string(record.value.view()) + "@" +
                  std::string(record.matchingStanza.view()) + " ";
    }
    return result;
}

PropertiesMap layer(std::initializer_list<std::pair<const char*, const char*>> settings) {
    PropertiesMap map;
    for (const auto& [key, value] : settings) {
        map.set(key, value);
    }
    return map;
}

TEST(PropertiesMapGetters, BooleansInAnyCase) {
    const std::vector<Conversion<bool>> cases = {
        {"TRUE", true}, {"No", false}, {"t", true}, {"F", false},  {"yes", true},
        {"0", false},   {"2", {}},     {"tru", {}}, {" true", {}},
    };
    expectConversions(&PropertiesMap::getBool, "bool", cases, true);
}

TEST(PropertiesMapGetters, IntegersOfEachWidth) {
    const std::vector<Conversion<int32_t>> ints = {
        {"-2147483648", INT32_MIN},
        {"2147483647", INT32_MAX},
        {" -3", -3},
        {"+4", 4},
        {"2147483648", {}},
        {"-2147483649", {}},
        {"12a", {}},
        {"1.5", {}},
        {"0x10", {}},
        {"+-1", {}},
    };
    expectConversions(&PropertiesMap::getInt, "int", ints, 7);
    const std::vector<Conversion<uint32_t>> unsigneds = {
        {" 5", 5u}, {"\t\n12", 12u},    {"+7", 7u}, {"4294967295", UINT32_MAX},
        {"-5", {}}, {" -5", {}},        {"-0", {}}, {"5x", {}},
        {"5 ", {}}, {"4294967296", {}}, {"  ", {}}, {"+", {}},
    };
    expectConversions(&PropertiesMap::getUnsigned, "unsigned", unsigneds, 9u);
    const size_t largest = std::numeric_limits<size_t>::max();
    const std::vector<Conversion<size_t>> sizes = {
        {" 30", size_t{30}},
        {std::to_string(largest), largest},
        {std::to_string(largest) + "0", {}},
        {"-1", {}},
    };
    expectConversions(&PropertiesMap::getSizeT, "size_t", sizes, size_t{1});
}

TEST(PropertiesMapGetters, Int64GivesTheDefaultSilently) {
    LogCapture capture;
    PropertiesMap map;
    map.set("lowest", "-9223372036854775808");
    map.set("padded", " 42");
    map.set("bad", "x");
    map.set("beyond", "9223372036854775808");
    EXPECT_EQ(map.getInt64("lowest", 5), INT64_MIN);
    EXPECT_EQ(map.getInt64("padded", 5), 42);
    EXPECT_EQ(map.getInt64("bad", 5), 5);
    EXPECT_EQ(map.getInt64("beyond", 5), 5);
    EXPECT_EQ(map.getInt64("absent", 5), 5);
    EXPECT_TRUE(logged(capture).empty());
}

TEST(PropertiesMapGetters, AbsentAndEmptyKeysLeaveEveryDefaultWithoutAWord) {
    LogCapture capture;
    PropertiesMap map;
    map.set("empty", "");
    for (const char* key : {"empty", "absent"}) {
        bool flag = true;
        int32_t number = -1;
        uint32_t count = 5;
        size_t size = 6;
        Str text("default");
        Pathname path("default");
        WStr wide(u"default");
        EXPECT_FALSE(map.getBool(key, flag));
        EXPECT_FALSE(map.getInt(key, number));
        EXPECT_FALSE(map.getUnsigned(key, count));
        EXPECT_FALSE(map.getSizeT(key, size));
        EXPECT_FALSE(map.getString(key, text));
        EXPECT_FALSE(map.getPath(key, path));
        EXPECT_FALSE(map.getExpandedWide(key, wide));
        EXPECT_EQ(map.getInt64(key, 8), 8);
        EXPECT_TRUE(flag);
        EXPECT_EQ(number, -1);
        EXPECT_EQ(count, 5u);
        EXPECT_EQ(size, 6u);
        EXPECT_EQ(text, "default");
        EXPECT_EQ(path, Pathname("default"));
        EXPECT_EQ(wide, u"default");
        EXPECT_TRUE(map.getStringRef(key).empty());
    }
    // Every absent key answers with the one shared empty text.
    EXPECT_EQ(&map.getStringRef("absent"), &map.getStringRef("other"));
    EXPECT_TRUE(logged(capture).empty());
}

TEST(PropertiesMapGetters, PathsAndWideTextExpandTheEnvironment) {
    ScopedEnvironment directory("MORVAX_PROPERTIES_TEST_DIR", "dir");
    ScopedEnvironment nothing("MORVAX_PROPERTIES_TEST_EMPTY", "");
    PropertiesMap map;
    map.set("path", "$MORVAX_PROPERTIES_TEST_DIR/sub");
    map.set("nothing", "$MORVAX_PROPERTIES_TEST_EMPTY");

    Pathname path("default");
    WStr wide(u"default");
    EXPECT_TRUE(map.getPath("path", path));
    EXPECT_EQ(path, Pathname("dir/sub"));
    EXPECT_TRUE(map.getExpandedWide("path", wide));
    EXPECT_EQ(wide, u"dir/sub");
    Str raw;
    EXPECT_TRUE(map.getString("path", raw));
    EXPECT_EQ(raw, "$MORVAX_PROPERTIES_TEST_DIR/sub");

    // Windows cannot hold an empty variable: setting one removes it.
    if (test::getEnvironment("MORVAX_PROPERTIES_TEST_EMPTY")) {
        Pathname kept("default");
        EXPECT_TRUE(map.getPath("nothing", kept));
        EXPECT_EQ(kept, Pathname("default"));
        WStr keptWide(u"default");
        EXPECT_TRUE(map.getExpandedWide("nothing", keptWide));
        EXPECT_EQ(keptWide, u"default");
    }
}

TEST(PropertiesMapTest, UnreadableDisabledSwitchesTheStanzaOff) {
    LogCapture capture;
    struct Case {
        const char* value;
        bool disabled;
    };
    const Case cases[] = {{"", false}, {"0", false},  {"FALSE", false}, {"no", false},
                          {"1", true}, {"Yes", true}, {"2", true},      {"off", true}};
    EXPECT_FALSE(PropertiesMap().isDisabled());
    for (const Case& c : cases) {
        PropertiesMap map;
        map.set("disabled", c.value);
        EXPECT_EQ(map.isDisabled(), c.disabled) << c.value;
    }
    EXPECT_TRUE(logged(capture).empty());
}

TEST(PropertiesMapTest, SetStoresLineFeedTextAndKeepsTheRecord) {
    PropertiesMap map;
    map.set("wql", "SELECT *\r\nFROM x\rWHERE y");
    const PropertiesMapMetadata* fresh = map.find("wql");
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->value, StrSegment("SELECT *\nFROM x\nWHERE y"));
    EXPECT_EQ(fresh->priority, 0u);
    EXPECT_EQ(fresh->owner.user, "nobody");
    EXPECT_TRUE(fresh->matchingStanza.empty());

    map.record(SharedStr(StrSegment("wql"))).priority = 3;
    map.set("wql", "other");
    EXPECT_EQ(map.size(), 1u);
    EXPECT_EQ(map.find("wql")->priority, 3u);
    EXPECT_EQ(map.getStringRef("wql"), StrSegment("other"));
}

TEST(PropertiesMapTest, CopiesAndMergesShareTheText) {
    const PropertiesMap source = layer({{"interval", "60"}, {"wql", "SELECT * FROM x"}});
    const PropertiesMap copy = source;
    PropertiesMap merged;
    PropertiesMap::merge(source, merged, true, SharedStr(StrSegment("WMI:Processes")));
    for (const PropertiesMap* other : {&copy, static_cast<const PropertiesMap*>(&merged)}) {
        ASSERT_EQ(other->size(), source.size());
        auto at = other->entries().begin();
        for (const auto& [key, record] : source.entries()) {
            EXPECT_TRUE(at->first.sharesTextWith(key)) << key.c_str();
            EXPECT_TRUE(at->second.value.sharesTextWith(record.value)) << key.c_str();
            ++at;
        }
    }
    // Getters hand out the stored text itself.
    EXPECT_EQ(copy.getStringRef("wql").data(), source.find("wql")->value.data());
}

TEST(PropertiesMapMerge, FirstLayerWinsAndEveryKeyNamesItsStanza) {
    PropertiesMap settings = layer({{"interval", "10"}, {"server", "a"}});
    settings.stanzaMetadata().priority = 5;
    settings.stanzaMetadata().app = SharedStr(StrSegment("search"));
    settings.setExpansion(SharedStr(StrSegment("expanded")));
    PropertiesMap defaults = layer({{"index", "main"}, {"interval", "99"}});
    defaults.stanzaMetadata().priority = 2;
    // A cache's stanza record may name the stanza that really supplied it.
    defaults.stanzaMetadata().matchingStanza = SharedStr(StrSegment("default"));

    PropertiesMap out;
    PropertiesMap::merge(settings, out, true, SharedStr(StrSegment("settings")));
    PropertiesMap::merge(defaults, out, false, SharedStr(StrSegment("settings")));
    EXPECT_EQ(describe(out), "index=main@default interval=10@settings server=a@settings ");
    EXPECT_EQ(out.stanzaMetadata().priority, 5u);
    EXPECT_EQ(out.stanzaMetadata().app, StrSegment("search"));
    EXPECT_EQ(out.stanzaMetadata().matchingStanza, StrSegment("settings"));
    EXPECT_EQ(out.expansion(), StrSegment("expanded"));

    // Merged again over keys it already holds, a primary layer changes nothing but the
    // expansion; a secondary one changes nothing at all.
    PropertiesMap again = layer({{"interval", "1"}, {"server", "b"}});
    again.setExpansion(SharedStr(StrSegment("other")));
    again.stanzaMetadata().priority = 1;
    PropertiesMap::merge(again, out, false, SharedStr(StrSegment("again")));
    EXPECT_EQ(out.expansion(), StrSegment("expanded"));
    PropertiesMap::merge(again, out, true, SharedStr(StrSegment("again")));
    EXPECT_EQ(describe(out), "index=main@default interval=10@settings server=a@settings ");
    EXPECT_EQ(out.stanzaMetadata().priority, 5u);
    EXPECT_EQ(out.expansion(), StrSegment("other"));
}

TEST(PropertiesMapMerge, LargeAndSmallDestinationsGiveTheSameResult) {
    const PropertiesMap source = layer({{"b", "new"}, {"d", "new"}, {"f", "new"}, {"h", "new"}});
    // Larger than the source: a lookup per key. Smaller: one walk over both.
    PropertiesMap large =
        layer({{"a", "old"}, {"c", "old"}, {"d", "old"}, {"e", "old"}, {"g", "old"}, {"i", "old"}});
    PropertiesMap small = layer({{"d", "old"}, {"i", "old"}});
    PropertiesMap::merge(source, large, false, SharedStr(StrSegment("s")));
    PropertiesMap::merge(source, small, false, SharedStr(StrSegment("s")));
    EXPECT_EQ(describe(large),
              "a=old@ b=new@s c=old@ d=old@ e=old@ f=new@s g=old@ h=new@s i=old@ ");
    EXPECT_EQ(describe(small), "b=new@s d=old@ f=new@s h=new@s i=old@ ");
}

TEST(PropertiesMapTest, DumpAppendsKeysInByteOrder) {
    Str out("before ");
    PropertiesMap().dump(out);
    EXPECT_EQ(out, "before PropertiesMap: {}");

    PropertiesMap map =
        layer({{"b", "1"}, {"B", "2"}, {"a", "x\r\ny"}, {"empty", ""}, {"\xc3\xa9", "3"}});
    out.clear();
    map.dump(out);
    EXPECT_EQ(out, "PropertiesMap: {B -> '2' a -> 'x\ny' b -> '1' empty -> '' \xc3\xa9 -> '3'}");
}

}  // namespace
}  // namespace morvax
