#pragma once

#include <cstdint>

#include "util/base/BaseException.h"
#include "util/base/Str.h"

namespace morvax {

// The one form in which the collector reports a COM result code:
// "<message> (error=\"<text of code>\" HRESULT=<code>)" and, with a description, "
// (<description>)".
Str formatWMIError(StrSegment message, int32_t code, StrSegment description);

// The failure of the collector's COM work. It is logged at ERROR on channel WMI when it is made,
// so a catcher need not log it again, and an uncaught one still leaves its line.
class WMIException : public BaseException {
  public:
    WMIException(int32_t code, StrSegment message, StrSegment description);
    int32_t code() const noexcept { return code_; }

  private:
    int32_t code_;
};

}  // namespace morvax
