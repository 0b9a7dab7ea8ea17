#include "util/time/TimeZoneRegistry.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "util/base/Diagnostics.h"
#include "util/time/StructTm.h"
#include "util/time/TimeZoneNames.h"

namespace morvax {

namespace {

DiagnosticsChannel diagnostics("TimeZone");

constexpr char DYNAMIC_KEY[] = "Dynamic DST";
// The year from which zones with per-year rules get transitions, those before their first year
// following its rule; the calendar conversions start there too.
constexpr int32_t FIRST_GENERATED_YEAR = 1970;

uint32_t littleEndian(const unsigned char* p, size_t size) {
    uint32_t value = 0;
    for (size_t i = size; i-- > 0;) {
        value = (value << 8) | p[i];
    }
    return value;
}

bool dateOf(const TimeZoneRegistry::SystemTime& time, PosixZoneRule::Date& out) {
    static constexpr uint16_t MONTH_DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (time.month < 1 || time.month > 12 || time.hour > 23 || time.minute > 59 ||
        time.second > 59 || time.milliseconds > 999) {
        return false;
    }
    PosixZoneRule::Date date;
    // Rules of the form 23:59:59.999 mean midnight.
    date.time =
        time.hour * 3600 + time.minute * 60 + time.second + (time.milliseconds >= 500 ? 1 : 0);
    if (time.year == 0) {
        if (time.day < 1 || time.day > 5 || time.dayOfWeek > 6) {
            return false;
        }
        date.kind = PosixZoneRule::Date::MONTH_WEEK_DAY;
        date.month = static_cast<uint8_t>(time.month);
        date.week = static_cast<uint8_t>(time.day);
        date.day = time.dayOfWeek;
    } else {
        // A fixed date: the same day of every year, 29 February read as the 28th.
        uint16_t length = time.month == 2 ? 29 : MONTH_DAYS[time.month - 1];
        if (time.day < 1 || time.day > length) {
            return false;
        }
        uint16_t day = std::min<uint16_t>(time.day, MONTH_DAYS[time.month - 1]);
        for (uint16_t month = 1; month < time.month; ++month) {
            day = static_cast<uint16_t>(day + MONTH_DAYS[month - 1]);
        }
        date.kind = PosixZoneRule::Date::JULIAN;
        date.day = day;
    }
    out = date;
    return true;
}

// UTC of local midnight opening `year` at `offset`.
int64_t newYear(int32_t year, int32_t offset) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mday = 1;
    return GmtStructTm::calendarToSeconds(tm) - offset;
}

}  // namespace

std::optional<Str> TimeZoneRegistry::textOf(const std::optional<Value>& value) {
    if (!value || (value->type != TYPE_SZ && value->type != TYPE_EXPAND_SZ)) {
        return std::nullopt;
    }
    std::u16string wide;
    const auto* bytes = reinterpret_cast<const unsigned char*>(value->bytes.data());
    for (size_t i = 0; i + 1 < value->bytes.size(); i += 2) {
        char16_t unit = static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8));
        if (unit == 0) {
            break;
        }
        wide.push_back(unit);
    }
    return Str::fromWide(wide);
}

std::optional<uint64_t> TimeZoneRegistry::numberOf(const std::optional<Value>& value) {
    if (!value) {
        return std::nullopt;
    }
    const auto* bytes = reinterpret_cast<const unsigned char*>(value->bytes.data());
    size_t size = value->bytes.size();
    switch (value->type) {
        case TYPE_DWORD:
            return size == 4 ? std::optional<uint64_t>(littleEndian(bytes, 4)) : std::nullopt;
        case TYPE_DWORD_BIG_ENDIAN:
            if (size != 4) {
                return std::nullopt;
            }
            return (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) |
                   (uint32_t{bytes[2]} << 8) | bytes[3];
        case TYPE_QWORD:
        case TYPE_BINARY:
            if (size == 0 || size > 8 || (value->type == TYPE_QWORD && size != 8)) {
                return std::nullopt;
            }
            return uint64_t{littleEndian(bytes, std::min<size_t>(size, 4))} |
                   (size > 4 ? uint64_t{littleEndian(bytes + 4, size - 4)} << 32 : 0);
        default:
            return std::nullopt;
    }
}

