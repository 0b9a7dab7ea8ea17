#include "util/time/TimeZoneNames.h"

#include <algorithm>
#include <cstring>

#include "util/base/Str.h"
#include "util/time/WindowsZoneTable.h"

namespace morvax {

// The table of full zone names with offsets serves only guessing a zone from text: left out.

namespace {

constexpr std::string_view STANDARD_ENDING = " Standard Time";
constexpr std::string_view DAYLIGHT_ENDING = " Daylight Time";
constexpr std::string_view MEXICO_STANDARD_ENDING = " Standard Time (Mexico)";
constexpr std::string_view MEXICO_DAYLIGHT_ENDING = " Daylight Time (Mexico)";

std::string_view withoutUsPrefix(std::string_view name) {
    return name.starts_with("US ") ? name.substr(3) : name;
}

std::optional<std::string_view> lookUp(std::string_view key) {
    // strcmp needs the key NUL-terminated, and a NUL inside it names nothing.
    if (key.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    Str text(key);
    std::span<const WindowsZoneTable::Row> rows = WindowsZoneTable::rows();
    auto row = std::lower_bound(
        rows.begin(), rows.end(), text.c_str(),
        [](const WindowsZoneTable::Row& r, const char* k) { return std::strcmp(r.name, k) < 0; });
    if (row == rows.end() || std::strcmp(row->name, text.c_str()) != 0) {
        return std::nullopt;
    }
    return std::string_view(row->zoneId);
}

}  // namespace

std::optional<std::string_view> windowsNameToZoneId(StrSegment segment) {
    std::string_view name = segment.view();
    if (name.size() >= 15) {
        if (name.ends_with(STANDARD_ENDING)) {
            std::string_view base = name.substr(0, name.size() - STANDARD_ENDING.size());
            if (base.starts_with("US ")) {
                base = base.substr(3);
                // The US names are zones without daylight saving.
                if (base == "Mountain") {
                    return "America/Phoenix";
                }
                if (base == "Eastern") {
                    return "Etc/GMT+5";
                }
            }
            return lookUp(base);
        }
        if (name.ends_with(DAYLIGHT_ENDING)) {
            std::string_view base =
                withoutUsPrefix(name.substr(0, name.size() - DAYLIGHT_ENDING.size()));
            if (base == "Greenwich") {
                return "Europe/London";
            }
            return lookUp(base);
        }
        if (name.size() > MEXICO_STANDARD_ENDING.size() &&
            (name.ends_with(MEXICO_STANDARD_ENDING) || name.ends_with(MEXICO_DAYLIGHT_ENDING))) {
            std::string_view base = name.substr(0, name.size() - MEXICO_STANDARD_ENDING.size());
            if (base == "Central") {
                return "America/Mexico_City";
            }
            if (base == "Mountain") {
                return "America/Chihuahua";
            }
            if (base == "Pacific") {
                return "America/Tijuana";
            }
            return std::nullopt;
        }
        if (name == "Mexico Standard Time 2" || name == "Mexico Daylight Time 2") {
            return "America/Chihuahua";
        }
    }
    if (name == "GMT" || name == "Greenwich") {
        return std::nullopt;
    }
    return lookUp(name);
}

}  // namespace morvax
