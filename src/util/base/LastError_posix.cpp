#include <cerrno>

#include "util/base/LastError.h"

namespace morvax {

uint32_t LastError::get() {
    return static_cast<uint32_t>(errno);
}

void LastError::set(uint32_t value) {
    errno = static_cast<int>(value);
}

}  // namespace morvax
