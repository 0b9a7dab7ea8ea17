#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/time/PosixZoneRule.h"

namespace morvax {

// A time zone as the tz database models it: local-time types (offset, daylight flag,
// abbreviation), the instants at which the zone passes from one type to another, and a rule for
// the times after the last of them. Zones loaded from a zone file, from the Windows registry or
// from a TZ value all take this form. A zone is read-only once loaded, so threads share it
// freely.
class TimeZone {
  public:
    // What an unloaded zone answers for an offset.
    static constexpr int32_t UNKNOWN_OFFSET = 0x40000000;
    // Bounds of every zone, whatever its source.
    static constexpr size_t MAX_TYPES = 256;
    static constexpr size_t MAX_TRANSITIONS = 4096;
    static constexpr size_t MAX_ABBREVIATION_BYTES = 1024;
    // Offsets lie within 26 hours of UTC, so a local time has its instants within that distance.
    static constexpr int32_t MAX_OFFSET = 26 * 3600 - 1;

    // The registry's switches: daylight saving off altogether, and the per-year rules off.
    static constexpr uint32_t DAYLIGHT_OFF = 1;
    static constexpr uint32_t DYNAMIC_DAYLIGHT_OFF = 2;

    // The zone at one instant. `abbreviation` lives as long as the zone, unchanged.
    struct Reading {
        int32_t offset = UNKNOWN_OFFSET;
        bool daylight = false;
        const char* abbreviation = "";
    };

    // A zone of one offset all the time.
    static TimeZone fixed(int32_t offset, StrSegment abbreviation, StrSegment id);
    // The zone that a POSIX TZ value spells, its text as the id; false for invalid text.
    static bool fromRule(StrSegment text, TimeZone& out);

    bool loaded() const { return !types_.empty() || rule_.has_value(); }
    const Str& id() const { return id_; }
    void setId(StrSegment id) { id_ = id; }
    uint32_t flags() const { return flags_; }
    void setFlags(uint32_t flags) { flags_ = flags; }

    // ---- Building. Each refuses, returning -1 or false, beyond the bounds above.

    // The index of the type, an equal one reused; -1 when full or the offset is out of range.
    int addType(int32_t offset, bool daylight, StrSegment abbreviation);
    // Transitions come in ascending order of time.
    bool addTransition(int64_t at, int type);
    void setRule(PosixZoneRule rule);
    void clear() { *this = TimeZone(); }

    size_t typeCount() const { return types_.size(); }
    Reading type(size_t index) const;
    std::span<const int64_t> transitionTimes() const { return times_; }
    // The index of the type a transition leads to.
    uint8_t transitionType(size_t index) const { return transitionTypes_[index]; }
    const std::optional<PosixZoneRule>& rule() const { return rule_; }

    // ---- Reading.

    Reading at(int64_t utc) const;
    // The first instant after `utc` at which the reading may change; INT64_MAX for none.
    int64_t nextChange(int64_t utc) const;

    // Local calendar time of an instant, daylight flag included. False when the zone is not
    // loaded or the year does not fit the record.
    bool toCalendar(int64_t utc, std::tm& out) const;

    // The instant of a local calendar time, as mktime reads it: fields out of range carry over,
    // and
    // - a time that occurs twice is the one whose daylight flag tm_isdst asks for (> 0 daylight,
    //   0 standard), the earlier one when tm_isdst is negative;
    // - a time skipped by a change is read with the offset of the side of the change whose
    //   daylight flag tm_isdst asks for, and so lands on the other side (02:30 standard time on
    //   a spring morning is 03:30 daylight time); without a flag it lands on the daylight side,
    //   after the change when both sides or neither are daylight time;
    // - a time whose every reading has the other daylight flag than the one asked for is read
    //   with the offset of the nearest time, within about eight years, that has the flag (12:00
    //   standard time in July is 13:00 daylight time), else moved by an hour.
    // False when the zone is not loaded or the time lies beyond the supported range.
    bool toUtc(const std::tm& local, int64_t& utc) const;

  private:
    struct LocalTimeType {
        int32_t offset;
        bool daylight;
        uint16_t abbreviation;  // index into pool_
    };

    Reading readingOf(const LocalTimeType& type) const;
    Reading ruleReading(int64_t utc) const;

    uint32_t flags_ = 0;
    std::vector<LocalTimeType> types_;
    std::vector<int64_t> times_;
    std::vector<uint8_t> transitionTypes_;
    // NUL-terminated abbreviations, one after the other.
    std::string pool_;
    Str id_;
    std::optional<PosixZoneRule> rule_;
    // Before the first transition: the first standard-time type, else the first type.
    uint8_t initialType_ = 0;
};

}  // namespace morvax
