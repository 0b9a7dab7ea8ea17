#include "util/time/TimeZoneFile.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/Calendar.h"
#include "support/DiagnosticsCapture.h"
#include "support/Environment.h"
#include "util/time/LocalZone.h"
#include "util/time/StructTm.h"

namespace morvax {
namespace {

namespace fs = std::filesystem;

int64_t utcOf(int year, int month, int day, int hour = 0) {
    return GmtStructTm::calendarToSeconds(test::calendar(year, month, day, hour));
}

// The seed corpus of the fuzz target holds files of the database.
std::string corpusFile(const char* name) {
    std::string fixtures = test::getEnvironment("MORVAX_TEST_FIXTURES").value_or("tests/fixtures");
    return fixtures + "/../fuzz/corpus/tz_file/" + name;
}

// The parts of a compiled zone file; counts follow the parts unless set.
struct ZoneFileParts {
    struct Type {
        int32_t offset;
        uint8_t daylight;
        uint8_t abbreviation;
    };
    char version = '2';
    std::vector<int64_t> times;
    std::vector<uint8_t> indexes;
    std::vector<Type> types{{0, 0, 0}};
    std::string abbreviations = std::string("UTC\0", 4);
    uint32_t leapSeconds = 0;
    uint32_t indicators = 0;
    std::string footer = "\nUTC0\n";
    // Header counts in place of the true ones, when not negative: types, transitions,
    // abbreviation bytes.
    int64_t typeCount = -1;
    int64_t transitionCount = -1;
    int64_t abbreviationCount = -1;
    int64_t standardIndicatorCount = -1;

