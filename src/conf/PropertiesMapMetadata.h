#pragma once

#include <cstdint>

#include "conf/ConfPathPermissionsReference.h"
#include "conf/ConfUserContext.h"
#include "conf/SharedStr.h"
#include "util/io/Pathname.h"

namespace morvax {

// Where one setting came from, with its text; a map keeps one per key and one for its stanza.
struct PropertiesMapMetadata {
    // The setting's text; unused on a stanza's own record.
    SharedStr value;
    // The rank of the layer that supplied it; 0 until a layer is assigned.
    uint32_t priority = 0;
    ConfUserContext owner;
    // The application that the setting came from.
    SharedStr app;
    // The stanza whose text supplied the key, which differs from the map's own name when a
    // merge filled the key in from another stanza such as [default].
    SharedStr matchingStanza;
    // 1 when the source file lay in a directory named "local".
    uint8_t isLocal = 0;
    // The source's modification time in seconds, 0 when unknown.
    int64_t modtime = 0;
    ConfPathPermissionsReference permissions;
    // The import generation of the layer.
    uint64_t generation = 0;
    // The file that the key was read from.
    Pathname sourcePath;
};

}  // namespace morvax
