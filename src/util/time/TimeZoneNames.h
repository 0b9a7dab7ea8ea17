#pragma once

#include <optional>
#include <string_view>

#include "util/base/StrSegment.h"

namespace morvax {

// The tz database id of a Windows zone name ("Pacific Standard Time", "Tokyo Daylight Time",
// "Central Standard Time (Mexico)") or of a metazone name ("Europe_Central"); nothing for a name
// it does not know, and for "GMT" and "Greenwich" alone, which mean plain UTC. Any bytes may be
// given. The id is static text.
std::optional<std::string_view> windowsNameToZoneId(StrSegment name);

}  // namespace morvax
