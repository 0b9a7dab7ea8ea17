#include "input/DefaultWMIDataOutputter.h"

namespace morvax {

DefaultWMIDataOutputter& DefaultWMIDataOutputter::instance() {
    static DefaultWMIDataOutputter* shared = new DefaultWMIDataOutputter();
    return *shared;
}

}  // namespace morvax
