#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "util/base/Str.h"
#include "util/time/PosixZoneRule.h"
#include "util/time/TimeZone.h"

namespace morvax {

// The zone settings of a Windows machine: the zone table of the registry
// ("SOFTWARE\Microsoft\Windows NT\CurrentVersion\Time Zones"), the machine's choice
// ("SYSTEM\CurrentControlSet\Control\TimeZoneInformation") and what the system reports. The
// platform reads the real ones; the search and the reading of zones are the same whatever supplies
// the values.
class TimeZoneRegistry {
  public:
    // A registry value as stored: its type and its bytes (text in UTF-16LE).
    struct Value {
        uint32_t type = 0;
        std::string bytes;
    };
    static constexpr uint32_t TYPE_SZ = 1;
    static constexpr uint32_t TYPE_EXPAND_SZ = 2;
    static constexpr uint32_t TYPE_BINARY = 3;
    static constexpr uint32_t TYPE_DWORD = 4;
    static constexpr uint32_t TYPE_DWORD_BIG_ENDIAN = 5;
    static constexpr uint32_t TYPE_QWORD = 11;

    // The zone as the system reports it (GetTimeZoneInformation), its rule in the TZI layout.
    struct SystemZone {
        Str standardName;
        Str daylightName;
        std::string tzi;
    };

    // The 16-byte SYSTEMTIME of a TZI value. With `year` 0 it is a rule: `day` is the week of
    // the month, 1 to 5 (5 the last), of weekday `dayOfWeek`.
    struct SystemTime {
        uint16_t year, month, dayOfWeek, day, hour, minute, second, milliseconds;
    };
    // A zone's rule: REG_TZI_FORMAT, 44 bytes. Biases are minutes, UTC = local time + bias.
    struct Tzi {
        int32_t bias;
        int32_t standardBias;
        int32_t daylightBias;
        SystemTime standardDate;
        SystemTime daylightDate;
    };
    static constexpr size_t TZI_SIZE = 44;
    // A "Dynamic DST" key spanning more years than this (from 1970 or its first year) is skipped.
    static constexpr int32_t MAX_DYNAMIC_YEARS = 400;

    virtual ~TimeZoneRegistry() = default;

    // ---- Supplied by the source.

    // Whether the zone table has a key of this name.
    virtual bool hasZone(const Str& name) = 0;
    virtual std::vector<Str> zoneNames() = 0;
    // A value of a zone's key, or of its subkey `subkey` when that is not null.
    virtual std::optional<Value> zoneValue(const Str& zone, const char* subkey,
                                           const char* name) = 0;
    // A value of the machine's choice of zone.
    virtual std::optional<Value> settingValue(const char* name) = 0;
    virtual std::optional<SystemZone> systemZone() = 0;
    // The C runtime's name of the present local time (strftime's %Z).
    virtual Str presentZoneName() = 0;

    // ---- The search and the reading.

    // The machine's zone: the key that TZ names (when `tz` is neither null nor empty), the key
    // of TimeZoneKeyName, the key whose Std matches StandardName or the system's name (only
    // with neither daylight switch set), each tried when the one before yields nothing usable.
    // `zoneId` is the key's name, `flags` the switches (TimeZone::DAYLIGHT_OFF,
    // DYNAMIC_DAYLIGHT_OFF). Last, the zone id that the runtime's name of the present time maps
    // to, with the system's rule. False only when that fails too.
    bool find(const char* tz, TimeZone& zone, Str& zoneId, uint32_t& flags);

    // Reads the key `keyName` of the zone table: Std, Dlt and TZI, and unless a switch of
    // `flags` is set its "Dynamic DST" years, which become transitions, years before the first
    // following the first year's rule; TZI stays the rule for the later times. Bad values are
    // skipped; false, with the zone unchanged, when TZI itself is missing or bad.
    bool load(TimeZone& zone, const Str& keyName, uint32_t flags);

    // ---- Decoding, for both.

    static std::optional<Str> textOf(const std::optional<Value>& value);
    // DWORD (either byte order), QWORD, or binary of 1 to 8 bytes.
    static std::optional<uint64_t> numberOf(const std::optional<Value>& value);
    static bool decodeTzi(const std::string& bytes, Tzi& out);
    // The rule of a TZI value; false when its dates or offsets are not valid.
    static bool ruleOfTzi(const Tzi& tzi, const Str& standardName, const Str& daylightName,
                          bool daylightAllowed, PosixZoneRule& out);
    // A zone of a TZI rule and the rules of single years (the "Dynamic DST" years). False when
    // a rule is not valid.
    static bool buildZone(const Tzi& tzi, const std::map<int32_t, Tzi>& years,
                          const Str& standardName, const Str& daylightName, uint32_t flags,
                          TimeZone& zone);
};

}  // namespace morvax
