#include "storage/PersistentStorage.h"

#include "storage/SQLitePersistentStorageImpl.h"

namespace morvax {

PersistentStorage::PersistentStorage(const Pathname& dbPath, StrSegment name)
    : impl_(std::make_unique<SQLitePersistentStorageImpl>(dbPath, name)) {}

PersistentStorage::~PersistentStorage() = default;

}  // namespace morvax
