#pragma once

#include <cstdint>
#include <memory>

#include "input/IQueryHandlerSchedulePolicy.h"
#include "input/WMIQueryEntry.h"
#include "input/WMIQueryHandler.h"
#include "input/WMIQueryProcessorFactory.h"

namespace morvax {

class IWMIConnector;
class WMICheckpointer;
class WMIConnection;
class WMIConnectionManager;

// Puts handlers together from the process's installed factories: one policy factory, one
// processor factory per query type, and the connector. Each setter destroys what it replaces.
class WMIQueryHandlerBuilder {
  public:
    static void setPolicyFactory(std::unique_ptr<IQueryHandlerSchedulePolicyFactory> factory);
    static void setProcessorFactory(uint32_t type,
                                    std::unique_ptr<WMIQueryProcessorFactory> factory);
    // Not owned: the connector belongs to the connection manager or the run.
    static void setConnector(IWMIConnector* connector);
    // What a service run needs: the default schedule policy, WQL processors for type 0, event-log
    // processors over `checkpointer` for type 1, and `manager` as connector; neither is owned.
    static void installFactories(WMICheckpointer* checkpointer, WMIConnectionManager* manager);
    // Destroys every installed factory and forgets the connector.
    static void clear();

    // A handler for `entry` on `connection`; its processor writes through the shared
    // DefaultWMIDataOutputter. Throws BaseException when a factory is missing or did not deliver.
    static std::unique_ptr<WMIQueryHandler> createWMIQueryHandler(WMIConnection* connection,
                                                                  const WMIQueryEntry& entry);
};

}  // namespace morvax
