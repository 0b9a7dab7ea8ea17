#pragma once

#include "util/base/StrSegment.h"
#include "util/io/Pathname.h"

namespace morvax {

// Creates <dbPath>/persistentstorage/wmi with its parents and appends the file
// "<that directory><separator><baseName>.ini" to `path`. On failure logs the error, leaves
// `path` as it stood and returns false; the platform's last-error value tells why.
bool getMorvaxWmiCheckpointPath(Pathname& path, StrSegment baseName);

}  // namespace morvax
