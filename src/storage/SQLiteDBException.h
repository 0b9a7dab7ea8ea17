#pragma once

#include "util/base/ComponentException.h"

namespace morvax {

// A store that cannot be opened, created or enumerated.
class SQLiteDBException : public ComponentException {
  public:
    MORVAX_EXCEPTION_CONSTRUCTORS(SQLiteDBException, ComponentException)
};

}  // namespace morvax
