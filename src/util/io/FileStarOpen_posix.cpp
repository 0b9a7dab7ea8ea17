#include <cerrno>
#include <cstdio>

#include "util/base/Str.h"
#include "util/io/FileStarOpen.h"

namespace morvax {

FILE* openFileStar(StrSegment utf8Path, const char* mode) {
    // POSIX has no text mode, so the mode is used as given.
    Str path(utf8Path);
    return std::fopen(path.c_str(), mode);
}

FILE* openFileStar(const char16_t* widePath, const char* mode) {
    if (!widePath) {
        errno = EINVAL;
        return nullptr;
    }
    Str path;
    path.appendWide(widePath);
    return std::fopen(path.c_str(), mode);
}

}  // namespace morvax
