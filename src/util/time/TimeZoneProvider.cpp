#include "util/time/TimeZoneProvider.h"

#include <cstring>

#include "util/time/StructTm.h"

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

const TimeZoneProvider& TimeZoneProvider::local() {
    static const LocalTimeZoneProvider provider;
    return provider;
}

const TimeZoneProvider& TimeZoneProvider::utc() {
    static const FixedOffsetTimeZoneProvider provider(0, "UTC");
    return provider;
}

}  // namespace morvax
