#pragma once

#include <cstdio>

#include "util/base/StrSegment.h"

namespace morvax {

// Opens a stdio file by name, always in binary mode whatever `mode` says: the text streams
// handle line ends themselves, and the C runtime's newline translation would corrupt UTF-16.
// Null on failure, with the platform's last-error value set.
FILE* openFileStar(StrSegment utf8Path, const char* mode);
// The same for a wide path, such as a Pathname holds.
FILE* openFileStar(const char16_t* widePath, const char* mode);

}  // namespace morvax
