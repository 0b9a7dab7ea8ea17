#include "util/time/TimeZone.h"

#include <algorithm>
#include <cstring>

#include "util/time/StructTm.h"

namespace morvax {

namespace {

// Local times this far from the epoch (half a billion years) are refused, so that every
// instant a reading looks at stays inside the range the rules compute.
constexpr int64_t LOCAL_LIMIT = PosixZoneRule::INSTANT_LIMIT / 2;

// Instants and local times alike stay within LOCAL_LIMIT, so that each reads back to the other.
bool instantInBound(int64_t utc) {
    return utc >= -LOCAL_LIMIT && utc <= LOCAL_LIMIT;
}

// The search for a time with the daylight flag asked for, as the C library probes: steps of
// just under a week (shorter than any daylight or standard period on record), up to half the
// longest daylight period on record either way.
constexpr int64_t PROBE_STRIDE = 601200;
constexpr int64_t PROBE_LIMIT = 536454000 / 2 + PROBE_STRIDE;

}  // namespace

TimeZone TimeZone::fixed(int32_t offset, StrSegment abbreviation, StrSegment id) {
    TimeZone zone;
    zone.addType(offset, false, abbreviation);
    zone.setId(id);
    return zone;
}

bool TimeZone::fromRule(StrSegment text, TimeZone& out) {
    PosixZoneRule rule;
    if (!PosixZoneRule::parse(text, rule)) {
        return false;
    }
    TimeZone zone;
    zone.setRule(std::move(rule));
    zone.setId(text);
    out = std::move(zone);
    return true;
}

int TimeZone::addType(int32_t offset, bool daylight, StrSegment abbreviation) {
    if (offset < -MAX_OFFSET || offset > MAX_OFFSET ||
        std::memchr(abbreviation.data(), '\0', abbreviation.size()) != nullptr) {
        return -1;
    }
    // The abbreviation, shared with an equal one already in the pool.
    size_t index = pool_.size();
    for (size_t at = 0; at < pool_.size(); at += std::strlen(pool_.c_str() + at) + 1) {
        if (std::string_view(pool_.c_str() + at) == abbreviation.view()) {
            index = at;
            break;
        }
    }
    for (size_t i = 0; i < types_.size(); ++i) {
        const LocalTimeType& type = types_[i];
        if (type.offset == offset && type.daylight == daylight &&
            std::string_view(pool_.c_str() + type.abbreviation) == abbreviation.view()) {
            return static_cast<int>(i);
        }
    }
    if (types_.size() >= MAX_TYPES) {
        return -1;
    }
    if (index == pool_.size()) {
        if (pool_.size() + abbreviation.size() + 1 > MAX_ABBREVIATION_BYTES) {
            return -1;
        }
        pool_.append(abbreviation.data(), abbreviation.size());
        pool_.push_back('\0');
    }
    types_.push_back(LocalTimeType{offset, daylight, static_cast<uint16_t>(index)});
    size_t added = types_.size() - 1;
    if (!daylight && types_[initialType_].daylight) {
        initialType_ = static_cast<uint8_t>(added);
    }
    return static_cast<int>(added);
}

bool TimeZone::addTransition(int64_t at, int type) {
    if (type < 0 || static_cast<size_t>(type) >= types_.size() ||
        times_.size() >= MAX_TRANSITIONS || (!times_.empty() && at <= times_.back())) {
        return false;
    }
    times_.push_back(at);
    transitionTypes_.push_back(static_cast<uint8_t>(type));
    return true;
}

void TimeZone::setRule(PosixZoneRule rule) {
    rule_ = std::move(rule);
}

TimeZone::Reading TimeZone::readingOf(const LocalTimeType& type) const {
    return Reading{type.offset, type.daylight, pool_.c_str() + type.abbreviation};
}

TimeZone::Reading TimeZone::type(size_t index) const {
    return readingOf(types_[index]);
}

TimeZone::Reading TimeZone::ruleReading(int64_t utc) const {
    bool daylight = rule_->daylightAt(utc);
    return Reading{daylight ? rule_->daylightOffset : rule_->standardOffset, daylight,
                   (daylight ? rule_->daylightName : rule_->standardName).c_str()};
}

TimeZone::Reading TimeZone::at(int64_t utc) const {
    if (types_.empty()) {
        return rule_ ? ruleReading(utc) : Reading{};
    }
    if (times_.empty()) {
        return rule_ ? ruleReading(utc) : readingOf(types_[initialType_]);
    }
    if (utc < times_.front()) {
        return readingOf(types_[initialType_]);
    }
    // The rule takes over at the last transition itself, as the C library has it.
    if (rule_ && utc >= times_.back()) {
        return ruleReading(utc);
    }
    auto next = std::upper_bound(times_.begin(), times_.end(), utc);
    return readingOf(types_[transitionTypes_[static_cast<size_t>(next - times_.begin()) - 1]]);
}

int64_t TimeZone::nextChange(int64_t utc) const {
    if (times_.empty() || utc >= times_.back()) {
        return rule_ ? rule_->nextChange(utc) : INT64_MAX;
    }
    return *std::upper_bound(times_.begin(), times_.end(), utc);
}

bool TimeZone::toCalendar(int64_t utc, std::tm& out) const {
    if (!loaded() || utc < -LOCAL_LIMIT || utc > LOCAL_LIMIT) {
        return false;
    }
    Reading reading = at(utc);
    // The bound holds for the local time too, so that every calendar given out reads back.
    const int64_t local = utc + reading.offset;
    if (local < -LOCAL_LIMIT || local > LOCAL_LIMIT) {
        return false;
    }
    GmtStructTm::secondsToCalendar(local, out);
    out.tm_isdst = reading.daylight ? 1 : 0;
    return true;
}

bool TimeZone::toUtc(const std::tm& local, int64_t& utc) const {
    if (!loaded()) {
        return false;
    }
    const int64_t wanted = GmtStructTm::calendarToSeconds(local);
    if (wanted < -LOCAL_LIMIT || wanted > LOCAL_LIMIT) {
        return false;
    }

    // Every instant that reads as `wanted` lies within MAX_OFFSET of it. Walk the spans of one
    // reading each across that window: a span holds a reading when wanted - offset falls in
    // it; a change across which wanted - offset jumps over the change instant is a gap.
    struct Found {
        bool any = false;
        int64_t utc = 0;
    };
    Found earliest;
    Found withFlag[2];
    bool inGap = false;
    Reading beforeGap;
    Reading afterGap;

    const int64_t last = wanted + MAX_OFFSET;
    int64_t spanStart = wanted - MAX_OFFSET;
    Reading reading = at(spanStart);
    for (;;) {
        int64_t spanEnd = nextChange(spanStart);
        int64_t candidate = wanted - reading.offset;
        // Only an instant that toCalendar takes: the same local time may also stand just
        // beyond the bound, under another offset.
        if (candidate >= spanStart && candidate < spanEnd && instantInBound(candidate)) {
            if (!earliest.any) {
                earliest = Found{true, candidate};
            }
            Found& flagged = withFlag[reading.daylight ? 1 : 0];
            if (!flagged.any) {
                flagged = Found{true, candidate};
            }
        }
        if (spanEnd > last) {
            break;
        }
        Reading next = at(spanEnd);
        if (!inGap && wanted - reading.offset >= spanEnd && wanted - next.offset < spanEnd) {
            inGap = true;
            beforeGap = reading;
            afterGap = next;
        }
        spanStart = spanEnd;
        reading = next;
    }

    if (local.tm_isdst < 0) {
        if (earliest.any) {
            utc = earliest.utc;
        } else if (inGap) {
            // Read with the offset before the change, so that the time lands after it, unless
            // only the side before it is daylight time.
            bool landBefore = beforeGap.daylight && !afterGap.daylight;
            utc = wanted - (landBefore ? afterGap.offset : beforeGap.offset);
        } else {
            utc = wanted - at(wanted).offset;
        }
        return instantInBound(utc);
    }

    const bool daylight = local.tm_isdst > 0;
    if (withFlag[daylight ? 1 : 0].any) {
        utc = withFlag[daylight ? 1 : 0].utc;
        return instantInBound(utc);
    }
    int64_t base;
    if (earliest.any) {
        base = earliest.utc;
    } else if (inGap && beforeGap.daylight == daylight) {
        utc = wanted - beforeGap.offset;
        return instantInBound(utc);
    } else if (inGap && afterGap.daylight == daylight) {
        utc = wanted - afterGap.offset;
        return instantInBound(utc);
    } else {
        base = wanted - (inGap ? beforeGap.offset : at(wanted).offset);
    }
    // No reading has the flag asked for: take the offset of the nearest time that has it.
    for (int64_t delta = PROBE_STRIDE; delta < PROBE_LIMIT; delta += PROBE_STRIDE) {
        for (int64_t probe : {base - delta, base + delta}) {
            Reading probed = at(probe);
            if (probed.daylight == daylight) {
                utc = wanted - probed.offset;
                return instantInBound(utc);
            }
        }
    }
    utc = base + 3600 * ((daylight ? 0 : 1) - (at(base).daylight ? 0 : 1));
    return instantInBound(utc);
}

}  // namespace morvax
