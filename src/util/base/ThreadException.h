#pragma once

#include "util/base/BaseException.h"

namespace morvax {

class ThreadException : public BaseException {
  public:
    MORVAX_EXCEPTION_CONSTRUCTORS(ThreadException, BaseException)
};

}  // namespace morvax
