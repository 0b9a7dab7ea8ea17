#include "storage/SQLitePersistentStorageImpl.h"

#include <sqlite3.h>

#include "storage/SQLiteDBException.h"
#include "util/log/Logger.h"

namespace morvax {

namespace {

Logger& logger() {
    static Logger instance("SQLitePersistentStorageImpl");
    return instance;
}

// The schema of a new file, statement by statement.
constexpr const char* kSchema[] = {
    ("create table keyvaluepairs_t(primarykey text constraint primary_c unique,secondary1 text, "
     "secondary2 text, secondary3 text, value text);"),
    "create index primarykey_i on keyvaluepairs_t(primarykey);",
    "create index secondary1_i on keyvaluepairs_t(secondary1);",
    "create index secondary2_i on keyvaluepairs_t(secondary2);",
    "create index secondary3_i on keyvaluepairs_t(secondary3);",
};

constexpr char kInsert[] =
    "insert or replace into keyvaluepairs_t (primarykey, secondary1, secondary2, secondary3, "
    "value) values(?1, ?2, ?3, ?4, ?5);";
constexpr char kSelect[] = "select value from keyvaluepairs_t where primarykey=?1;";
constexpr char kDelete[] = "delete from keyvaluepairs_t where primarykey=?1;";
constexpr char kPrefix[] =
    "select primarykey,value from keyvaluepairs_t where primarykey >= ?1 and primarykey < ?2;";

// The secondary keys of a query, in order, with the column each one tests.
struct SecondaryColumn {
    Str PersistentStorageKey::*key;
    const char* test;
};
constexpr SecondaryColumn kSecondaries[] = {
    {&PersistentStorageKey::secondary1, "secondary1 = ?%d"},
    {&PersistentStorageKey::secondary2, "secondary2 = ?%d"},
    {&PersistentStorageKey::secondary3, "secondary3 = ?%d"},
};

}  // namespace

SQLitePersistentStorageImpl::SQLitePersistentStorageImpl(const Pathname& dbPath, StrSegment name) {
    const Pathname directory = Pathname::join(dbPath, "persistentstorage");
    if (!directory.makeDirectories()) {
        throw SQLiteDBException("failed to mkdir %s: %m\n", directory.toStr().c_str());
    }
    const Pathname file = Pathname::join(directory, name);
    lastError_ = file.toStr();
    const bool existed = file.exists() != Pathname::NOT_FOUND;
    if (sqlite3_open16(file.c_str(), &database_) != SQLITE_OK) {
        Str message(sqlite3_errmsg(database_));
        sqlite3_close(database_);
        database_ = nullptr;
        throw SQLiteDBException("Error opening database: %s : %s", lastError_.c_str(),
                                message.c_str());
    }
    if (!existed) {
        createSchema(file);
    }
}

void SQLitePersistentStorageImpl::createSchema(const Pathname& file) {
    for (const char* statement : kSchema) {
        char* message = nullptr;
        if (sqlite3_exec(database_, statement, nullptr, nullptr, &message) == SQLITE_OK) {
            continue;
        }
        Str text("Error executing: ");
        text.append(statement);
        text.append(" Msg=");
        text.append(message != nullptr ? message : "");
        sqlite3_free(message);
        // Closed before the new file goes, so that the next run starts clean.
        sqlite3_close(database_);
        database_ = nullptr;
        if (!file.removeFile()) {
            logger().warn("executeCreateStatement, failed to unlink %s: %m", lastError_.c_str());
        }
        throw SQLiteDBException(text);
    }
}

SQLitePersistentStorageImpl::~SQLitePersistentStorageImpl() {
    finalize(insertStatement_, " Error finalizing _pInsertStatement in destructor:");
    finalize(getStatement_, " Error finalizing _pGetStatement in destructor:");
    finalize(removeStatement_, " Error finalizing _pRemoveStatement in destructor:");
    if (database_ != nullptr && sqlite3_close(database_) != SQLITE_OK) {
        logger().error("%s Error closing database in destructor:%s", lastError_.c_str(),
                       sqlite3_errmsg(database_));
    }
}

void SQLitePersistentStorageImpl::finalize(sqlite3_stmt*& statement, const char* what) {
    if (statement == nullptr) {
        return;
    }
    if (sqlite3_finalize(statement) != SQLITE_OK) {
        logger().error("%s%s%s", lastError_.c_str(), what, sqlite3_errmsg(database_));
    }
    statement = nullptr;
}

sqlite3_stmt* SQLitePersistentStorageImpl::prepare(const char* statement) {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(database_, statement, -1, &prepared, nullptr) != SQLITE_OK) {
        Str text("Error executing: ");
        text.append(statement);
        text.append(" Msg=");
        text.append(sqlite3_errmsg(database_));
        text.append(" file=");
        const char* name = sqlite3_db_filename(database_, "main");
        text.append(name != nullptr ? name : "");
        throw SQLiteDBException(text);
    }
    return prepared;
}

