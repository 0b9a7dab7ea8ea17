#include "net/HostNames.h"
#include "util/base/Ascii.h"

#include <algorithm>
#include <cstring>

namespace morvax {

namespace {

void insertSorted(std::vector<Str>& names, Str name) {
    auto at = std::lower_bound(names.begin(), names.end(), name);
    if (at == names.end() || !(*at == name)) {
        names.insert(at, std::move(name));
    }
}

// A zone behind "%": not empty, not starting with "." or ":", letters and digits with at most one
// "." and one ":", and only digits (or the other separator) behind either.
bool isZone(const char* p) {
    if (*p == '\0' || *p == '.' || *p == ':') {
        return false;
    }
    bool dot = false;
    bool colon = false;
    for (; *p; ++p) {
        if (*p == '.') {
            if (dot) {
                return false;
            }
            dot = true;
        } else if (*p == ':') {
            if (colon) {
                return false;
            }
            colon = true;
        } else if ((dot || colon) ? !isDigit(*p) : !isAlnum(*p)) {
            return false;
        }
    }
    return true;
}

// The end of an address: nothing more, or a zone suffix.
bool isEnd(const char* p) {
    return *p == '\0' || (*p == '%' && isZone(p + 1));
}

// Exactly four decimal octets of at most 255 joined by ".", then the end.
bool isDottedTail(const char* p) {
    for (int octet = 0; octet < 4; ++octet) {
        if (octet > 0) {
            if (*p != '.') {
                return false;
            }
            ++p;
        }
        if (!isDigit(*p)) {
            return false;
        }
        unsigned value = 0;
        while (isDigit(*p)) {
            value = value * 10 + static_cast<unsigned>(*p - '0');
            if (value > 255) {
                return false;
            }
            ++p;
        }
    }
    return isEnd(p);
}

// Steps of the loopback test on `text[0, length)`, with `colon` and `percent` standing for the
// separator and the zone mark. `strictPercent` refuses a zone mark below index 3 at once.
enum class LoopbackVerdict { YES, NO, UNDECIDED };

LoopbackVerdict plainLoopback(const char* text, size_t length, char colon, char percent,
                              bool strictPercent) {
    if (length < 3) {
        return LoopbackVerdict::NO;
    }
    const void* mark = std::memchr(text, percent, length);
    if (mark) {
        size_t at = static_cast<size_t>(static_cast<const char*>(mark) - text);
        if (at < 3) {
            return strictPercent ? LoopbackVerdict::NO : LoopbackVerdict::UNDECIDED;
        }
        length = at;
    }
    if (text[length - 1] != '1') {
        return LoopbackVerdict::UNDECIDED;
    }
    size_t colons = 0;
    for (size_t i = 0; i + 1 < length; ++i) {
        if (text[i] == colon) {
            ++colons;
        } else if (text[i] != '0') {
            return LoopbackVerdict::UNDECIDED;
        }
    }
    return colons >= 2 ? LoopbackVerdict::YES : LoopbackVerdict::UNDECIDED;
}

}  // namespace

void HostNames::getLocalNames(std::vector<Str>& names) {
    getLocalNames(names, ComputerNameSource::platform());
}

void HostNames::getLocalNames(std::vector<Str>& names, ComputerNameSource& source) {
    names.clear();
    insertSorted(names, Str("localhost"));
    insertSorted(names, Str("127.0.0.1"));
    insertSorted(names, Str("::1"));
    const ComputerNameKind kinds[] = {COMPUTER_NAME_DNS_DOMAIN, COMPUTER_NAME_DNS_FULLY_QUALIFIED,
                                      COMPUTER_NAME_NETBIOS, COMPUTER_NAME_DNS_HOSTNAME};
    for (ComputerNameKind kind : kinds) {
        Str name;
        if (source.name(kind, name) && !name.empty()) {
            name.toLower();
            insertSorted(names, std::move(name));
        }
    }
}

bool HostNames::isIPv6Address(const char* text) {
    const char* p = text;
    bool compressed = false;
    int groups = 0;
    if (p[0] == ':') {
        if (p[1] != ':') {
            return false;
        }
        compressed = true;
        p += 2;
        if (isEnd(p)) {
            return true;
        }
    }
    for (;;) {
        // A dotted tail may follow "::", the sixth group's ":" without "::", or any group's ":"
        // before the sixth with it.
        if ((compressed && groups < 6) || (!compressed && groups == 6)) {
            if (isDottedTail(p)) {
                return true;
            }
        }
        if (!isHexDigit(*p)) {
            return false;
        }
        unsigned value = 0;
        while (isHexDigit(*p)) {
            value = value * 16 + static_cast<unsigned>(hexValue(*p));
            if (value > 0xFFFF) {
                return false;
            }
            ++p;
        }
        ++groups;
        if (*p == ':' && p[1] == ':') {
            if (compressed) {
                return false;
            }
            compressed = true;
            p += 2;
            if (isEnd(p)) {
                return groups <= 7;
            }
            continue;
        }
        if (*p == ':') {
            if ((compressed && groups >= 7) || (!compressed && groups >= 8)) {
                return false;
            }
            ++p;
            continue;
        }
        if (!isEnd(p)) {
            return false;
        }
        return compressed ? groups <= 7 : groups == 8;
    }
}

bool HostNames::isIPv6Loopback(const char* text, size_t length) {
    LoopbackVerdict verdict = plainLoopback(text, length, ':', '%', false);
    if (verdict != LoopbackVerdict::UNDECIDED) {
        return verdict == LoopbackVerdict::YES;
    }
    static const char kLiteral[] = ".ipv6-literal.net";
    constexpr size_t kLiteralLength = sizeof kLiteral - 1;
    if (length < 20) {
        return false;
    }
    // The suffix is looked for at a fixed place, from byte 17 on, whatever the length.
    if (length < 17 + kLiteralLength || std::memcmp(text + 17, kLiteral, kLiteralLength) != 0) {
        return false;
    }
    return plainLoopback(text, length - kLiteralLength, '-', 's', true) == LoopbackVerdict::YES;
}

}  // namespace morvax