bool TimeZoneRegistry::decodeTzi(const std::string& bytes, Tzi& out) {
    if (bytes.size() != TZI_SIZE) {
        return false;
    }
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    auto systemTime = [](const unsigned char* q) {
        std::array<uint16_t, 8> f{};
        for (size_t i = 0; i < f.size(); ++i) {
            f[i] = static_cast<uint16_t>(littleEndian(q + 2 * i, 2));
        }
        return SystemTime{f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7]};
    };
    out.bias = static_cast<int32_t>(littleEndian(p, 4));
    out.standardBias = static_cast<int32_t>(littleEndian(p + 4, 4));
    out.daylightBias = static_cast<int32_t>(littleEndian(p + 8, 4));
    out.standardDate = systemTime(p + 12);
    out.daylightDate = systemTime(p + 28);
    return true;
}

bool TimeZoneRegistry::ruleOfTzi(const Tzi& tzi, const Str& standardName, const Str& daylightName,
                                 bool daylightAllowed, PosixZoneRule& out) {
    int64_t standardOffset = -(int64_t{tzi.bias} + tzi.standardBias) * 60;
    int64_t daylightOffset = -(int64_t{tzi.bias} + tzi.daylightBias) * 60;
    if (std::abs(standardOffset) > TimeZone::MAX_OFFSET) {
        return false;
    }
    PosixZoneRule rule;
    rule.standardName = standardName;
    rule.standardOffset = static_cast<int32_t>(standardOffset);
    // No standard date means no daylight saving.
    if (daylightAllowed && tzi.standardDate.month != 0 && tzi.daylightDate.month != 0) {
        if (std::abs(daylightOffset) > TimeZone::MAX_OFFSET ||
            !dateOf(tzi.daylightDate, rule.start) || !dateOf(tzi.standardDate, rule.end)) {
            return false;
        }
        rule.hasDaylight = true;
        rule.daylightName = daylightName;
        rule.daylightOffset = static_cast<int32_t>(daylightOffset);
    }
    out = std::move(rule);
    return true;
}

bool TimeZoneRegistry::buildZone(const Tzi& tzi, const std::map<int32_t, Tzi>& years,
                                 const Str& standardName, const Str& daylightName, uint32_t flags,
                                 TimeZone& zone) {
    const bool daylight = (flags & TimeZone::DAYLIGHT_OFF) == 0;
    PosixZoneRule trailing;
    if (!ruleOfTzi(tzi, standardName, daylightName, daylight, trailing)) {
        return false;
    }
    TimeZone built;
    built.setFlags(flags);
    if (!years.empty()) {
        const int32_t firstYear = std::min(years.begin()->first, FIRST_GENERATED_YEAR);
        const int32_t lastYear = years.rbegin()->first;
        auto yearRule = years.begin();
        int type = -1;
        int64_t last = INT64_MIN;
        for (int32_t year = firstYear; year <= lastYear; ++year) {
            // Years before the first follow its rule.
            auto own = years.find(year);
            if (own != years.end()) {
                yearRule = own;
            }
            PosixZoneRule rule;
            if (!ruleOfTzi(yearRule->second, standardName, daylightName, daylight, rule)) {
                return false;
            }
            int standard = built.addType(rule.standardOffset, false, standardName);
            int summer = rule.hasDaylight ? built.addType(rule.daylightOffset, true, daylightName)
                                          : standard;
            if (standard < 0 || summer < 0) {
                return false;
            }
            struct Change {
                int64_t at;
                int type;
            };
            int32_t offsetBefore = type < 0 ? rule.standardOffset : built.type(type).offset;
            int64_t opening = newYear(year, offsetBefore);
            std::array<Change, 3> changes{
                Change{opening, rule.daylightAt(opening) ? summer : standard}};
            size_t count = 1;
            if (rule.hasDaylight) {
                int64_t into;
                int64_t outOf;
                rule.changesOfYear(year, into, outOf);
                changes[count++] = Change{into, summer};
                changes[count++] = Change{outOf, standard};
            }
            std::sort(changes.begin(), changes.begin() + static_cast<long>(count),
                      [](const Change& a, const Change& b) { return a.at < b.at; });
            for (size_t i = 0; i < count; ++i) {
                if (changes[i].at <= last || changes[i].type == type) {
                    continue;
                }
                if (!built.addTransition(changes[i].at, changes[i].type)) {
                    return false;
                }
                last = changes[i].at;
                type = changes[i].type;
            }
        }
    }
    built.setRule(std::move(trailing));
    zone = std::move(built);
    return true;
}

