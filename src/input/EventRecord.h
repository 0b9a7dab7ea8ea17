#pragma once

#include <deque>
#include <map>

#include "util/base/Str.h"

namespace morvax {

// One result object as text: property name to value, ordered by UTF-16 code units (so upper
// case sorts before lower case, and a name before a longer one it begins). The order of the
// lines of an event follows from it.
using EventRecord = std::map<WStr, WStr>;

// The records of one call of Next: at most one batch of objects, alive for that call only.
using ResultBatch = std::deque<EventRecord>;

}  // namespace morvax
