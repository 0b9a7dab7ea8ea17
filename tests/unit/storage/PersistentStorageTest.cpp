#include "storage/PersistentStorage.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "storage/SQLiteDBException.h"

namespace morvax {
namespace {

namespace fs = std::filesystem;

class PersistentStorageTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        root_ = fs::temp_directory_path() / ("morvax-storage-" + std::to_string(stamp));
        fs::create_directories(root_);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    Pathname dbPath() const { return Pathname(root_.u16string()); }
    fs::path file(const std::string& name) const { return root_ / "persistentstorage" / name; }

    // Rows of a statement on the file itself, each row's columns joined by '|', NULL as "-".
    std::vector<std::string> rows(const std::string& name, const char* statement) const {
        sqlite3* db = nullptr;
        std::vector<std::string> out;
        EXPECT_EQ(sqlite3_open(file(name).string().c_str(), &db), SQLITE_OK);
        sqlite3_stmt* prepared = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(db, statement, -1, &prepared, nullptr), SQLITE_OK);
        while (sqlite3_step(prepared) == SQLITE_ROW) {
            std::string row;
            for (int i = 0; i < sqlite3_column_count(prepared); ++i) {
                const unsigned char* text = sqlite3_column_text(prepared, i);
                row +=
                    (i ? "|" : "") + std::string(text ? reinterpret_cast<const char*>(text) : "-");
            }
            out.push_back(row);
        }
        sqlite3_finalize(prepared);
        sqlite3_close(db);
        return out;
    }

    fs::path root_;
};

PersistentStorageKey key(const char* primary, const char* s1 = "", const char* s2 = "",
                         const char* s3 = "") {
    return PersistentStorageKey{Str(primary), Str(s1), Str(s2), Str(s3)};
}

TEST_F(PersistentStorageTest, ANewFileHasTheTableAndTheFourIndexes) {
    { PersistentStorage storage(dbPath(), "store"); }
    EXPECT_EQ(
        rows("store", "select type, name from sqlite_master order by name"),
        (std::vector<std::string>{"table|keyvaluepairs_t", "index|primarykey_i",
                                  "index|secondary1_i", "index|secondary2_i", "index|secondary3_i",
                                  "index|sqlite_autoindex_keyvaluepairs_t_1"}));
}

TEST_F(PersistentStorageTest, WritesReplaceReadsAndRemoves) {
    PersistentStorage storage(dbPath(), "store");
    EXPECT_EQ(storage.write(key("ab", "x", "y", "z"), Str("1")), SQLITE_OK);
    EXPECT_EQ(storage.write(key("ab", "", "y2"), Str("2")), SQLITE_OK);
    EXPECT_EQ(rows("store",
                   "select primarykey, secondary1, secondary2, secondary3, value from "
                   "keyvaluepairs_t"),
              std::vector<std::string>{"ab|-|y2|-|2"});
    Str value("untouched");
    EXPECT_EQ(storage.read(Str("missing"), value), 0);
    EXPECT_EQ(value, "untouched");
    EXPECT_EQ(storage.read(Str("ab"), value), 1);
    EXPECT_EQ(value, "2");
    EXPECT_TRUE(storage.remove(Str("ab")));
    EXPECT_TRUE(storage.remove(Str("ab")));
    EXPECT_EQ(storage.read(Str("ab"), value), 0);
}

TEST_F(PersistentStorageTest, EnumeratesByPrefixOrBySecondaryKeys) {
    PersistentStorage storage(dbPath(), "store");
    storage.write(key("ab", "s"), Str("1"));
    storage.write(key("abz", "s", "t"), Str("2"));
    storage.write(key("ac", "s", "t"), Str("3"));
    std::map<Str, Str> results;
    storage.enumerate(key("ab"), results);
    EXPECT_EQ(results, (std::map<Str, Str>{{Str("ab"), Str("1")}, {Str("abz"), Str("2")}}));
    results.clear();
    storage.enumerate(key("", "s", "t"), results);
    EXPECT_EQ(results, (std::map<Str, Str>{{Str("abz"), Str("2")}, {Str("ac"), Str("3")}}));
    EXPECT_THROW(storage.enumerate(key(""), results), SQLiteDBException);
}

TEST_F(PersistentStorageTest, OpeningFailuresSayWhyAndLeaveNothingBehind) {
    // A file where the directory should be.
    std::ofstream(root_ / "persistentstorage") << "x";
    try {
        PersistentStorage storage(dbPath(), "store");
        ADD_FAILURE() << "no exception";
    } catch (const SQLiteDBException& e) {
        const std::string text = e.what();
        EXPECT_EQ(text.rfind("failed to mkdir " + (root_ / "persistentstorage").string() + ": ", 0),
                  0u)
            << text;
        EXPECT_EQ(text.back(), '\n');
    }
    fs::remove(root_ / "persistentstorage");

    // The schema cannot be written (its journal cannot be made): the new file goes again.
    fs::create_directories(file("store-journal"));
    try {
        PersistentStorage storage(dbPath(), "store");
        ADD_FAILURE() << "no exception";
    } catch (const SQLiteDBException& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Error executing: create table keyvaluepairs_t(", 0),
                  0u)
            << e.what();
    }
    EXPECT_FALSE(fs::exists(file("store")));
}

}  // namespace
}  // namespace morvax
