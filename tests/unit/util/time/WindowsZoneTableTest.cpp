#include "util/time/WindowsZoneTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace morvax {
namespace {

bool isZoneId(std::string_view id) {
    static constexpr std::string_view AREAS[] = {"Africa",   "America",   "Antarctica", "Asia",
                                                 "Atlantic", "Australia", "Europe",     "Etc",
                                                 "Indian",   "Pacific"};
    size_t slash = id.find('/');
    if (slash == std::string_view::npos ||
        std::find(std::begin(AREAS), std::end(AREAS), id.substr(0, slash)) == std::end(AREAS)) {
        return false;
    }
    std::string_view location = id.substr(slash + 1);
    return !location.empty() && location.back() != '/' &&
           location.find_first_not_of(
               "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
               "0123456789_-+/") == std::string_view::npos;
}

const char* lookup(const char* name) {
    auto rows = WindowsZoneTable::rows();
    auto it = std::lower_bound(
        rows.begin(), rows.end(), name,
        [](const auto& row, const char* key) { return std::strcmp(row.name, key) < 0; });
    return it != rows.end() && std::strcmp(it->name, name) == 0 ? it->zoneId : nullptr;
}

TEST(WindowsZoneTableTest, RowsAreSortedUniqueAndWellFormed) {
    auto rows = WindowsZoneTable::rows();
    ASSERT_EQ(rows.size(), 247u);
    for (size_t i = 0; i < rows.size(); ++i) {
        ASSERT_NE(rows[i].name, nullptr);
        ASSERT_NE(rows[i].zoneId, nullptr);
        EXPECT_NE(rows[i].name[0], '\0') << "row " << i;
        EXPECT_TRUE(isZoneId(rows[i].zoneId)) << rows[i].name << " -> " << rows[i].zoneId;
        if (i > 0) {
            // Strictly increasing, so a binary search finds every name and no name twice.
            EXPECT_LT(std::strcmp(rows[i - 1].name, rows[i].name), 0)
                << rows[i - 1].name << " / " << rows[i].name;
        }
    }

    EXPECT_STREQ(lookup("AUS Central"), "Australia/Darwin");
    EXPECT_STREQ(lookup("Acre"), "America/Rio_Branco");
    EXPECT_STREQ(lookup("Eastern"), "America/New_York");
    // Windows' meaning of a name that is also a metazone.
    EXPECT_STREQ(lookup("GMT"), "Europe/London");
    EXPECT_STREQ(lookup("Greenwich"), "Africa/Casablanca");
    EXPECT_STREQ(lookup("Yukon"), "America/Yakutat");
    EXPECT_EQ(lookup("Eastern Standard Time"), nullptr);
}

TEST(WindowsZoneTableTest, ZoneIdsAreInstalledZones) {
    const std::filesystem::path zoneinfo = "/usr/share/zoneinfo";
    std::error_code error;
    if (!std::filesystem::is_directory(zoneinfo, error)) {
        GTEST_SKIP() << zoneinfo.string() << " is absent";
    }
    for (const auto& row : WindowsZoneTable::rows()) {
        EXPECT_TRUE(std::filesystem::is_regular_file(zoneinfo / row.zoneId, error))
            << row.name << " -> " << row.zoneId;
    }
}

}  // namespace
}  // namespace morvax
