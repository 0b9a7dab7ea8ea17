#include "wmi/sim/SimClass.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

constexpr uint64_t kHighBits = 0xFF80FF80FF80FF80ull;  // of four UTF-16 units, beyond ASCII
constexpr uint64_t kCaseBits = 0x0020002000200020ull;  // of four ASCII units, lower case

uint64_t mix(uint64_t h) {
    h *= 0xBF58476D1CE4E5B9ull;
    return h ^ (h >> 31);
}

uint64_t unitsAt(const char16_t* name, size_t at) {
    uint64_t units;
    std::memcpy(&units, name + at, sizeof units);
    return units;
}

// A hash of `name` spelt in ASCII lower case, four units at a time (the last four overlapping
// the ones before when the size is not a multiple of four); false when the name reaches beyond
// ASCII.
inline bool asciiHash(const char16_t* name, size_t size, uint64_t& hash) {
    uint64_t h = 0x9E3779B97F4A7C15ull * (size + 1);
    uint64_t all = 0;
    if (size < 4) {
        uint64_t units = 0;
        for (size_t k = 0; k < size; ++k) {
            units |= static_cast<uint64_t>(name[k]) << (16 * k);
        }
        all = units;
        h = mix(h ^ (units | kCaseBits));
    } else {
        size_t i = 0;
        for (; i + 4 < size; i += 4) {
            const uint64_t units = unitsAt(name, i);
            all |= units;
            h = mix(h ^ (units | kCaseBits));
        }
        const uint64_t units = unitsAt(name, size - 4);
        all |= units;
        h = mix(h ^ (units | kCaseBits));
    }
    hash = h;
    return (all & kHighBits) == 0;
}

// Whether two ASCII names of `size` units differ at most in case; mostly they are the same.
inline bool sameAscii(const char16_t* a, const char16_t* b, size_t size) {
    if (size >= 4) {
        size_t i = 0;
        while (i + 4 < size && unitsAt(a, i) == unitsAt(b, i)) {
            i += 4;
        }
        if (i + 4 >= size && unitsAt(a, size - 4) == unitsAt(b, size - 4)) {
            return true;
        }
    }
    for (size_t i = 0; i < size; ++i) {
        const char16_t x = a[i], y = b[i];
        if (x == y) {
            continue;
        }
        const char16_t lower = x | 0x20;
        if ((x ^ y) != 0x20 || lower < 'a' || lower > 'z') {
            return false;
        }
    }
    return true;
}

}  // namespace

// Simple case mapping keeps every character in its plane, so names of different UTF-16 length
// never match, and most ASCII names differ right there.
bool SimClass::sameName(const std::u16string& a, const std::u16string& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        char16_t x = a[i], y = b[i];
        if (x == y) {
            continue;
        }
        if (x >= 0x80 || y >= 0x80) {
            return WqlText::equalNoCase(a, b);
        }
        if (x >= 'A' && x <= 'Z') {
            x = static_cast<char16_t>(x + 32);
        }
        if (y >= 'A' && y <= 'Z') {
            y = static_cast<char16_t>(y + 32);
        }
        if (x != y) {
            return false;
        }
    }
    return true;
}

SimClass::SimClass(std::u16string name, std::u16string superclass)
    : name_(std::move(name)), superclass_(std::move(superclass)) {
    derivation_.push_back(name_);
    if (!superclass_.empty()) {
        derivation_.push_back(superclass_);
    }
}

bool SimClass::isA(const std::u16string& className) const {
    for (const std::u16string& name : derivation_) {
        if (sameName(name, className)) {
            return true;
        }
    }
    return false;
}

inline int SimClass::findAscii(const char16_t* name, size_t size, uint64_t hash) const {
    if (slots_.empty()) {
        return -1;
    }
    const size_t mask = slots_.size() - 1;
    const auto tag = static_cast<uint32_t>(hash >> 32);
    for (size_t at = hash & mask;; at = (at + 1) & mask) {
        const Slot& slot = slots_[at];
        if (slot.property < 0) {
            return -1;
        }
        if (slot.hash == tag) {
            const std::u16string& candidate = properties_[slot.property].name;
            if (candidate.size() == size && sameAscii(candidate.data(), name, size)) {
                return slot.property;
            }
        }
    }
}

int SimClass::find(const std::u16string& name) const {
    uint64_t hash;
    if (asciiHash(name.data(), name.size(), hash)) {
        const int at = findAscii(name.data(), name.size(), hash);
        if (at >= 0 || wide_.empty()) {
            return at;
        }
        auto it = wide_.find(WqlText::fold(name));
        return it != wide_.end() ? it->second : -1;
    }
    const std::u32string folded = WqlText::fold(name);
    auto it = wide_.find(folded);
    if (it != wide_.end()) {
        return it->second;
    }
    // A name beyond ASCII may fold to an ASCII one (the Kelvin sign to k).
    std::u16string ascii;
    for (char32_t cp : folded) {
        if (cp >= 0x80) {
            return -1;
        }
        ascii.push_back(static_cast<char16_t>(cp));
    }
    asciiHash(ascii.data(), ascii.size(), hash);
    return findAscii(ascii.data(), ascii.size(), hash);
}

void SimClass::index(size_t property, uint64_t hash) {
    // The table stays at most half full, counting every property as if it were in it.
    if ((property + 1) * 2 > slots_.size()) {
        size_t size = std::max<size_t>(16, slots_.size());
        while (size < (property + 1) * 2) {
            size *= 2;
        }
        const std::vector<Slot> old = std::exchange(slots_, std::vector<Slot>(size));
        for (const Slot& slot : old) {
            if (slot.property >= 0) {
                const std::u16string& name = properties_[slot.property].name;
                uint64_t again;
                asciiHash(name.data(), name.size(), again);
                place(static_cast<size_t>(slot.property), again);
            }
        }
    }
    place(property, hash);
}

void SimClass::place(size_t property, uint64_t hash) {
    const size_t mask = slots_.size() - 1;
    size_t at = hash & mask;
    while (slots_[at].property >= 0) {
        at = (at + 1) & mask;
    }
    slots_[at] = Slot{static_cast<uint32_t>(hash >> 32), static_cast<int32_t>(property)};
}

void SimClass::addProperty(const std::u16string& name, const SimType& type) {
    int at = find(name);
    if (at >= 0) {
        properties_[at].type = type;
        return;
    }
    properties_.push_back(SimProperty{name, type});
    const size_t property = properties_.size() - 1;
    uint64_t hash;
    if (asciiHash(name.data(), name.size(), hash)) {
        index(property, hash);
    } else {
        wide_.emplace(WqlText::fold(name), static_cast<int>(property));
    }
}

}  // namespace morvax::wmi
