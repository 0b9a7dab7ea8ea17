#pragma once

#include "util/base/BaseException.h"

namespace morvax {

class RegexException : public BaseException {
  public:
    MORVAX_EXCEPTION_CONSTRUCTORS(RegexException, BaseException)
};

}  // namespace morvax
