#include <cstdlib>

#include "conf/InstallationInfo.h"

namespace morvax {

// The environment holds UTF-8 here; the wide form keeps one code path for both platforms.
bool InstallationInfo::getEnvironment(const char* name, WStr& value) {
    const char* text = std::getenv(name);
    if (text == nullptr) {
        return false;
    }
    value = Str::toWide(StrSegment(text));
    return true;
}

void InstallationInfo::setEnvironment(const char* name, const WStr& value) {
    Str text = Str::fromWide(value);
    ::setenv(name, text.c_str(), 1);
}

}  // namespace morvax
