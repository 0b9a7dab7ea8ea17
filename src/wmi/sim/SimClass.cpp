#include "wmi/sim/SimClass.h"

#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

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
}

}  // namespace morvax::wmi
