#pragma once

#include <memory>

#include "input/TimeIncrementor.h"
#include "input/WMIQueryEntry.h"
#include "util/base/StrSegment.h"

namespace morvax {

// The back-off of one server, shared by all stanzas that query it. The first stanza to fail owns
// the schedule and moves it; the others follow its current step without doubling it, and only
// the owner can end the back-off.
class ErrorTimeIncrementor : public TimeIncrementor {
  public:
    using TimeIncrementor::TimeIncrementor;

    Timeval nextTime(const WMIQueryEntry& entry);
    // The reset of a stanza that has left its error path: a reset when there is no owner or the
    // owner is `entry` (the owner is then dropped); nothing when another stanza owns it.
    void resetFor(const WMIQueryEntry& entry);

    const WMIQueryEntry* owner() const { return owner_.get(); }

    // The schedule of `server` (as serverFromNamespace gives it; empty for the local machine),
    // made on first use with the present back-off settings and kept for the process.
    static ErrorTimeIncrementor& forServer(StrSegment server);
    // Test hook: forgets every server's schedule. No policy may still point at one.
    static void forgetAllServers();

  private:
    std::unique_ptr<WMIQueryEntry> owner_;
};

}  // namespace morvax
