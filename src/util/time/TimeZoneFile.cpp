#include "util/time/TimeZoneFile.h"

#include <cstring>
#include <vector>

#include "util/base/Diagnostics.h"

namespace morvax {

namespace {

DiagnosticsChannel diagnostics("TimeZone");

constexpr size_t HEADER_SIZE = 44;

struct Counts {
    uint32_t utIndicators;
    uint32_t standardIndicators;
    uint32_t leapSeconds;
    uint32_t transitions;
    uint32_t types;
    uint32_t abbreviationBytes;
};

class Bytes {
  public:
    Bytes(const unsigned char* data, size_t size) : p_(data), end_(data + size) {}

    size_t left() const { return static_cast<size_t>(end_ - p_); }
    const unsigned char* at() const { return p_; }
    void skip(size_t n) { p_ += n; }
    uint8_t u8() { return *p_++; }
    uint32_t u32() {
        uint32_t v =
            (uint32_t{p_[0]} << 24) | (uint32_t{p_[1]} << 16) | (uint32_t{p_[2]} << 8) | p_[3];
        p_ += 4;
        return v;
    }
    int64_t i64() {
        uint64_t v = (uint64_t{u32()} << 32);
        v |= u32();
        return static_cast<int64_t>(v);
    }
    // A 4-byte time, sign-extended, or an 8-byte one.
    int64_t time(size_t width) { return width == 4 ? int64_t{static_cast<int32_t>(u32())} : i64(); }

