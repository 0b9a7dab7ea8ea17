#pragma once

#include <cstdint>

#include "util/base/BaseException.h"

namespace morvax {

// A COM call that should never fail did (a value conversion, say). Deliberately no
// WMIException: the result loop does not catch it, so it ends the process through the
// top-level handler instead of passing for a failed query.
class ComErrorException : public BaseException {
  public:
    explicit ComErrorException(int32_t code) noexcept;
    int32_t code() const noexcept { return code_; }

  private:
    int32_t code_;
};

}  // namespace morvax
