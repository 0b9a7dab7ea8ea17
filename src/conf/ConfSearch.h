#pragma once

#include "util/base/Str.h"

namespace morvax {

// What a reader asks of the conf directories: one type, optionally narrowed to a user, an
// application and to default or local directories. An empty user or app matches any.
struct ConfSearch {
    enum Option { ANY, DEFAULT_ONLY, LOCAL_ONLY };

    Str type;
    Str user;
    Str app;
    Option option = ANY;
};

}  // namespace morvax
