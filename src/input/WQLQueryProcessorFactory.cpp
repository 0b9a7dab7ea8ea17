#include "input/WQLQueryProcessorFactory.h"

#include <new>

#include "input/WQLQueryProcessor.h"

namespace morvax {

std::unique_ptr<WMIQueryProcessor> WQLQueryProcessorFactory::create(const WMIQueryEntry& entry) {
    return std::unique_ptr<WMIQueryProcessor>(new (std::nothrow) WQLQueryProcessor(entry));
}

}  // namespace morvax
