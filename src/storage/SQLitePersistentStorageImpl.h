#pragma once

#include <map>

#include "storage/PersistentStorageImpl.h"
#include "util/base/Str.h"
#include "util/io/Pathname.h"

struct sqlite3;
struct sqlite3_stmt;

namespace morvax {

// The store as one SQLite database with one table, its schema made when the file is new. Every
// operation prepares its statement anew and finalises it; there is no explicit transaction.
class SQLitePersistentStorageImpl : public PersistentStorageImpl {
  public:
    // Opens <dbPath>/persistentstorage/<name>, making directory and schema when needed.
    SQLitePersistentStorageImpl(const Pathname& dbPath, StrSegment name);
    ~SQLitePersistentStorageImpl() override;
    SQLitePersistentStorageImpl(const SQLitePersistentStorageImpl&) = delete;
    SQLitePersistentStorageImpl& operator=(const SQLitePersistentStorageImpl&) = delete;

    int write(const PersistentStorageKey& key, const Str& value) override;
    int read(const Str& primary, Str& value) override;
    bool remove(const Str& primary) override;
    void enumerate(const PersistentStorageKey& query, std::map<Str, Str>& results) override;

  private:
    void createSchema(const Pathname& file);
    sqlite3_stmt* prepare(const char* statement);
    // Binds `text` to parameter `index`, copied.
    void bind(sqlite3_stmt* statement, int index, const Str& text);
    void finalize(sqlite3_stmt*& statement, const char* what);

    Str lastError_;  // the prefix of the log lines
    sqlite3* database_ = nullptr;
    sqlite3_stmt* insertStatement_ = nullptr;
    sqlite3_stmt* getStatement_ = nullptr;
    sqlite3_stmt* removeStatement_ = nullptr;
};

}  // namespace morvax
