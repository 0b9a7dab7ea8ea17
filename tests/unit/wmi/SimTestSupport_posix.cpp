#include <cstdlib>

#include "unit/wmi/SimTestSupport.h"

namespace morvax::wmi::simtest {

void setEnvironment(const std::string& name, const std::string& value) {
    if (value.empty()) {
        unsetenv(name.c_str());
    } else {
        setenv(name.c_str(), value.c_str(), 1);
    }
}

}  // namespace morvax::wmi::simtest
