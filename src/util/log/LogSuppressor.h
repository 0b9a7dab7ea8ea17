#pragma once

#include <cstdint>
#include <map>
#include <mutex>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/time/Timeval.h"

namespace morvax {

class Logger;

// Summarises repeated messages of one Logger. Messages count as repeats when they come from the
// same format string, whatever the values. The first maxRepeats of a format pass; later ones
// are held back and counted, and the first call on the Logger after intervalSeconds writes the
// newest of them with a count. There is no timer: a Logger that falls silent keeps its count.
class LogSuppressor {
  public:
    LogSuppressor(Logger& owner, uint32_t intervalSeconds, uint32_t maxRepeats);
    LogSuppressor(const LogSuppressor&) = delete;
    LogSuppressor& operator=(const LogSuppressor&) = delete;

    // One log call of `level` at `now`: `key` is the format string, `text` the message.
    void log(int32_t level, Timeval now, StrSegment key, StrSegment text);

    // Formats of held-back or counted messages, for tests and diagnostics.
    size_t entryCount() const;

  private:
    struct Entry {
        Str lastText;
        int32_t level = 0;
        uint32_t count = 0;
        uint32_t maxRepeats = 0;
        uint32_t intervalSeconds = 0;
        // MAX_TIME when nothing is held back.
        Timeval firstSuppressed = Timeval::MAX_TIME;
    };

    Logger& owner_;
    mutable std::mutex lock_;
    std::map<Str, Entry> entries_;
    uint32_t maxRepeats_;
    uint32_t intervalSeconds_;
};

}  // namespace morvax
