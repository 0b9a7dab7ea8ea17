#include <cstdlib>

#include "unit/input/CheckpointPathTestSupport.h"
#include "util/Str.h"

namespace morvax::cmdlinetest {

void setEnvironment(const char* name, const char* value) {
    // The wide call keeps the narrow and the wide environment in step; an empty value removes
    // the variable.
    const WStr wideName = Str::toWide(StrSegment(name));
    const WStr wideValue = value == nullptr ? WStr() : Str::toWide(StrSegment(value));
    _wputenv_s(reinterpret_cast<const wchar_t*>(wideName.c_str()),
               reinterpret_cast<const wchar_t*>(wideValue.c_str()));
}

}  // namespace morvax::cmdlinetest
