#include <windows.h>

#include <cstdlib>
#include <ctime>
#include <cwchar>

#include "util/base/Diagnostics.h"
#include "util/time/LocalZone.h"
#include "util/time/TimeZoneRegistry.h"

namespace morvax {

namespace {

DiagnosticsChannel diagnostics("TimeZone");

constexpr wchar_t ZONES_KEY[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Time Zones";
constexpr wchar_t SETTINGS_KEY[] = L"SYSTEM\\CurrentControlSet\\Control\\TimeZoneInformation";
// Values longer than this are not zone settings; they are skipped.
constexpr DWORD MAX_VALUE_BYTES = 64 * 1024;

const wchar_t* wide(const WStr& text) {
    return reinterpret_cast<const wchar_t*>(text.c_str());
}

class Key {
  public:
    Key(HKEY parent, const wchar_t* path) {
        if (parent && RegOpenKeyExW(parent, path, 0, KEY_READ, &key_) != ERROR_SUCCESS) {
            key_ = nullptr;
        }
    }
    ~Key() {
        if (key_) {
            RegCloseKey(key_);
        }
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    HKEY get() const { return key_; }

    std::optional<TimeZoneRegistry::Value> value(const char* name) const {
        if (!key_) {
            return std::nullopt;
        }
        WStr valueName = Str::toWide(StrSegment(name));
        DWORD type = 0;
        DWORD size = 0;
        if (RegQueryValueExW(key_, wide(valueName), nullptr, &type, nullptr, &size) !=
                ERROR_SUCCESS ||
            size > MAX_VALUE_BYTES) {
            return std::nullopt;
        }
        TimeZoneRegistry::Value value;
        value.type = type;
        value.bytes.resize(size);
        if (RegQueryValueExW(key_, wide(valueName), nullptr, &type,
                             reinterpret_cast<BYTE*>(value.bytes.data()), &size) != ERROR_SUCCESS) {
            return std::nullopt;
        }
        value.bytes.resize(size);
        return value;
    }

  private:
    HKEY key_ = nullptr;
};

void putLittleEndian(std::string& out, uint32_t value, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

void putSystemTime(std::string& out, const SYSTEMTIME& time) {
    for (WORD field : {time.wYear, time.wMonth, time.wDayOfWeek, time.wDay, time.wHour,
                       time.wMinute, time.wSecond, time.wMilliseconds}) {
        putLittleEndian(out, field, 2);
    }
}

class WindowsTimeZoneRegistry : public TimeZoneRegistry {
  public:
    WindowsTimeZoneRegistry() {
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, ZONES_KEY, 0, KEY_READ, &table_) != ERROR_SUCCESS) {
            table_ = nullptr;
        }
    }
    ~WindowsTimeZoneRegistry() override {
        if (table_) {
            RegCloseKey(table_);
        }
    }

    bool hasZone(const Str& name) override {
        WStr path = name.toWide();
        return Key(table_, wide(path)).get() != nullptr;
    }

    std::vector<Str> zoneNames() override {
        std::vector<Str> names;
        if (!table_) {
            return names;
        }
        // Key names are at most 255 characters.
        wchar_t name[256];
        for (DWORD index = 0;; ++index) {
            DWORD length = sizeof(name) / sizeof(name[0]);
            LONG status =
                RegEnumKeyExW(table_, index, name, &length, nullptr, nullptr, nullptr, nullptr);
            if (status == ERROR_NO_MORE_ITEMS) {
                break;
            }
            if (status == ERROR_SUCCESS) {
                names.push_back(Str::fromWide(reinterpret_cast<const char16_t*>(name), length));
            }
        }
        return names;
    }

    std::optional<Value> zoneValue(const Str& zone, const char* subkey, const char* name) override {
        Str path = zone;
        if (subkey) {
            path.append('\\').append(subkey);
        }
        WStr widePath = path.toWide();
        return Key(table_, wide(widePath)).value(name);
    }

    std::optional<Value> settingValue(const char* name) override {
        return Key(HKEY_LOCAL_MACHINE, SETTINGS_KEY).value(name);
    }

    std::optional<SystemZone> systemZone() override {
        TIME_ZONE_INFORMATION info;
        if (GetTimeZoneInformation(&info) == TIME_ZONE_ID_INVALID) {
            return std::nullopt;
        }
        SystemZone zone;
        zone.standardName = Str::fromWide(reinterpret_cast<const char16_t*>(info.StandardName),
                                          std::wcslen(info.StandardName));
        zone.daylightName = Str::fromWide(reinterpret_cast<const char16_t*>(info.DaylightName),
                                          std::wcslen(info.DaylightName));
        putLittleEndian(zone.tzi, static_cast<uint32_t>(info.Bias), 4);
        putLittleEndian(zone.tzi, static_cast<uint32_t>(info.StandardBias), 4);
        putLittleEndian(zone.tzi, static_cast<uint32_t>(info.DaylightBias), 4);
        putSystemTime(zone.tzi, info.StandardDate);
        putSystemTime(zone.tzi, info.DaylightDate);
        return zone;
    }

    Str presentZoneName() override {
        std::time_t now = std::time(nullptr);
        std::tm* local = std::localtime(&now);
        wchar_t text[128];
        // The leading mark tells an empty name from a failure.
        size_t length =
            local ? std::wcsftime(text, sizeof(text) / sizeof(text[0]), L"~%Z", local) : 0;
        if (length == 0) {
            return Str();
        }
        return Str::fromWide(reinterpret_cast<const char16_t*>(text + 1), length - 1);
    }

  private:
    HKEY table_ = nullptr;
};

}  // namespace

bool findLocalZone(TimeZone& zone, Str& zoneId, uint32_t& flags, bool useEnvironment) {
    const char* tz = useEnvironment ? std::getenv("TZ") : nullptr;
    WindowsTimeZoneRegistry registry;
    if (!registry.find(tz, zone, zoneId, flags)) {
        diagnostics.fatal("No time zone found for this machine in the registry");
        std::abort();
    }
    return true;
}

bool loadZoneFromRegistry(TimeZone& zone, const Str& keyName, uint32_t flags) {
    WindowsTimeZoneRegistry registry;
    return registry.load(zone, keyName, flags);
}

}  // namespace morvax
