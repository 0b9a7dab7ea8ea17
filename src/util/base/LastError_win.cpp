#include <windows.h>

#include "util/base/LastError.h"

namespace morvax {

uint32_t LastError::get() {
    return static_cast<uint32_t>(GetLastError());
}

void LastError::set(uint32_t value) {
    SetLastError(static_cast<DWORD>(value));
}

}  // namespace morvax
