#include "util/time/LocalZone.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>

#include "support/Calendar.h"
#include "support/Environment.h"
#include "util/time/StructTm.h"
#include "util/time/TimeZoneProvider.h"

namespace morvax {
namespace {

namespace fs = std::filesystem;

TEST(LocalZoneTest, LinksNameTheirZone) {
    fs::path root =
        fs::temp_directory_path() / ("morvax-tz-" + std::to_string(std::random_device()()));
    fs::create_directories(root / "zoneinfo" / "America");
    fs::create_directories(root / "zoneinfo" / "US");
    fs::copy_file("/usr/share/zoneinfo/America/New_York",
                  root / "zoneinfo" / "America" / "New_York");
    fs::create_symlink("../America/New_York", root / "zoneinfo" / "US" / "Eastern");
    fs::create_symlink(root / "zoneinfo" / "US" / "Eastern", root / "localtime");

    TimeZone zone;
    Str id;
    const std::string directory = (root / "zoneinfo").string();
    // The machine's file, through two links; a name under the directory keeps the name asked
    // for, a path the zone it leads to.
    ASSERT_TRUE(findZoneFromEnvironment(nullptr, directory.c_str(), (root / "localtime").c_str(),
                                        zone, id));
    EXPECT_EQ(id.toStdString(), "America/New_York");
    ASSERT_TRUE(findZoneFromEnvironment("US/Eastern", directory.c_str(), "/nowhere", zone, id));
    EXPECT_EQ(id.toStdString(), "US/Eastern");
    const std::string path = (root / "zoneinfo" / "US" / "Eastern").string();
    ASSERT_TRUE(findZoneFromEnvironment(path.c_str(), directory.c_str(), "/nowhere", zone, id));
    EXPECT_EQ(id.toStdString(), "America/New_York");

    // TZDIR moves the database; the process's zone follows TZ when found again.
    {
        test::ScopedEnvironment tzdir("TZDIR", directory.c_str());
        test::ScopedEnvironment tz("TZ", "US/Eastern");
        uint32_t flags = 1;
        ASSERT_TRUE(findLocalZone(zone, id, flags, true));
        EXPECT_EQ(id.toStdString(), "US/Eastern");
        EXPECT_EQ(flags, 0u);

        LocalTimeZoneProvider::reload();
        EXPECT_EQ(LocalTimeZoneProvider::zone().id().toStdString(), "US/Eastern");
        std::tm july = test::calendar(2024, 7, 1, 12);
        EXPECT_EQ(TimeZoneProvider::local().offsetSeconds(july), -4 * 3600);
        std::tm local{};
        ASSERT_TRUE(LocalTimeZoneProvider::toCalendar(1719835200, local));
        EXPECT_EQ(local.tm_hour, 8);
        EXPECT_EQ(local.tm_isdst, 1);
    }
    LocalTimeZoneProvider::reload();
    fs::remove_all(root);
}

}  // namespace
}  // namespace morvax
