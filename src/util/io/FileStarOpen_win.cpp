#include <windows.h>

#include <cstdio>

#include "util/base/Str.h"
#include "util/io/FileStarOpen.h"

namespace morvax {

namespace {

WStr binaryMode(const char* mode) {
    WStr wide;
    bool binary = false;
    for (const char* p = mode; p && *p; ++p) {
        if (*p == 't') {
            continue;
        }
        binary = binary || *p == 'b';
        wide.push_back(static_cast<char16_t>(static_cast<unsigned char>(*p)));
    }
    if (!binary) {
        wide.push_back(u'b');
    }
    return wide;
}

}  // namespace

FILE* openFileStar(const char16_t* widePath, const char* mode) {
    if (!widePath) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    WStr wideMode = binaryMode(mode);
    return _wfopen(reinterpret_cast<const wchar_t*>(widePath),
                   reinterpret_cast<const wchar_t*>(wideMode.c_str()));
}

FILE* openFileStar(StrSegment utf8Path, const char* mode) {
    WStr path = Str::toWide(utf8Path);
    return openFileStar(path.c_str(), mode);
}

}  // namespace morvax
