#include <windows.h>

#include "util/time/MonotonicTime.h"

namespace morvax {

uint64_t MonotonicTime::platformNow() {
    return GetTickCount64();
}

}  // namespace morvax
