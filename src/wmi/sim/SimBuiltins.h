#pragma once

#include <memory>
#include <vector>

#include "wmi/sim/SimClass.h"

namespace morvax::wmi {

// The classes every world has without declaring them: the event-log record class with the
// schema Windows gives it, and the system event classes of notification queries. They are
// constants, made once and shared by all worlds.
class SimBuiltins {
  public:
    static const std::shared_ptr<const SimClass>& ntLogEvent();
    static const std::shared_ptr<const SimClass>& instanceCreationEvent();
    static const std::shared_ptr<const SimClass>& aggregateEvent();
    // __Event, __InstanceOperationEvent, __InstanceCreationEvent, ... __AggregateEvent.
    static const std::vector<std::shared_ptr<const SimClass>>& eventClasses();
};

}  // namespace morvax::wmi