    std::string bytes() const {
        std::string out;
        auto put32 = [&](uint32_t v) {
            for (int shift = 24; shift >= 0; shift -= 8) {
                out.push_back(static_cast<char>((v >> shift) & 0xFF));
            }
        };
        auto header = [&](char v, bool empty) {
            out += "TZif";
            out.push_back(v);
            out.append(15, '\0');
            auto count = [&](int64_t forced, size_t real) {
                return empty ? 0u : static_cast<uint32_t>(forced >= 0 ? forced : real);
            };
            put32(empty ? 0 : indicators);
            put32(count(standardIndicatorCount, indicators));
            put32(empty ? 0 : leapSeconds);
            put32(count(transitionCount, times.size()));
            put32(count(typeCount, types.size()));
            put32(count(abbreviationCount, abbreviations.size()));
        };
        const bool wide = version != '\0';
        if (wide) {
            // An empty first block, as files made for readers of 64-bit data have.
            header(version, true);
        }
        header(version, false);
        for (int64_t t : times) {
            if (wide) {
                put32(static_cast<uint32_t>(static_cast<uint64_t>(t) >> 32));
            }
            put32(static_cast<uint32_t>(t));
        }
        out.append(indexes.begin(), indexes.end());
        for (const Type& type : types) {
            put32(static_cast<uint32_t>(type.offset));
            out.push_back(static_cast<char>(type.daylight));
            out.push_back(static_cast<char>(type.abbreviation));
        }
        out += abbreviations;
        out.append(leapSeconds * (wide ? 12 : 8) + 2 * indicators, '\0');
        if (wide) {
            out += footer;
        }
        return out;
    }
};

// A zone with two types and two transitions, New York's names and offsets.
ZoneFileParts twoTypes() {
    ZoneFileParts parts;
    parts.types = {{-18000, 0, 0}, {-14400, 1, 4}};
    parts.abbreviations = std::string("EST\0EDT\0", 8);
    parts.times = {-100000, 9000000};
    parts.indexes = {1, 0};
    parts.footer = "\nEST5EDT,M3.2.0,M11.1.0\n";
    return parts;
}

const char* failureOf(const std::string& bytes) {
    TimeZone zone;
    const char* failure = nullptr;
    bool parsed = TimeZoneFile::parse(reinterpret_cast<const unsigned char*>(bytes.data()),
                                      bytes.size(), zone, failure);
    return parsed ? "(parsed)" : failure;
}

TEST(TimeZoneFileTest, ReadsVersionsAndSkipsLeapSeconds) {
    for (char version : {'\0', '2', '3', '4', '5'}) {
        ZoneFileParts parts = twoTypes();
        parts.version = version;
        parts.leapSeconds = 2;
        parts.indicators = 2;
        std::string bytes = parts.bytes();
        TimeZone zone;
        const char* failure = nullptr;
        ASSERT_TRUE(TimeZoneFile::parse(reinterpret_cast<const unsigned char*>(bytes.data()),
                                        bytes.size(), zone, failure))
            << failure;
        // A 32-bit time before the epoch is sign-extended.
        EXPECT_STREQ(zone.at(-100001).abbreviation, "EST");
        EXPECT_STREQ(zone.at(-100000).abbreviation, "EDT");
        EXPECT_TRUE(zone.at(-100000).daylight);
        EXPECT_EQ(zone.at(-100000).offset, -14400);
        // After the last transition the footer's rule takes over; version 1 has none.
        EXPECT_EQ(zone.at(utcOf(2024, 7, 1)).offset, version == '\0' ? -18000 : -14400);
        EXPECT_EQ(zone.rule().has_value(), version != '\0');
    }

    // An empty footer: the last type goes on.
    ZoneFileParts parts = twoTypes();
    parts.footer = "\n\n";
    std::string bytes = parts.bytes();
    TimeZone zone;
    const char* failure = nullptr;
    ASSERT_TRUE(TimeZoneFile::parse(reinterpret_cast<const unsigned char*>(bytes.data()),
                                    bytes.size(), zone, failure));
    EXPECT_FALSE(zone.rule().has_value());
    EXPECT_EQ(zone.at(utcOf(2024, 7, 1)).offset, -18000);
}

TEST(TimeZoneFileTest, RefusesFilesBeyondBoundsOrMalformed) {
    struct Case {
        const char* failure;
        std::function<void(ZoneFileParts&)> change;
    };
    const std::vector<Case> cases = {
        {"unknown version of the format", [](ZoneFileParts& p) { p.version = '1'; }},
        {"more than 256 local-time types", [](ZoneFileParts& p) { p.typeCount = 257; }},
        {"more than 4096 transitions", [](ZoneFileParts& p) { p.transitionCount = 4097; }},
        {"more than 1024 bytes of abbreviations",
         [](ZoneFileParts& p) { p.abbreviationCount = 1025; }},
        {"more than 128 leap-second records", [](ZoneFileParts& p) { p.leapSeconds = 129; }},
        {"indicator counts that differ from the number of types",
         [](ZoneFileParts& p) { p.standardIndicatorCount = 1; }},
        {"no local-time types",
         [](ZoneFileParts& p) {
             p.types.clear();
             p.times.clear();
             p.indexes.clear();
         }},
        {"no abbreviations", [](ZoneFileParts& p) { p.abbreviationCount = 0; }},
        {"cut short in its data", [](ZoneFileParts& p) { p.transitionCount = 100; }},
        {"a transition to a type that does not exist", [](ZoneFileParts& p) { p.indexes[1] = 2; }},
        {"a daylight flag other than 0 or 1", [](ZoneFileParts& p) { p.types[0].daylight = 2; }},
        {"an abbreviation index beyond the abbreviations",
         [](ZoneFileParts& p) { p.types[0].abbreviation = 8; }},
        {"an abbreviation without its terminating NUL",
         [](ZoneFileParts& p) { p.abbreviations.back() = 'X'; }},
        {"an offset more than 26 hours from UTC",
         [](ZoneFileParts& p) { p.types[1].offset = 26 * 3600; }},
        {"transition times out of order",
         [](ZoneFileParts& p) {
             p.times = {5, 5};
         }},
        {"no footer line after the data", [](ZoneFileParts& p) { p.footer = ""; }},
        {"a footer without its closing line end", [](ZoneFileParts& p) { p.footer = "\nUTC0"; }},
        {"a footer that is not a valid TZ rule", [](ZoneFileParts& p) { p.footer = "\nUTC\n"; }},
    };
    for (const Case& c : cases) {
        ZoneFileParts parts = twoTypes();
        c.change(parts);
        EXPECT_STREQ(failureOf(parts.bytes()), c.failure);
    }
    std::string good = twoTypes().bytes();
    EXPECT_STREQ(failureOf(good), "(parsed)");
    EXPECT_STREQ(failureOf(good.substr(0, 30)), "too short for its header");
    EXPECT_STREQ(failureOf("TZiF" + good.substr(4)),
                 "not a compiled zone file (no \"TZif\" at its start)");
    // Every cut of a good file is refused, never read beyond.
    for (size_t size = 0; size + 1 < good.size(); ++size) {
        EXPECT_STRNE(failureOf(good.substr(0, size)), "(parsed)") << size;
    }
    std::string huge = good + std::string(TimeZoneFile::MAX_FILE_SIZE, '\n');
    EXPECT_STREQ(failureOf(huge), "larger than 128 KiB");
}

TEST(TimeZoneFileTest, DatabaseFilesAndTheirIds) {
    TimeZone london;
    ASSERT_TRUE(loadZoneFromFile(london, corpusFile("Europe_London.tzif").c_str()));
    EXPECT_STREQ(london.at(utcOf(2024, 7, 1)).abbreviation, "BST");
    EXPECT_EQ(london.at(utcOf(2024, 7, 1)).offset, 3600);
    EXPECT_STREQ(london.at(utcOf(2024, 1, 1)).abbreviation, "GMT");
    EXPECT_STREQ(london.at(utcOf(1800, 1, 1)).abbreviation, "LMT");
    EXPECT_EQ(london.at(utcOf(1800, 1, 1)).offset, -75);
    // British Standard Time, 1968 to 1971: an hour ahead, not daylight time.
    EXPECT_FALSE(london.at(utcOf(1970, 1, 1)).daylight);
    EXPECT_EQ(london.at(utcOf(1970, 1, 1)).offset, 3600);

    TimeZone lordHowe;
    ASSERT_TRUE(loadZoneFromFile(lordHowe, corpusFile("Australia_Lord_Howe.tzif").c_str()));
    EXPECT_EQ(lordHowe.at(utcOf(2040, 1, 1)).offset, 11 * 3600);
    EXPECT_EQ(lordHowe.at(utcOf(2040, 7, 1)).offset, 10 * 3600 + 1800);

    // Ids: behind the last "zoneinfo" directory of the file read, else of the path given.
    EXPECT_EQ(TimeZoneFile::zoneIdOfPath("/usr/share/zoneinfo/Europe/Paris", "/etc/localtime"),
              "Europe/Paris");
    EXPECT_EQ(TimeZoneFile::zoneIdOfPath("/etc/localtime", "/etc/localtime"), "/etc/localtime");
    EXPECT_EQ(TimeZoneFile::zoneIdOfPath("C:\\tz\\zoneinfo\\America\\New_York", "x"),
              "America/New_York");
    EXPECT_EQ(TimeZoneFile::zoneIdOfPath("/a/myzoneinfo/UTC", "/zoneinfo/posix/UTC"), "posix/UTC");
    EXPECT_EQ(lordHowe.id().toStdString(), corpusFile("Australia_Lord_Howe.tzif"));

    // A missing file fails quietly, a bad one with the reason; the zone stays as it was.
    test::DiagnosticsCapture capture;
    EXPECT_FALSE(loadZoneFromFile(london, corpusFile("no-such-zone").c_str()));
    const std::string unordered = corpusFile("unordered.tzif");
    EXPECT_FALSE(loadZoneFromFile(london, unordered.c_str()));
    EXPECT_EQ(capture.lines(),
              std::vector<std::string>{"TimeZone WARN Time zone file " + unordered +
                                       " is refused: transition times out of order"});
    EXPECT_STREQ(london.at(utcOf(2024, 7, 1)).abbreviation, "BST");
}

TEST(TimeZoneFileTest, ZoneFromTheEnvironment) {
    fs::path root =
        fs::temp_directory_path() / ("morvax-tz-" + std::to_string(std::random_device()()));
    fs::create_directories(root / "zoneinfo" / "Europe");
    fs::copy_file(fs::u8path(corpusFile("Europe_London.tzif")),
                  root / "zoneinfo" / "Europe" / "London");
    fs::copy_file(fs::u8path(corpusFile("America_New_York.tzif")), root / "localtime");
    const std::string directory = (root / "zoneinfo").string();
    const std::string systemFile = (root / "localtime").string();
    const int64_t july = utcOf(2024, 7, 1);

    test::DiagnosticsCapture capture;
    TimeZone zone;
    Str id;
    for (const char* tz : {"Europe/London", ":Europe/London"}) {
        ASSERT_TRUE(findZoneFromEnvironment(tz, directory.c_str(), systemFile.c_str(), zone, id));
        EXPECT_EQ(id.view(), "Europe/London");
        EXPECT_STREQ(zone.at(july).abbreviation, "BST");
    }
    // A rule spells the zone.
    ASSERT_TRUE(
        findZoneFromEnvironment("<+0545>-5:45", directory.c_str(), systemFile.c_str(), zone, id));
    EXPECT_EQ(id.view(), "<+0545>-5:45");
    EXPECT_EQ(zone.at(july).offset, 5 * 3600 + 45 * 60);
    EXPECT_TRUE(capture.lines().empty());

    // TZ unset, empty or naming nothing: the system's file.
    for (const char* tz : {static_cast<const char*>(nullptr), "", "Nowhere/Zone"}) {
        ASSERT_TRUE(findZoneFromEnvironment(tz, directory.c_str(), systemFile.c_str(), zone, id));
        EXPECT_EQ(id.toStdString(), systemFile);
        EXPECT_STREQ(zone.at(july).abbreviation, "EDT");
    }
    EXPECT_EQ(capture.lines(),
              std::vector<std::string>{"TimeZone WARN TZ=\"Nowhere/Zone\" names no time zone; "
                                       "the zone of the system is used"});

    // Without either: UTC.
    EXPECT_FALSE(findZoneFromEnvironment(nullptr, directory.c_str(),
                                         (root / "none").string().c_str(), zone, id));
    EXPECT_EQ(id.view(), "UTC");
    EXPECT_EQ(zone.at(july).offset, 0);
    EXPECT_STREQ(zone.at(july).abbreviation, "UTC");
    fs::remove_all(root);
}

}  // namespace
}  // namespace morvax
