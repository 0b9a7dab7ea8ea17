#pragma once

#include "util/base/BaseException.h"

namespace morvax {

class ComponentException : public BaseException {
  public:
    MORVAX_EXCEPTION_CONSTRUCTORS(ComponentException, BaseException)
};

}  // namespace morvax
