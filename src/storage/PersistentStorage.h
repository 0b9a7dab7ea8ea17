#pragma once

#include <map>
#include <memory>

#include "storage/PersistentStorageImpl.h"
#include "storage/PersistentStorageKey.h"
#include "util/base/Str.h"
#include "util/io/Pathname.h"

namespace morvax {

// A small key-value file, `<dbPath>/persistentstorage/<name>`, over SQLite. One object belongs to
// one thread. Opening throws SQLiteDBException and leaves nothing open.
class PersistentStorage {
  public:
    PersistentStorage(const Pathname& dbPath, StrSegment name);
    virtual ~PersistentStorage();
    PersistentStorage(const PersistentStorage&) = delete;
    PersistentStorage& operator=(const PersistentStorage&) = delete;

    int write(const PersistentStorageKey& key, const Str& value) {
        return impl_->write(key, value);
    }
    int read(const Str& primary, Str& value) { return impl_->read(primary, value); }
    bool remove(const Str& primary) { return impl_->remove(primary); }
    void enumerate(const PersistentStorageKey& query, std::map<Str, Str>& results) {
        impl_->enumerate(query, results);
    }

  private:
    std::unique_ptr<PersistentStorageImpl> impl_;
};

}  // namespace morvax
