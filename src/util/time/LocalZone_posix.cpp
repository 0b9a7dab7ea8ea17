#include <errno.h>
#include <stdlib.h>

#include "util/time/LocalZone.h"

namespace morvax {

bool findLocalZone(TimeZone& zone, Str& zoneId, uint32_t& flags, bool useEnvironment) {
    flags = 0;
    const char* tz = useEnvironment ? getenv("TZ") : nullptr;
    const char* directory = useEnvironment ? getenv("TZDIR") : nullptr;
    if (!directory || !*directory) {
        directory = "/usr/share/zoneinfo";
    }
    return findZoneFromEnvironment(tz, directory, "/etc/localtime", zone, zoneId);
}

bool loadZoneFromRegistry(TimeZone&, const Str&, uint32_t) {
    errno = ENOSYS;
    return false;
}

}  // namespace morvax
