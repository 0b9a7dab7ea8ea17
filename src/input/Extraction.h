#pragma once

#include <cstdint>
#include <vector>

#include "util/base/Str.h"

namespace morvax {

// A blocking one-shot query that fills `list` instead of the event stream, for callers that
// browse a namespace: outputMode 0 lists class names, 1 property names, 2 the values of
// `propertyName`. True when the query ran to its end; a failure has been logged. An empty query
// text throws BaseException.
bool runExtraction(const Str& wql, const WStr& propertyName, std::vector<Str>& list,
                   uint32_t outputMode, const Str& nameSpace);

}  // namespace morvax
