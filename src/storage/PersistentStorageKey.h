#pragma once

#include "util/base/Str.h"

namespace morvax {

// The key of one row: the primary key, unique in the store, and three optional secondary keys
// (empty means none, stored as NULL).
struct PersistentStorageKey {
    Str primary;
    Str secondary1;
    Str secondary2;
    Str secondary3;
};

}  // namespace morvax
