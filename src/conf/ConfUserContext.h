#pragma once

#include "util/base/Str.h"

namespace morvax {

// Who owns a piece of configuration: a user and an application. Settings that no user owns
// belong to "nobody" with no application.
struct ConfUserContext {
    Str user{"nobody"};
    Str app;

    friend bool operator==(const ConfUserContext& a, const ConfUserContext& b) = default;
};

}  // namespace morvax
