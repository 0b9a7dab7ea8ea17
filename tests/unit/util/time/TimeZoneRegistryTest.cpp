#include "util/time/TimeZoneRegistry.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "support/Calendar.h"
#include "util/time/StructTm.h"

namespace morvax {
namespace {

using Value = TimeZoneRegistry::Value;
using SystemTime = TimeZoneRegistry::SystemTime;

int64_t utcOf(int year, int month, int day, int hour = 0) {
    return GmtStructTm::calendarToSeconds(test::calendar(year, month, day, hour));
}

Value text(const std::string& ascii) {
    Value value{TimeZoneRegistry::TYPE_SZ, {}};
    for (char c : ascii + '\0') {
        value.bytes.push_back(c);
        value.bytes.push_back('\0');
    }
    return value;
}

Value number(uint32_t type, std::string bytes) {
    return Value{type, std::move(bytes)};
}

Value dword(uint32_t v) {
    return number(TimeZoneRegistry::TYPE_DWORD,
                  std::string{static_cast<char>(v), static_cast<char>(v >> 8),
                              static_cast<char>(v >> 16), static_cast<char>(v >> 24)});
}

// A yearly date: week 1 to 5 of a month, on a weekday, at an hour.
SystemTime yearly(uint16_t month, uint16_t week, uint16_t weekday, uint16_t hour) {
    return SystemTime{0, month, weekday, week, hour, 0, 0, 0};
}

Value tzi(int32_t bias, int32_t daylightBias, SystemTime standardDate, SystemTime daylightDate) {
    std::string bytes;
    auto put = [&](uint32_t v, int size) {
        for (int i = 0; i < size; ++i) {
            bytes.push_back(static_cast<char>(v >> (8 * i)));
        }
    };
    put(static_cast<uint32_t>(bias), 4);
    put(0, 4);
    put(static_cast<uint32_t>(daylightBias), 4);
    for (const SystemTime& t : {standardDate, daylightDate}) {
        for (uint16_t field :
             {t.year, t.month, t.dayOfWeek, t.day, t.hour, t.minute, t.second, t.milliseconds}) {
            put(field, 2);
        }
    }
    return Value{TimeZoneRegistry::TYPE_BINARY, bytes};
}

const Value TOKYO = tzi(-540, -60, SystemTime{}, SystemTime{});
const Value PACIFIC = tzi(480, -60, yearly(11, 1, 0, 2), yearly(3, 2, 0, 2));
const Value PACIFIC_BEFORE_2007 = tzi(480, -60, yearly(10, 5, 0, 2), yearly(4, 1, 0, 2));

class FakeRegistry : public TimeZoneRegistry {
  public:
    // Keys of the zone table by path below it ("Zone", "Zone\Dynamic DST").
    std::map<std::string, std::map<std::string, Value>> keys;
    std::map<std::string, Value> settings;
    std::optional<SystemZone> system;
    std::string present;

    bool hasZone(const Str& name) override { return keys.count(name.toStdString()) != 0; }
    std::vector<Str> zoneNames() override {
        std::vector<Str> names;
        for (const auto& [path, values] : keys) {
            if (path.find('\\') == std::string::npos) {
                names.emplace_back(path);
            }
        }
        return names;
    }
    std::optional<Value> zoneValue(const Str& zone, const char* subkey, const char* name) override {
        std::string path = zone.toStdString() + (subkey ? std::string("\\") + subkey : "");
        auto key = keys.find(path);
        if (key == keys.end() || key->second.count(name) == 0) {
            return std::nullopt;
        }
        return key->second.at(name);
    }
    std::optional<Value> settingValue(const char* name) override {
        auto value = settings.find(name);
        return value == settings.end() ? std::nullopt : std::optional<Value>(value->second);
    }
    std::optional<SystemZone> systemZone() override { return system; }
    Str presentZoneName() override { return Str(present); }

