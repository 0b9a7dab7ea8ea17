#include <stdlib.h>

#include "conf/InstallationInfo.h"

namespace morvax {

bool InstallationInfo::getEnvironment(const char* name, WStr& value) {
    WStr wideName = Str::toWide(StrSegment(name));
    const wchar_t* text = _wgetenv(reinterpret_cast<const wchar_t*>(wideName.c_str()));
    if (text == nullptr) {
        return false;
    }
    value = reinterpret_cast<const char16_t*>(text);
    return true;
}

void InstallationInfo::setEnvironment(const char* name, const WStr& value) {
    WStr wideName = Str::toWide(StrSegment(name));
    _wputenv_s(reinterpret_cast<const wchar_t*>(wideName.c_str()),
               reinterpret_cast<const wchar_t*>(value.c_str()));
}

}  // namespace morvax
