#pragma once

#include <cstdint>

#include "util/base/Str.h"

namespace morvax {

// The record of one configured query. A value type: handlers and schedule policies keep copies.
struct WMIQueryEntry {
    static constexpr uint32_t TYPE_WQL = 0;
    static constexpr uint32_t TYPE_EVENT_LOG = 1;

    uint32_t type = TYPE_WQL;
    Str namespace_;  // "\\server\root\cimv2" or a relative path such as "root\cimv2"
    Str parameter;   // the WQL text, or the name of the event log
    uint64_t intervalMilliseconds = 0;
    Str name;      // becomes source, sourcetype and wmi_type
    Str hostname;  // the stanza's hostname key, may be empty
    bool notification = false;
    uint32_t outputMode = 2;  // 0 class names, 1 property names, 2 names and values
    Str index;
    bool disableHostnameNormalization = false;

    // Whether two entries stand for the same stanza when they share a back-off schedule.
    // hostname and outputMode do not take part.
    bool sameQuery(const WMIQueryEntry& other) const;
};

}  // namespace morvax
