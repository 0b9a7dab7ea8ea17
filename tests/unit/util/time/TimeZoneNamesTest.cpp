#include "util/time/TimeZoneNames.h"

#include <gtest/gtest.h>

#include <string>

namespace morvax {
namespace {

std::string idOf(std::string_view name) {
    return std::string(windowsNameToZoneId(name).value_or("(none)"));
}

TEST(TimeZoneNamesTest, WindowsNamesToZoneIds) {
    // Both endings are cut before the table; "US " only matters before " Standard Time".
    EXPECT_EQ(idOf("Pacific Standard Time"), "America/Los_Angeles");
    EXPECT_EQ(idOf("Pacific Daylight Time"), "America/Los_Angeles");
    EXPECT_EQ(idOf("Eastern Standard Time"), "America/New_York");
    EXPECT_EQ(idOf("US Eastern Standard Time"), "Etc/GMT+5");
    EXPECT_EQ(idOf("US Mountain Standard Time"), "America/Phoenix");
    EXPECT_EQ(idOf("US Eastern Daylight Time"), "America/New_York");
    EXPECT_EQ(idOf("US Pacific Standard Time"), "America/Los_Angeles");
    EXPECT_EQ(idOf("AUS Central Standard Time"), "Australia/Darwin");

    // GMT and Greenwich: by the table with an ending, plain UTC alone.
    EXPECT_EQ(idOf("GMT Standard Time"), "Europe/London");
    EXPECT_EQ(idOf("Greenwich Standard Time"), "Africa/Casablanca");
    EXPECT_EQ(idOf("Greenwich Daylight Time"), "Europe/London");
    EXPECT_EQ(idOf("GMT"), "(none)");
    EXPECT_EQ(idOf("Greenwich"), "(none)");

    EXPECT_EQ(idOf("Central Standard Time (Mexico)"), "America/Mexico_City");
    EXPECT_EQ(idOf("Mountain Standard Time (Mexico)"), "America/Chihuahua");
    EXPECT_EQ(idOf("Pacific Daylight Time (Mexico)"), "America/Tijuana");
    EXPECT_EQ(idOf("Eastern Standard Time (Mexico)"), "(none)");
    EXPECT_EQ(idOf("Mexico Standard Time 2"), "America/Chihuahua");
    EXPECT_EQ(idOf("Mexico Daylight Time 2"), "America/Chihuahua");

    // Short names and metazones go to the table as they stand.
    EXPECT_EQ(idOf("Tokyo"), "Asia/Tokyo");
    EXPECT_EQ(idOf("Acre"), "America/Rio_Branco");
    EXPECT_EQ(idOf("Yukon"), "America/Yakutat");
    EXPECT_EQ(idOf("Europe_Central"), "Europe/Paris");

    // Anything else is nothing, whatever its bytes.
    for (std::string_view name :
         {std::string_view(""), std::string_view("Standard Time"),
          std::string_view(" Standard Time"), std::string_view("US  Standard Time"),
          std::string_view("Coordinated Universal Time"), std::string_view("tokyo"),
          std::string_view("Tokyo\0 Standard Time", 20), std::string_view("Tokyo\0", 6),
          std::string_view("\xff\xfe Standard Time")}) {
        EXPECT_EQ(idOf(name), "(none)") << name;
    }
}

}  // namespace
}  // namespace morvax
