#pragma once

#include <memory>

#include "input/WMIQueryProcessorFactory.h"

namespace morvax {

class WMICheckpointer;

// Makes an EventLogQueryProcessor that keeps its position in the shared checkpointer (not
// owned); an entry it refuses leaves as BaseException.
class EventLogQueryProcessorFactory : public WMIQueryProcessorFactory {
  public:
    explicit EventLogQueryProcessorFactory(WMICheckpointer* checkpointer)
        : checkpointer_(checkpointer) {}
    std::unique_ptr<WMIQueryProcessor> create(const WMIQueryEntry& entry) override;

  private:
    WMICheckpointer* checkpointer_;
};

}  // namespace morvax
