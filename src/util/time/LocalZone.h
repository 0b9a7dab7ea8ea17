#pragma once

#include <cstdint>

#include "util/base/Str.h"
#include "util/time/TimeZone.h"

namespace morvax {

// Finds the zone of this machine. On Windows: from the registry (TimeZoneRegistry::find), TZ
// naming a key of the zone table when `useEnvironment` is set; the process aborts when nothing
// there names a zone. Elsewhere: TZ when `useEnvironment` is set and TZ is not empty (a zone id
// under the tz database directory, TZDIR or /usr/share/zoneinfo; ":" and an id or a path; or a
// POSIX rule), then /etc/localtime, then UTC. `zoneId` names the zone found, `flags` holds the
// registry's daylight switches (TimeZone::DAYLIGHT_OFF, DYNAMIC_DAYLIGHT_OFF). False when only
// the UTC fallback was left.
bool findLocalZone(TimeZone& zone, Str& zoneId, uint32_t& flags, bool useEnvironment);

// Reads a key of the registry's zone table ("Pacific Standard Time") into `zone`; false where
// there is no registry or the key holds no valid zone.
bool loadZoneFromRegistry(TimeZone& zone, const Str& keyName, uint32_t flags);

// The search where zones come from the tz database: `tz` is TZ's value (null when unset),
// `zoneDirectory` the database's directory, `systemZoneFile` the machine's zone file. Returns
// false, with UTC, when none of them gives a zone.
bool findZoneFromEnvironment(const char* tz, const char* zoneDirectory, const char* systemZoneFile,
                             TimeZone& zone, Str& zoneId);

}  // namespace morvax