void SQLitePersistentStorageImpl::bind(sqlite3_stmt* statement, int index, const Str& text) {
    // Up to the terminator, as the text would be read back.
    sqlite3_bind_text(statement, index, text.c_str(), -1, SQLITE_TRANSIENT);
}

int SQLitePersistentStorageImpl::write(const PersistentStorageKey& key, const Str& value) {
    insertStatement_ = prepare(kInsert);
    bind(insertStatement_, 1, key.primary);
    int index = 2;
    for (const SecondaryColumn& column : kSecondaries) {
        if (!(key.*column.key).empty()) {
            bind(insertStatement_, index, key.*column.key);
        }
        ++index;
    }
    bind(insertStatement_, 5, value);
    if (sqlite3_step(insertStatement_) != SQLITE_DONE) {
        logger().error(
            "%s Error inserting  _pInsertStatement in SQLitePersistentStorageImpl::write: %s",
            lastError_.c_str(), sqlite3_errmsg(database_));
    }
    sqlite3_reset(insertStatement_);
    const int result = sqlite3_finalize(insertStatement_);
    insertStatement_ = nullptr;
    return result;
}

int SQLitePersistentStorageImpl::read(const Str& primary, Str& value) {
    getStatement_ = prepare(kSelect);
    bind(getStatement_, 1, primary);
    int found = 0;
    if (sqlite3_step(getStatement_) == SQLITE_ROW) {
        const unsigned char* text = sqlite3_column_text(getStatement_, 0);
        if (text == nullptr) {
            logger().warn("SQLITE Row contains NULL value entry");
        } else {
            value = reinterpret_cast<const char*>(text);
            found = 1;
        }
    }
    sqlite3_reset(getStatement_);
    sqlite3_finalize(getStatement_);
    getStatement_ = nullptr;
    return found;
}

bool SQLitePersistentStorageImpl::remove(const Str& primary) {
    removeStatement_ = prepare(kDelete);
    bind(removeStatement_, 1, primary);
    sqlite3_step(removeStatement_);
    sqlite3_reset(removeStatement_);
    sqlite3_finalize(removeStatement_);
    removeStatement_ = nullptr;
    return true;
}

void SQLitePersistentStorageImpl::enumerate(const PersistentStorageKey& query,
                                            std::map<Str, Str>& results) {
    sqlite3_stmt* statement = nullptr;
    if (!query.primary.empty()) {
        statement = prepare(kPrefix);
        bind(statement, 1, query.primary);
        // The first key past the prefix: the last byte one higher, without carry.
        Str end(query.primary);
        end.data()[end.size() - 1] = static_cast<char>(end[end.size() - 1] + 1);
        bind(statement, 2, end);
    } else {
        Str text("select primarykey, value from keyvaluepairs_t where ");
        int parameter = 0;
        for (const SecondaryColumn& column : kSecondaries) {
            if (!(query.*column.key).empty()) {
                if (parameter > 0) {
                    text.append(" AND ");
                }
                text.appendFormat(column.test, ++parameter);
            }
        }
        statement = prepare(text.c_str());
        parameter = 0;
        for (const SecondaryColumn& column : kSecondaries) {
            if (!(query.*column.key).empty()) {
                bind(statement, ++parameter, query.*column.key);
            }
        }
    }
    for (;;) {
        const int stepped = sqlite3_step(statement);
        if (stepped == SQLITE_ROW) {
            const unsigned char* key = sqlite3_column_text(statement, 0);
            const unsigned char* value = sqlite3_column_text(statement, 1);
            if (key == nullptr || value == nullptr) {
                logger().warn("SQLITE Row contains NULL entries");
                continue;
            }
            results[Str(reinterpret_cast<const char*>(key))] =
                Str(reinterpret_cast<const char*>(value));
        } else if (stepped == SQLITE_DONE) {
            sqlite3_reset(statement);
            sqlite3_finalize(statement);
            return;
        } else if (stepped != SQLITE_BUSY) {
            Str text("Error processing enumerate: ");
            text.append(sqlite3_errmsg(database_));
            sqlite3_reset(statement);
            sqlite3_finalize(statement);
            throw SQLiteDBException(text);
        }
    }
}

}  // namespace morvax
