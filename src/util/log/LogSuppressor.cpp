#include "util/log/LogSuppressor.h"

#include "util/log/Logger.h"

namespace morvax {

LogSuppressor::LogSuppressor(Logger& owner, uint32_t intervalSeconds, uint32_t maxRepeats)
    : owner_(owner), maxRepeats_(maxRepeats), intervalSeconds_(intervalSeconds) {}

size_t LogSuppressor::entryCount() const {
    std::lock_guard<std::mutex> hold(lock_);
    return entries_.size();
}

void LogSuppressor::log(int32_t level, Timeval now, StrSegment key, StrSegment text) {
    std::lock_guard<std::mutex> hold(lock_);
    Str currentKey(key);
    auto found = entries_.find(currentKey);
    if (found == entries_.end()) {
        Entry entry;
        entry.level = level;
        entry.maxRepeats = maxRepeats_;
        entry.intervalSeconds = intervalSeconds_;
        found = entries_.emplace(currentKey, std::move(entry)).first;
    }
    found->second.lastText = text;

    // Every call also settles the other formats whose interval has run out.
    for (auto it = entries_.begin(); it != entries_.end();) {
        Entry& entry = it->second;
        bool current = it == found;
        if (current) {
            ++entry.count;
        }
        bool expired = !entry.firstSuppressed.isMax() &&
                       Timeval::differenceSeconds(now, entry.firstSuppressed) >
                           static_cast<int64_t>(entry.intervalSeconds);
        if (!current && !expired) {
            ++it;
            continue;
        }
        if (current && entry.count > entry.maxRepeats && !expired) {
            if (now.isBefore(entry.firstSuppressed)) {
                entry.firstSuppressed = now;
            }
            ++it;
            continue;
        }
        if (entry.count > entry.maxRepeats) {
            Str summary(entry.lastText);
            summary.appendFormat("\r\n\t\t\t\t%u similar messages suppressed.  First occurred at: ",
                                 entry.count - entry.maxRepeats);
            entry.firstSuppressed.appendText(summary);
            owner_.dispatch(entry.level, now, summary);
            it = entries_.erase(it);
            continue;
        }
        owner_.dispatch(entry.level, now, entry.lastText);
        entry.firstSuppressed = Timeval::MAX_TIME;
        ++it;
    }
}

}  // namespace morvax