  private:
    const unsigned char* p_;
    const unsigned char* end_;
};

// Reads a header; the bounds hold for every block, so that sizes computed from the counts never
// overflow.
const char* readHeader(Bytes& in, uint8_t& version, Counts& counts) {
    if (in.left() < HEADER_SIZE) {
        return "too short for its header";
    }
    if (std::memcmp(in.at(), "TZif", 4) != 0) {
        return "not a compiled zone file (no \"TZif\" at its start)";
    }
    in.skip(4);
    version = in.u8();
    if (version != 0 && version < '2') {
        return "unknown version of the format";
    }
    in.skip(15);
    counts = Counts{in.u32(), in.u32(), in.u32(), in.u32(), in.u32(), in.u32()};
    if (counts.types > TimeZone::MAX_TYPES) {
        return "more than 256 local-time types";
    }
    if (counts.transitions > TimeZone::MAX_TRANSITIONS) {
        return "more than 4096 transitions";
    }
    if (counts.abbreviationBytes > TimeZone::MAX_ABBREVIATION_BYTES) {
        return "more than 1024 bytes of abbreviations";
    }
    if (counts.leapSeconds > TimeZoneFile::MAX_LEAP_SECONDS) {
        return "more than 128 leap-second records";
    }
    if ((counts.utIndicators != 0 && counts.utIndicators != counts.types) ||
        (counts.standardIndicators != 0 && counts.standardIndicators != counts.types)) {
        return "indicator counts that differ from the number of types";
    }
    return nullptr;
}

size_t blockSize(const Counts& counts, size_t timeWidth) {
    return counts.transitions * (timeWidth + 1) + counts.types * size_t{6} +
           counts.abbreviationBytes + counts.leapSeconds * (timeWidth + 4) +
           counts.standardIndicators + counts.utIndicators;
}

const char* readBlock(Bytes& in, const Counts& counts, size_t timeWidth, TimeZone& zone) {
    if (counts.types == 0) {
        return "no local-time types";
    }
    if (counts.abbreviationBytes == 0) {
        return "no abbreviations";
    }
    if (in.left() < blockSize(counts, timeWidth)) {
        return "cut short in its data";
    }
    std::vector<int64_t> times(counts.transitions);
    for (int64_t& time : times) {
        time = in.time(timeWidth);
    }
    std::vector<uint8_t> indexes(counts.transitions);
    for (uint8_t& index : indexes) {
        index = in.u8();
        if (index >= counts.types) {
            return "a transition to a type that does not exist";
        }
    }
    struct RawType {
        int32_t offset;
        uint8_t daylight;
        uint8_t abbreviation;
    };
    std::vector<RawType> raw(counts.types);
    for (RawType& type : raw) {
        type.offset = static_cast<int32_t>(in.u32());
        type.daylight = in.u8();
        type.abbreviation = in.u8();
        if (type.daylight > 1) {
            return "a daylight flag other than 0 or 1";
        }
        if (type.abbreviation >= counts.abbreviationBytes) {
            return "an abbreviation index beyond the abbreviations";
        }
    }
    const char* pool = reinterpret_cast<const char*>(in.at());
    in.skip(counts.abbreviationBytes);
    // Leap seconds and the indicators (which only matter for a rule-less version 1 file)
    // are not used.
    in.skip(counts.leapSeconds * (timeWidth + 4) + counts.standardIndicators + counts.utIndicators);

    std::vector<int> mapped(counts.types);
    for (size_t i = 0; i < raw.size(); ++i) {
        const char* name = pool + raw[i].abbreviation;
        const void* nul = std::memchr(name, '\0', counts.abbreviationBytes - raw[i].abbreviation);
        if (!nul) {
            return "an abbreviation without its terminating NUL";
        }
        mapped[i] = zone.addType(raw[i].offset, raw[i].daylight != 0,
                                 StrSegment(name, static_cast<const char*>(nul) - name));
        if (mapped[i] < 0) {
            return "an offset more than 26 hours from UTC";
        }
    }
    for (size_t i = 0; i < times.size(); ++i) {
        if (!zone.addTransition(times[i], mapped[indexes[i]])) {
            return "transition times out of order";
        }
    }
    return nullptr;
}

const char* readFooter(Bytes& in, TimeZone& zone) {
    if (in.left() == 0 || in.u8() != '\n') {
        return "no footer line after the data";
    }
    const unsigned char* start = in.at();
    const void* newline = std::memchr(start, '\n', in.left());
    if (!newline) {
        return "a footer without its closing line end";
    }
    size_t length = static_cast<size_t>(static_cast<const unsigned char*>(newline) - start);
    if (length == 0) {
        return nullptr;
    }
    PosixZoneRule rule;
    if (length > PosixZoneRule::MAX_TEXT ||
        !PosixZoneRule::parse(StrSegment(reinterpret_cast<const char*>(start), length), rule)) {
        return "a footer that is not a valid TZ rule";
    }
    zone.setRule(std::move(rule));
    return nullptr;
}

const char* parseZone(const unsigned char* data, size_t size, TimeZone& zone) {
    if (size > TimeZoneFile::MAX_FILE_SIZE) {
        return "larger than 128 KiB";
    }
    Bytes in(data, size);
    uint8_t version;
    Counts counts;
    if (const char* failure = readHeader(in, version, counts)) {
        return failure;
    }
    if (version == 0) {
        return readBlock(in, counts, 4, zone);
    }
    // Version 2 and later repeat the data with 64-bit times, which is all that is read.
    if (in.left() < blockSize(counts, 4)) {
        return "cut short in its data";
    }
    in.skip(blockSize(counts, 4));
    if (const char* failure = readHeader(in, version, counts)) {
        return failure;
    }
    if (const char* failure = readBlock(in, counts, 8, zone)) {
        return failure;
    }
    return readFooter(in, zone);
}

size_t findZoneinfo(StrSegment path) {
    static constexpr char NAME[] = "zoneinfo";
    constexpr size_t LENGTH = sizeof(NAME) - 1;
    size_t found = Str::npos;
    for (size_t i = 0; i + LENGTH < path.size(); ++i) {
        bool startsComponent = i == 0 || path[i - 1] == '/' || path[i - 1] == '\\';
        char after = path[i + LENGTH];
        if (startsComponent && (after == '/' || after == '\\') &&
            std::memcmp(path.data() + i, NAME, LENGTH) == 0) {
            found = i + LENGTH + 1;
        }
    }
    return found;
}

}  // namespace

bool TimeZoneFile::parse(const unsigned char* data, size_t size, TimeZone& zone,
                         const char*& failure) {
    TimeZone parsed;
    failure = parseZone(data, size, parsed);
    if (failure) {
        return false;
    }
    zone = std::move(parsed);
    return true;
}

Str TimeZoneFile::zoneIdOfPath(StrSegment resolved, StrSegment given) {
    for (StrSegment path : {resolved, given}) {
        size_t start = findZoneinfo(path);
        if (start != Str::npos) {
            Str id(path.data() + start, path.size() - start);
            id.replaceAll("\\", 1, "/", 1);
            return id;
        }
    }
    return Str(given);
}

bool loadZoneFromFile(TimeZone& zone, const char* path) {
    std::string bytes;
    Str resolved;
    if (!TimeZoneFile::readFile(path, TimeZoneFile::MAX_FILE_SIZE, bytes, resolved)) {
        return false;
    }
    TimeZone loaded;
    const char* failure = nullptr;
    if (!TimeZoneFile::parse(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                             loaded, failure)) {
        diagnostics.warn("Time zone file %s is refused: %s", path, failure);
        return false;
    }
    loaded.setId(TimeZoneFile::zoneIdOfPath(resolved, path));
    zone = std::move(loaded);
    return true;
}

}  // namespace morvax
