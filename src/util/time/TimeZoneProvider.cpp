#include "util/time/TimeZoneProvider.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "util/time/LocalZone.h"
#include "util/time/StructTm.h"
#include "util/time/TimeZone.h"

namespace morvax {

size_t TimeZoneProvider::copyName(const char* name, char* buffer, size_t size) {
    if (size == 0) {
        return 0;
    }
    size_t length = std::strlen(name);
    if (length >= size) {
        length = size - 1;
    }
    std::memcpy(buffer, name, length);
    buffer[length] = '\0';
    return length;
}

FixedOffsetTimeZoneProvider::FixedOffsetTimeZoneProvider(int32_t offsetSeconds, const char* name)
    : offset_(offsetSeconds) {
    if (name) {
        copyName(name, name_, sizeof(name_));
        return;
    }
    if (offsetSeconds == 0) {
        copyName("UTC", name_, sizeof(name_));
        return;
    }
    // "UTC+hh:mm", with ":ss" only when the offset has seconds.
    int64_t magnitude = offsetSeconds < 0 ? -int64_t{offsetSeconds} : offsetSeconds;
    int64_t hours = magnitude / 3600;
    int64_t minutes = magnitude / 60 % 60;
    int64_t seconds = magnitude % 60;
    char* p = name_;
    std::memcpy(p, "UTC", 3);
    p += 3;
    *p++ = offsetSeconds < 0 ? '-' : '+';
    if (hours > 99) {
        hours = 99;
    }
    *p++ = static_cast<char>('0' + hours / 10);
    *p++ = static_cast<char>('0' + hours % 10);
    *p++ = ':';
    *p++ = static_cast<char>('0' + minutes / 10);
    *p++ = static_cast<char>('0' + minutes % 10);
    if (seconds != 0) {
        *p++ = ':';
        *p++ = static_cast<char>('0' + seconds / 10);
        *p++ = static_cast<char>('0' + seconds % 10);
    }
    *p = '\0';
}

int64_t FixedOffsetTimeZoneProvider::epochSeconds(const std::tm& tm) const {
    return GmtStructTm::calendarToSeconds(tm) - offset_;
}

size_t FixedOffsetTimeZoneProvider::zoneName(const std::tm&, char* buffer, size_t size) const {
    return copyName(name_, buffer, size);
}

int32_t FixedOffsetTimeZoneProvider::offsetSeconds(const std::tm&) const {
    return offset_;
}

// ---- ZoneTimeZoneProvider

int64_t ZoneTimeZoneProvider::epochSecondsIn(const TimeZone& zone, const std::tm& tm) {
    int64_t seconds;
    return zone.toUtc(tm, seconds) ? seconds : INVALID_SECONDS;
}

size_t ZoneTimeZoneProvider::zoneNameIn(const TimeZone& zone, const std::tm& tm, char* buffer,
                                        size_t size) {
    int64_t seconds;
    return copyName(zone.toUtc(tm, seconds) ? zone.at(seconds).abbreviation : "", buffer, size);
}

int32_t ZoneTimeZoneProvider::offsetSecondsIn(const TimeZone& zone, const std::tm& tm) {
    int64_t seconds;
    return zone.toUtc(tm, seconds) ? zone.at(seconds).offset : UNKNOWN_OFFSET;
}

int64_t ZoneTimeZoneProvider::epochSeconds(const std::tm& tm) const {
    return epochSecondsIn(zone_, tm);
}

size_t ZoneTimeZoneProvider::zoneName(const std::tm& tm, char* buffer, size_t size) const {
    return zoneNameIn(zone_, tm, buffer, size);
}

int32_t ZoneTimeZoneProvider::offsetSeconds(const std::tm& tm) const {
    return offsetSecondsIn(zone_, tm);
}

// ---- LocalTimeZoneProvider

namespace {

std::atomic<const TimeZone*> localZone{nullptr};
std::mutex localZoneLock;

// Under localZoneLock. Zones found are kept for the life of the process, and never destroyed:
// any thread may still read one, even while the process exits.
const TimeZone* findAndKeepLocalZone() {
    static auto* kept = new std::vector<std::unique_ptr<TimeZone>>();
    auto zone = std::make_unique<TimeZone>();
    Str zoneId;
    uint32_t flags = 0;
    findLocalZone(*zone, zoneId, flags, true);
    kept->push_back(std::move(zone));
    localZone.store(kept->back().get(), std::memory_order_release);
    return kept->back().get();
}

}  // namespace

const TimeZone& LocalTimeZoneProvider::zone() {
    if (const TimeZone* zone = localZone.load(std::memory_order_acquire)) {
        return *zone;
    }
    std::lock_guard<std::mutex> lock(localZoneLock);
    const TimeZone* zone = localZone.load(std::memory_order_acquire);
    return zone ? *zone : *findAndKeepLocalZone();
}

void LocalTimeZoneProvider::reload() {
    std::lock_guard<std::mutex> lock(localZoneLock);
    findAndKeepLocalZone();
}

bool LocalTimeZoneProvider::toCalendar(int64_t seconds, std::tm& out) {
    if (seconds < 0 || seconds > MAX_CALENDAR_SECONDS) {
        return false;
    }
    return zone().toCalendar(seconds, out);
}

bool LocalTimeZoneProvider::fromCalendar(const std::tm& tm, int64_t& seconds) {
    return zone().toUtc(tm, seconds);
}

int64_t LocalTimeZoneProvider::epochSeconds(const std::tm& tm) const {
    return ZoneTimeZoneProvider::epochSecondsIn(zone(), tm);
}

size_t LocalTimeZoneProvider::zoneName(const std::tm& tm, char* buffer, size_t size) const {
    return ZoneTimeZoneProvider::zoneNameIn(zone(), tm, buffer, size);
}

int32_t LocalTimeZoneProvider::offsetSeconds(const std::tm& tm) const {
    return ZoneTimeZoneProvider::offsetSecondsIn(zone(), tm);
}

const TimeZoneProvider& TimeZoneProvider::local() {
    static const LocalTimeZoneProvider provider;
    return provider;
}

const TimeZoneProvider& TimeZoneProvider::utc() {
    static const FixedOffsetTimeZoneProvider provider(0, "UTC");
    return provider;
}

}  // namespace morvax
