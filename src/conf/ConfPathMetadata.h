#pragma once

#include <cstdint>

#include "conf/ConfPathPermissionsReference.h"
#include "util/io/Pathname.h"

namespace morvax {

// Where a node of a conf tree came from and who may see it.
struct ConfPathMetadata {
    enum ShareLevel : uint32_t { SHARE_NONE = 0, SHARE_APPLICATION = 1, SHARE_GLOBAL = 2 };

    uint32_t shareLevel = SHARE_NONE;  // a conf file's keys have the default; .meta files set it
    bool isLocal = false;              // the file lay in a directory named "local"
    Pathname originPath;
    int64_t modtime = 0;  // seconds, 0 when unknown
    ConfPathPermissionsReference permissions;
};

}  // namespace morvax
