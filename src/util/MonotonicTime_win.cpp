#include <windows.h>

#include "util/MonotonicTime.h"

namespace morvax {

uint64_t MonotonicTime::platformNow() {
    return GetTickCount64();
}

}  // namespace morvax
