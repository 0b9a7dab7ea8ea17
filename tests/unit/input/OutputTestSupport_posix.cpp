#include <stdlib.h>
#include <time.h>

#include "unit/input/OutputTestSupport.h"
#include "util/time/TimeZoneProvider.h"

namespace morvax::outputtest {

UtcTimeZone::UtcTimeZone() {
    const char* old = getenv("TZ");
    hadValue_ = old != nullptr;
    if (hadValue_) {
        previous_ = old;
    }
    active_ = setenv("TZ", "UTC0", 1) == 0;
    tzset();
    LocalTimeZoneProvider::reload();
}

UtcTimeZone::~UtcTimeZone() {
    if (hadValue_) {
        setenv("TZ", previous_.c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
    LocalTimeZoneProvider::reload();
}

}  // namespace morvax::outputtest