bool TimeZoneRegistry::load(TimeZone& zone, const Str& keyName, uint32_t flags) {
    std::optional<Value> tziValue = zoneValue(keyName, nullptr, "TZI");
    Tzi tzi;
    if (!tziValue || tziValue->type != TYPE_BINARY || !decodeTzi(tziValue->bytes, tzi)) {
        diagnostics.debug("Time zone key %s has no valid TZI value", keyName.c_str());
        return false;
    }
    Str standardName = textOf(zoneValue(keyName, nullptr, "Std")).value_or(keyName);
    Str daylightName = textOf(zoneValue(keyName, nullptr, "Dlt")).value_or(standardName);

    std::map<int32_t, Tzi> years;
    if ((flags & (TimeZone::DAYLIGHT_OFF | TimeZone::DYNAMIC_DAYLIGHT_OFF)) == 0) {
        std::optional<uint64_t> first = numberOf(zoneValue(keyName, DYNAMIC_KEY, "FirstEntry"));
        std::optional<uint64_t> last = numberOf(zoneValue(keyName, DYNAMIC_KEY, "LastEntry"));
        if (first && last && *first >= 1601 && *first <= *last && *last <= 30827 &&
            static_cast<int64_t>(*last) - std::min<int64_t>(*first, FIRST_GENERATED_YEAR) <
                MAX_DYNAMIC_YEARS) {
            for (auto year = static_cast<int32_t>(*first); year <= static_cast<int32_t>(*last);
                 ++year) {
                std::optional<Value> value =
                    zoneValue(keyName, DYNAMIC_KEY, std::to_string(year).c_str());
                Tzi yearTzi;
                PosixZoneRule check;
                if (value && value->type == TYPE_BINARY && decodeTzi(value->bytes, yearTzi) &&
                    ruleOfTzi(yearTzi, standardName, daylightName, true, check)) {
                    years.emplace(year, yearTzi);
                } else if (!years.empty()) {
                    // A bad year keeps the rule of the year before.
                    years.emplace(year, years.rbegin()->second);
                }
            }
        } else if (first || last) {
            diagnostics.debug("Time zone key %s: the years of its %s key are skipped",
                              keyName.c_str(), DYNAMIC_KEY);
        }
    }
    TimeZone built;
    if (!buildZone(tzi, years, standardName, daylightName, flags, built)) {
        diagnostics.debug("Time zone key %s has a TZI value with invalid dates", keyName.c_str());
        return false;
    }
    built.setId(keyName);
    zone = std::move(built);
    return true;
}

bool TimeZoneRegistry::find(const char* tz, TimeZone& zone, Str& zoneId, uint32_t& flags) {
    flags = 0;
    if (tz && *tz) {
        zoneId = tz;
        if (hasZone(zoneId) && load(zone, zoneId, flags)) {
            return true;
        }
    }
    if (numberOf(settingValue("DisableAutoDaylightTimeSet")).value_or(0) != 0) {
        flags |= TimeZone::DAYLIGHT_OFF;
    }
    if (numberOf(settingValue("DynamicDaylightTimeDisabled")).value_or(0) != 0) {
        flags |= TimeZone::DYNAMIC_DAYLIGHT_OFF;
    }
    std::optional<Str> keyName = textOf(settingValue("TimeZoneKeyName"));
    if (keyName && !keyName->empty() && hasZone(*keyName) && load(zone, *keyName, flags)) {
        zoneId = *keyName;
        return true;
    }

    std::optional<SystemZone> system = systemZone();
    if (flags == 0) {
        std::optional<Str> names[] = {
            textOf(settingValue("StandardName")),
            system ? std::optional<Str>(system->standardName) : std::nullopt};
        for (const std::optional<Str>& name : names) {
            if (!name || name->empty()) {
                continue;
            }
            for (const Str& key : zoneNames()) {
                if (textOf(zoneValue(key, nullptr, "Std")) == *name && load(zone, key, flags)) {
                    zoneId = key;
                    return true;
                }
            }
        }
    }

    // Last, the name the runtime gives the present time, with the system's own rule.
    Str present = presentZoneName();
    std::optional<std::string_view> id = windowsNameToZoneId(present);
    if (!id) {
        return false;
    }
    zoneId = Str(*id);
    Tzi tzi;
    TimeZone built;
    if (!system || !decodeTzi(system->tzi, tzi) ||
        !buildZone(tzi, {}, system->standardName, system->daylightName, flags, built)) {
        built = TimeZone::fixed(0, "UTC", zoneId);
    }
    built.setId(zoneId);
    zone = std::move(built);
    return true;
}

}  // namespace morvax
