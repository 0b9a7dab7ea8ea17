#pragma once

#include <vector>

#include "conf/IniValue.h"
#include "conf/OrderedDictionary.h"
#include "util/base/Str.h"

namespace morvax {

// One stanza of an IniFile: the raw lines that stood before its header, and its entries in
// the order of the file.
struct IniStanza {
    std::vector<Str> comments;
    OrderedDictionary<IniValue> entries;
};

}  // namespace morvax
