#pragma once

#include <map>

#include "storage/PersistentStorageKey.h"
#include "util/base/Str.h"

namespace morvax {

// What a store does; PersistentStorage forwards to one.
class PersistentStorageImpl {
  public:
    virtual ~PersistentStorageImpl() = default;
    // Inserts or replaces the row of `key.primary`; the result of finishing the statement.
    virtual int write(const PersistentStorageKey& key, const Str& value) = 0;
    // Non-zero when a row was found; `value` is left alone otherwise.
    virtual int read(const Str& primary, Str& value) = 0;
    virtual bool remove(const Str& primary) = 0;
    // The rows whose primary key begins with `query.primary`, or, when that is empty, whose
    // secondary keys equal the non-empty ones of `query`: primary key to value.
    virtual void enumerate(const PersistentStorageKey& query, std::map<Str, Str>& results) = 0;
};

}  // namespace morvax
