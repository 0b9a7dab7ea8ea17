#include "input/EmptyWMIConfiguration.h"

namespace morvax {

const WMIQueryEntry* EmptyWMIConfiguration::nextQuery() {
    return nullptr;
}

bool EmptyWMIConfiguration::hasQueries() const {
    return false;
}

const Pathname& EmptyWMIConfiguration::getCheckpointPath() {
    return checkpointPath_;
}

}  // namespace morvax
