#include "input/Extraction.h"

#include <memory>

#include "input/OneShotQueryHandlerSchedulePolicy.h"
#include "input/OneShotWMIConnector.h"
#include "input/PropertiesExtractingOutputter.h"
#include "input/ValueExtractingOutputter.h"
#include "input/WMIConnection.h"
#include "input/WMIConnectionFactory.h"
#include "input/WMIQueryEntry.h"
#include "input/WMIQueryHandler.h"
#include "input/WQLQueryProcessor.h"
#include "wmi/Wmi.h"

namespace morvax {

bool runExtraction(const Str& wql, const WStr& propertyName, std::vector<Str>& list,
                   uint32_t outputMode, const Str& nameSpace) {
    std::unique_ptr<wmi::Locator> locator;
    if (wmi::failed(wmi::createLocator(locator)) || !locator) {
        return false;
    }
    std::unique_ptr<WMIDataOutputter> outputter;
    if (outputMode == 1) {
        outputter = std::make_unique<PropertiesExtractingOutputter>(&list);
    } else {
        // Class names are the records' first keys: the value of no property.
        outputter = std::make_unique<ValueExtractingOutputter>(
            outputMode == 0 ? WStr() : propertyName, &list);
    }

    WMIQueryEntry entry;
    entry.type = WMIQueryEntry::TYPE_WQL;
    entry.parameter = wql;
    entry.outputMode = outputMode;
    auto processor = std::make_unique<WQLQueryProcessor>(entry);
    processor->setOutputter(outputter.get());

    // The factory of this query alone, for its short life.
    WMIConnectionFactory factory(*locator);
    factory.start();
    WMIConnection connection(nameSpace);
    OneShotWMIConnector connector(connection, factory);
    bool completed = false;
    {
        WMIQueryHandler handler(&connection, std::make_unique<OneShotQueryHandlerSchedulePolicy>(),
                                std::move(processor), &connector);
        handler.advanceUntilDone();
        // A query that was read to its end leaves the connection ready for the next one.
        completed = connection.state() == CONNECTED;
    }
    factory.stop();
    factory.join();
    return completed;
}

}  // namespace morvax
