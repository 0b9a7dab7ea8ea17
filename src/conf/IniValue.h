#pragma once

#include <vector>

#include "util/base/Str.h"

namespace morvax {

// One key's value in an IniFile, with the raw lines that stood before the key.
struct IniValue {
    std::vector<Str> comments;
    Str value;
};

}  // namespace morvax
