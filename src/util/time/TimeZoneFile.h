#pragma once

#include <cstddef>
#include <string>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "util/time/TimeZone.h"

namespace morvax {

// Compiled zone files of the tz database (TZif, versions 1 to 4; later versions are read as
// version 4). The file is untrusted input: beyond the bounds below it is refused as a whole.
// Leap-second records are skipped: the clock this program reads counts no leap seconds.
class TimeZoneFile {
  public:
    // Bounds of a file, besides those of every zone (TimeZone::MAX_TYPES, MAX_TRANSITIONS,
    // MAX_ABBREVIATION_BYTES) and of the rule in the footer (PosixZoneRule::MAX_TEXT). Files of
    // the database stay below 4 KiB.
    static constexpr size_t MAX_FILE_SIZE = 128 * 1024;
    static constexpr size_t MAX_LEAP_SECONDS = 128;

    // Reads the bytes of a file into a zone, which is left alone on failure; `failure` then
    // says what is wrong.
    static bool parse(const unsigned char* data, size_t size, TimeZone& zone, const char*& failure);

    // The zone id that a file's path spells: the part behind the last "zoneinfo" directory of
    // the file actually read (a link such as /etc/localtime followed), else of the path as
    // given, else the path as given.
    static Str zoneIdOfPath(StrSegment resolved, StrSegment given);

    // Platform: up to `limit` + 1 bytes of the file at `path` (UTF-8), links followed, and the
    // path of the file read. False, with the last error set, when it cannot be read.
    static bool readFile(const char* path, size_t limit, std::string& bytes, Str& resolved);
};

// Loads the zone file at `path`; its id comes from the path (TimeZoneFile::zoneIdOfPath). False
// with the zone unchanged when the file cannot be read (the last error tells why) or is not a
// valid zone file (reported on the "TimeZone" channel).
bool loadZoneFromFile(TimeZone& zone, const char* path);

}  // namespace morvax
