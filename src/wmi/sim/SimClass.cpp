#include "wmi/sim/SimClass.h"

#include <cstring>

#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

// From this many properties on a class keeps its indexes.
constexpr size_t kIndexedFrom = 16;

uint64_t digestOf(const std::u16string& name) {
    const size_t size = name.size();
    if (size == 0) {
        return 0;
    }
    return static_cast<uint64_t>(size & 0xFFFF) | static_cast<uint64_t>(name[0]) << 16 |
           static_cast<uint64_t>(name[size / 2]) << 32 |
           static_cast<uint64_t>(name[size - 1]) << 48;
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

int SimClass::find(const std::u16string& name) const {
    if (!exact_.empty()) {
        auto it = exact_.find(name);
        if (it != exact_.end()) {
            return it->second;
        }
        auto folded = folded_.find(WqlText::fold(name));
        return folded != folded_.end() ? folded->second : -1;
    }
    // Names are mostly asked for as the class spells them; no two properties differ in case only.
    const uint64_t digest = digestOf(name);
    for (size_t i = 0; i < digests_.size(); ++i) {
        if (digests_[i] != digest) {
            continue;
        }
        const std::u16string& candidate = properties_[i].name;
        if (candidate.size() == name.size() &&
            std::memcmp(candidate.data(), name.data(), name.size() * sizeof(char16_t)) == 0) {
            return static_cast<int>(i);
        }
    }
    for (size_t i = 0; i < properties_.size(); ++i) {
        if (sameName(properties_[i].name, name)) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void SimClass::addProperty(const std::u16string& name, const SimType& type) {
    int at = find(name);
    if (at >= 0) {
        properties_[at].type = type;
        return;
    }
    properties_.push_back(SimProperty{name, type});
    digests_.push_back(digestOf(name));
    if (properties_.size() < kIndexedFrom) {
        return;
    }
    // The first of two names that differ in case only keeps the folded place, as in a scan.
    for (size_t i = exact_.empty() ? 0 : properties_.size() - 1; i < properties_.size(); ++i) {
        exact_.emplace(properties_[i].name, static_cast<int>(i));
        folded_.emplace(WqlText::fold(properties_[i].name), static_cast<int>(i));
    }
}

}  // namespace morvax::wmi
