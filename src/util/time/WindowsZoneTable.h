#pragma once

#include <span>

namespace morvax {

// Maps a Windows zone name without its " Standard Time" ending ("AUS Central"), or a metazone
// name ("Africa_Central"), to the tz database id of the zone that stands for it.
class WindowsZoneTable {
  public:
    struct Row {
        const char* name;
        const char* zoneId;
    };

    // All rows, sorted by name in strcmp (byte) order, names unique.
    static std::span<const Row> rows();
};

}  // namespace morvax
