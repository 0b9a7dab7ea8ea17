#include <cstdlib>

#include "unit/input/CheckpointPathTestSupport.h"

namespace morvax::cmdlinetest {

void setEnvironment(const char* name, const char* value) {
    if (value == nullptr) {
        ::unsetenv(name);
    } else {
        ::setenv(name, value, 1);
    }
}

}  // namespace morvax::cmdlinetest
