#include "wmi/sim/SimHostWorld.h"

namespace morvax::wmi {

// The platform's own WMI is the host here.
bool SimHostWorld::available() {
    return false;
}

void SimHostWorld::rows(const std::u16string&, std::vector<Row>&) {}

}  // namespace morvax::wmi
