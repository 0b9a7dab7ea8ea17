#include "util/time/LocalZone.h"

#include "util/base/Diagnostics.h"
#include "util/time/TimeZoneFile.h"

namespace morvax {

namespace {

DiagnosticsChannel diagnostics("TimeZone");

// The zone a non-empty TZ value names: a file, by absolute path or under the database, else a
// rule spelled out.
bool zoneOfTz(const char* tz, const char* zoneDirectory, TimeZone& zone) {
    StrSegment name(tz[0] == ':' ? tz + 1 : tz);
    if (name.empty()) {
        return false;
    }
    const bool absolute = name[0] == '/';
    Str path = absolute ? Str(name) : Str(zoneDirectory) + "/" + name;
    if (loadZoneFromFile(zone, path.c_str())) {
        // A name keeps the name asked for, not that of the file a link leads to; a path is
        // named by its file.
        if (!absolute) {
            zone.setId(name);
        }
        return true;
    }
    return TimeZone::fromRule(name, zone);
}

}  // namespace

bool findZoneFromEnvironment(const char* tz, const char* zoneDirectory, const char* systemZoneFile,
                             TimeZone& zone, Str& zoneId) {
    if (tz && *tz) {
        if (zoneOfTz(tz, zoneDirectory, zone)) {
            zoneId = zone.id();
            return true;
        }
        diagnostics.warn("TZ=\"%s\" names no time zone; the zone of the system is used", tz);
    }
    if (loadZoneFromFile(zone, systemZoneFile)) {
        zoneId = zone.id();
        return true;
    }
    zone = TimeZone::fixed(0, "UTC", "UTC");
    zoneId = zone.id();
    return false;
}

}  // namespace morvax
