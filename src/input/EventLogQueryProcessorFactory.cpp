#include "input/EventLogQueryProcessorFactory.h"

#include <new>

#include "input/EventLogQueryProcessor.h"

namespace morvax {

std::unique_ptr<WMIQueryProcessor> EventLogQueryProcessorFactory::create(
    const WMIQueryEntry& entry) {
    return std::unique_ptr<WMIQueryProcessor>(new (std::nothrow)
                                                  EventLogQueryProcessor(&entry, checkpointer_));
}

}  // namespace morvax
