#include "input/WMIQueryHandlerBuilder.h"

#include <map>

#include "input/DefaultQueryHandlerSchedulePolicy.h"
#include "input/DefaultWMIDataOutputter.h"
#include "input/EventLogQueryProcessorFactory.h"
#include "input/WMIConnectionManager.h"
#include "input/WQLQueryProcessorFactory.h"
#include "util/base/BaseException.h"

namespace morvax {

namespace {

struct Installed {
    std::unique_ptr<IQueryHandlerSchedulePolicyFactory> policyFactory;
    std::map<uint32_t, std::unique_ptr<WMIQueryProcessorFactory>> processorFactories;
    IWMIConnector* connector = nullptr;
};

// Written on the primary thread before the collector's threads start.
Installed& installed() {
    static auto* instance = new Installed();
    return *instance;
}

}  // namespace

void WMIQueryHandlerBuilder::setPolicyFactory(
    std::unique_ptr<IQueryHandlerSchedulePolicyFactory> factory) {
    installed().policyFactory = std::move(factory);
}

void WMIQueryHandlerBuilder::setProcessorFactory(
    uint32_t type, std::unique_ptr<WMIQueryProcessorFactory> factory) {
    if (factory) {
        installed().processorFactories[type] = std::move(factory);
    } else {
        installed().processorFactories.erase(type);
    }
}

void WMIQueryHandlerBuilder::setConnector(IWMIConnector* connector) {
    installed().connector = connector;
}

void WMIQueryHandlerBuilder::installFactories(WMICheckpointer* checkpointer,
                                              WMIConnectionManager* manager) {
    clear();
    setPolicyFactory(std::make_unique<DefaultQueryHandlerSchedulePolicyFactory>());
    setProcessorFactory(WMIQueryEntry::TYPE_WQL, std::make_unique<WQLQueryProcessorFactory>());
    setProcessorFactory(WMIQueryEntry::TYPE_EVENT_LOG,
                        std::make_unique<EventLogQueryProcessorFactory>(checkpointer));
    setConnector(manager);
}

void WMIQueryHandlerBuilder::clear() {
    installed().policyFactory.reset();
    installed().processorFactories.clear();
    installed().connector = nullptr;
}

std::unique_ptr<WMIQueryHandler> WMIQueryHandlerBuilder::createWMIQueryHandler(
    WMIConnection* connection, const WMIQueryEntry& entry) {
    Installed& in = installed();
    auto factory = in.processorFactories.find(entry.type);
    if (!in.policyFactory || factory == in.processorFactories.end() || !factory->second) {
        throw BaseException(
            "WMIQueryHandlerBuilder::createWMIQueryHandler: not all policy factories have been "
            "assigned; cannot instantiate a WMIQueryHandler");
    }
    std::unique_ptr<IQueryHandlerSchedulePolicy> policy = in.policyFactory->createPolicy(entry);
    std::unique_ptr<WMIQueryProcessor> processor = factory->second->create(entry);
    if (processor) {
        processor->setOutputter(&DefaultWMIDataOutputter::instance());
    }
    if (!policy || !processor || !in.connector) {
        throw BaseException(
            "WMIQueryHandlerBuilder::createWMIQueryHandler: factories did not generate all "
            "necessary policies to generate a WMIQueryHandler object");
    }
    return std::make_unique<WMIQueryHandler>(connection, std::move(policy), std::move(processor),
                                             in.connector);
}

}  // namespace morvax
