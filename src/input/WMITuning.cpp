#include "input/WMITuning.h"

namespace morvax {

WMITuning& WMITuning::process() {
    static WMITuning tuning;
    return tuning;
}

void WMITuning::restoreDefaults() {
    process() = WMITuning();
}

}  // namespace morvax
