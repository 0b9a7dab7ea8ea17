#include "unit/input/OutputTestSupport.h"

namespace morvax::outputtest {

// The runtime reads its zone once; a test leaves it alone and compares with the local text.
UtcTimeZone::UtcTimeZone() {}

UtcTimeZone::~UtcTimeZone() {}

}  // namespace morvax::outputtest
