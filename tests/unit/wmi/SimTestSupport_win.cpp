#include <cstdlib>

#include "unit/wmi/SimTestSupport.h"

namespace morvax::wmi::simtest {

void setEnvironment(const std::string& name, const std::string& value) {
    // An empty value removes the variable.
    _putenv_s(name.c_str(), value.c_str());
}

}  // namespace morvax::wmi::simtest