    void addZone(const std::string& name, const Value& rule) {
        std::string stem = name.substr(0, name.find(" Standard Time"));
        keys[name] = {{"Std", text(name)}, {"Dlt", text(stem + " Daylight Time")}, {"TZI", rule}};
    }
};

TEST(TimeZoneRegistryTest, ZonesWithTheirYears) {
    FakeRegistry registry;
    registry.addZone("Pacific Standard Time", PACIFIC);
    auto& years = registry.keys["Pacific Standard Time\\Dynamic DST"];
    years = {{"FirstEntry", dword(2000)}, {"LastEntry", dword(2007)}};
    for (int year = 2000; year <= 2006; ++year) {
        years[std::to_string(year)] = PACIFIC_BEFORE_2007;
    }
    // A bad year keeps the rule of the year before.
    years["2007"] = Value{TimeZoneRegistry::TYPE_BINARY, "short"};

    TimeZone zone;
    ASSERT_TRUE(registry.load(zone, "Pacific Standard Time", 0));
    EXPECT_EQ(zone.id().view(), "Pacific Standard Time");
    // 2005 by its own rule: the first Sunday of April, 2:00 standard time.
    EXPECT_EQ(zone.at(utcOf(2005, 4, 3, 10) - 1).offset, -8 * 3600);
    TimeZone::Reading summer = zone.at(utcOf(2005, 4, 3, 10));
    EXPECT_EQ(summer.offset, -7 * 3600);
    EXPECT_TRUE(summer.daylight);
    EXPECT_STREQ(summer.abbreviation, "Pacific Daylight Time");
    EXPECT_STREQ(zone.at(utcOf(2005, 10, 30, 9)).abbreviation, "Pacific Standard Time");
    // Years before the first follow it; 2007 follows 2006; later years the zone's TZI.
    EXPECT_TRUE(zone.at(utcOf(1990, 4, 1, 10)).daylight);
    EXPECT_FALSE(zone.at(utcOf(2007, 3, 20)).daylight);
    EXPECT_TRUE(zone.at(utcOf(2008, 3, 20)).daylight);
    EXPECT_EQ(zone.nextChange(utcOf(2024, 1, 1)), utcOf(2024, 3, 10, 10));
    EXPECT_EQ(zone.nextChange(utcOf(2024, 7, 1)), utcOf(2024, 11, 3, 9));

    // The switches: daylight saving off altogether, or only the years.
    ASSERT_TRUE(registry.load(zone, "Pacific Standard Time", TimeZone::DAYLIGHT_OFF));
    EXPECT_EQ(zone.at(utcOf(2024, 7, 1)).offset, -8 * 3600);
    EXPECT_EQ(zone.flags(), TimeZone::DAYLIGHT_OFF);
    ASSERT_TRUE(registry.load(zone, "Pacific Standard Time", TimeZone::DYNAMIC_DAYLIGHT_OFF));
    EXPECT_TRUE(zone.at(utcOf(2005, 3, 20)).daylight);
    EXPECT_TRUE(zone.transitionTimes().empty());

    // Years spanning too long are skipped as a whole.
    years["FirstEntry"] = dword(1601);
    ASSERT_TRUE(registry.load(zone, "Pacific Standard Time", 0));
    EXPECT_TRUE(zone.at(utcOf(2005, 3, 20)).daylight);

    // A southern zone's years: daylight time over New Year.
    const Value sydney = tzi(-600, -60, yearly(4, 1, 0, 3), yearly(10, 1, 0, 2));
    registry.addZone("AUS Eastern Standard Time", sydney);
    registry.keys["AUS Eastern Standard Time\\Dynamic DST"] = {
        {"FirstEntry", dword(2008)}, {"LastEntry", dword(2008)}, {"2008", sydney}};
    ASSERT_TRUE(registry.load(zone, "AUS Eastern Standard Time", 0));
    EXPECT_EQ(zone.at(utcOf(2000, 1, 15)).offset, 11 * 3600);
    EXPECT_EQ(zone.at(utcOf(2000, 7, 15)).offset, 10 * 3600);
    EXPECT_EQ(zone.at(utcOf(2030, 1, 15)).offset, 11 * 3600);

    // Without a valid TZI there is no zone, and the one given stays as it was.
    registry.addZone("Broken Standard Time", Value{TimeZoneRegistry::TYPE_SZ, PACIFIC.bytes});
    EXPECT_FALSE(registry.load(zone, "Broken Standard Time", 0));
    registry.addZone("Broken Standard Time",
                     tzi(480, -60, yearly(13, 1, 0, 2), yearly(3, 2, 0, 2)));
    EXPECT_FALSE(registry.load(zone, "Broken Standard Time", 0));
    EXPECT_EQ(zone.id().view(), "AUS Eastern Standard Time");
}

TEST(TimeZoneRegistryTest, FindsTheZoneStepByStep) {
    FakeRegistry registry;
    registry.addZone("Tokyo Standard Time", TOKYO);
    registry.addZone("Pacific Standard Time", PACIFIC);
    registry.addZone("Broken Standard Time", Value{TimeZoneRegistry::TYPE_BINARY, "x"});
    registry.settings = {{"TimeZoneKeyName", text("Pacific Standard Time")},
                         {"StandardName", text("Tokyo Standard Time")}};
    registry.system =
        TimeZoneRegistry::SystemZone{"Tokyo Standard Time", "Tokyo Daylight Time", TOKYO.bytes};
    registry.present = "Tokyo Standard Time";

    TimeZone zone;
    Str id;
    uint32_t flags = 99;
    auto find = [&](const char* tz) { return registry.find(tz, zone, id, flags); };

    // TZ naming a key, else the key the machine names.
    ASSERT_TRUE(find("Tokyo Standard Time"));
    EXPECT_EQ(id.view(), "Tokyo Standard Time");
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(zone.at(0).offset, 9 * 3600);
    for (const char* tz : {"EST5EDT", "", static_cast<const char*>(nullptr)}) {
        ASSERT_TRUE(find(tz));
        EXPECT_EQ(id.view(), "Pacific Standard Time");
    }
    // A key that cannot be read is passed over; then the standard name, by the keys' Std.
    registry.settings["TimeZoneKeyName"] = text("Broken Standard Time");
    ASSERT_TRUE(find(nullptr));
    EXPECT_EQ(id.view(), "Tokyo Standard Time");
    // A standard name that matches nothing (an indirect string): the system's name.
    registry.settings["StandardName"] = text("@tzres.dll,-632");
    registry.settings.erase("TimeZoneKeyName");
    ASSERT_TRUE(find(nullptr));
    EXPECT_EQ(id.view(), "Tokyo Standard Time");

    // A daylight switch skips the names: the runtime's name gives the id, the system the rule.
    registry.settings["DisableAutoDaylightTimeSet"] = dword(1);
    ASSERT_TRUE(find(nullptr));
    EXPECT_EQ(id.view(), "Asia/Tokyo");
    EXPECT_EQ(zone.id().view(), "Asia/Tokyo");
    EXPECT_EQ(flags, TimeZone::DAYLIGHT_OFF);
    EXPECT_EQ(zone.at(0).offset, 9 * 3600);
    registry.present = "Nowhere";
    EXPECT_FALSE(find(nullptr));

    // Switches of any numeric type count when not zero; text does not.
    registry.present = "Tokyo Standard Time";
    registry.settings["DisableAutoDaylightTimeSet"] = text("1");
    registry.settings["DynamicDaylightTimeDisabled"] =
        number(TimeZoneRegistry::TYPE_DWORD_BIG_ENDIAN, std::string("\0\0\0\1", 4));
    ASSERT_TRUE(find(nullptr));
    EXPECT_EQ(flags, TimeZone::DYNAMIC_DAYLIGHT_OFF);
    registry.settings["DynamicDaylightTimeDisabled"] =
        number(TimeZoneRegistry::TYPE_QWORD, std::string("\0\0\0\0\0\0\0\0", 8));
    registry.settings["DisableAutoDaylightTimeSet"] =
        number(TimeZoneRegistry::TYPE_BINARY, std::string("\0\1", 2));
    ASSERT_TRUE(find(nullptr));
    EXPECT_EQ(flags, TimeZone::DAYLIGHT_OFF);
}

}  // namespace
}  // namespace morvax
