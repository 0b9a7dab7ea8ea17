#pragma once

#include <cstdint>

#include "util/base/Str.h"

namespace morvax {

// The position in one event log: the read order learnt from the provider, the record reported
// last, the bounds of a descending pass, and the TimeWritten of record 1, the identity of the
// log. Its text form is the value of the log's key in the checkpoint file.
class EventLogCheckpoint {
  public:
    enum Mode : uint32_t {
        MODE_UNSET = 0,       // the stored checkpoint has not been read
        MODE_UNKNOWN = 1,     // read or absent, no record seen yet
        MODE_ONE_SEEN = 2,    // one record seen, order still open
        MODE_ASCENDING = 3,   // record numbers rise
        MODE_DESCENDING = 4,  // record numbers fall
    };
    static constexpr uint32_t kNone = UINT32_MAX;
    // The longest `time` a text form holds.
    static constexpr size_t kMaxTimeLength = 1023;

    uint32_t mode() const { return mode_; }
    uint32_t chk() const { return chk_; }
    uint32_t low() const { return low_; }
    uint32_t hi() const { return hi_; }
    const Str& time() const { return time_; }

    // Stores the numbers, `mode` unless it is 0 and `time` unless it is null.
    void setCheckpoint(uint32_t chk, uint32_t low, uint32_t hi, uint32_t mode, const Str* time);
    // The letter of the read order, then " chk low hi", then " time" when there is one; made once
    // per change.
    const Str& formatCheckpoint() const;
    // Reads "letter chk low hi [time]" (U, O, A or D; the time may be missing); false, with the
    // checkpoint unchanged, for any other text.
    bool parseCheckpoint(StrSegment text);

  private:
    uint32_t mode_ = MODE_UNSET;
    uint32_t chk_ = kNone;
    uint32_t low_ = 0;
    uint32_t hi_ = kNone;
    Str time_;
    mutable Str text_;
};

}  // namespace morvax
