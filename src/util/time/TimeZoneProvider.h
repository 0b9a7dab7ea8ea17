#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace morvax {

// What a time format needs to know about the zone of a broken-down time. The record is the
// platform's calendar record: sec, min, hour, mday, mon (0-11), year (since 1900), wday, yday,
// isdst.
class TimeZoneProvider {
  public:
    // offsetSeconds() when the zone cannot tell.
    static constexpr int32_t UNKNOWN_OFFSET = 0x40000000;
    // epochSeconds() when the record names no representable time.
    static constexpr int64_t INVALID_SECONDS = INT64_MIN;

    virtual ~TimeZoneProvider() = default;
    // Seconds since the epoch of `tm` read in this zone. Fields out of their range carry over,
    // as mktime does.
    virtual int64_t epochSeconds(const std::tm& tm) const = 0;
    // Writes the zone's name at `tm`, NUL-terminated and cut to fit; returns its length.
    virtual size_t zoneName(const std::tm& tm, char* buffer, size_t size) const = 0;
    // East of UTC is positive.
    virtual int32_t offsetSeconds(const std::tm& tm) const = 0;

    // The process's local zone and UTC; both live for the whole process.
    static const TimeZoneProvider& local();
    static const TimeZoneProvider& utc();

  protected:
    // Copies `name` into `buffer`, NUL-terminated and cut to fit; returns the length copied.
    static size_t copyName(const char* name, char* buffer, size_t size);
};

// A zone with one constant offset and no daylight saving.
class FixedOffsetTimeZoneProvider : public TimeZoneProvider {
  public:
    static constexpr size_t MAX_NAME = 31;

    // Without a name the zone is called "UTC", or "UTC+hh:mm" / "UTC-hh:mm" off zero.
    explicit FixedOffsetTimeZoneProvider(int32_t offsetSeconds = 0, const char* name = nullptr);

    int64_t epochSeconds(const std::tm& tm) const override;
    size_t zoneName(const std::tm& tm, char* buffer, size_t size) const override;
    int32_t offsetSeconds(const std::tm& tm) const override;

    int32_t offset() const { return offset_; }
    const char* name() const { return name_; }

  private:
    int32_t offset_;
    char name_[MAX_NAME + 1];
};

class TimeZone;

// A zone of the tz database's model, which must outlive the provider. A calendar time that a
// change skips or repeats is read as TimeZone::toUtc() reads it.
class ZoneTimeZoneProvider : public TimeZoneProvider {
  public:
    explicit ZoneTimeZoneProvider(const TimeZone& zone) : zone_(zone) {}

    int64_t epochSeconds(const std::tm& tm) const override;
    size_t zoneName(const std::tm& tm, char* buffer, size_t size) const override;
    int32_t offsetSeconds(const std::tm& tm) const override;

    // The operations on any zone.
    static int64_t epochSecondsIn(const TimeZone& zone, const std::tm& tm);
    static size_t zoneNameIn(const TimeZone& zone, const std::tm& tm, char* buffer, size_t size);
    static int32_t offsetSecondsIn(const TimeZone& zone, const std::tm& tm);

  private:
    const TimeZone& zone_;
};

// The process's local zone: the zone findLocalZone() finds (TZ included), once, on first use.
// Every local calendar time of the process comes from it.
class LocalTimeZoneProvider : public TimeZoneProvider {
  public:
    // The largest time the calendar conversions accept.
    static constexpr int64_t MAX_CALENDAR_SECONDS = 32535244799LL;

    int64_t epochSeconds(const std::tm& tm) const override;
    size_t zoneName(const std::tm& tm, char* buffer, size_t size) const override;
    int32_t offsetSeconds(const std::tm& tm) const override;

    // Local calendar time of `seconds` since the epoch. Times before the epoch or above
    // MAX_CALENDAR_SECONDS fail.
    static bool toCalendar(int64_t seconds, std::tm& out);
    // The instant of a local calendar time; false when it has none.
    static bool fromCalendar(const std::tm& tm, int64_t& seconds);

    static const TimeZone& zone();
    // Finds the local zone again, as after a change of TZ. Zones handed out before stay valid.
    static void reload();
};

}  // namespace morvax
