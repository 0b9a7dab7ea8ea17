#include "input/OneShotRun.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "input/DefaultWMIDataOutputter.h"
#include "input/OneShotQueryHandlerSchedulePolicy.h"
#include "input/OneShotWMIConnector.h"
#include "input/ProcessWatcher.h"
#include "input/WMIConnection.h"
#include "input/WMIConnectionFactory.h"
#include "input/WMIQueryEntry.h"
#include "input/WMIQueryHandler.h"
#include "input/WQLQueryProcessor.h"
#include "wmi/Wmi.h"

namespace morvax {

namespace {

// What the stop callback touches: set from the console or signal thread, read by the loop.
struct OneShotStop {
    WMIConnection* connection = nullptr;
    std::atomic<bool> stopRequested{false};
};

void stopOneShot(void* argument) {
    auto* stop = static_cast<OneShotStop*>(argument);
    stop->connection->cancel();
    stop->stopRequested.store(true);
}

}  // namespace

std::unique_ptr<wmi::Locator> createWMILocator() {
    std::unique_ptr<wmi::Locator> locator;
    const wmi::HRESULT hr = wmi::createLocator(locator);
    if (wmi::failed(hr) || !locator) {
        std::fprintf(stderr,
                     "Instantiation of IWbemLocator inside createWMILocator failed (HRESULT error "
                     "%08x)",
                     static_cast<unsigned>(hr));
        std::fflush(stderr);
        std::exit(-1);
    }
    return locator;
}

void runOneShot(Str wql, Str nameSpace, bool notification) {
    std::unique_ptr<wmi::Locator> locator = createWMILocator();
    WMIConnectionFactory factory(*locator);
    factory.start();
    WMIConnection connection(std::move(nameSpace));
    OneShotWMIConnector connector(connection, factory);

    WMIQueryEntry entry;
    entry.type = WMIQueryEntry::TYPE_WQL;
    entry.parameter = std::move(wql);
    entry.intervalMilliseconds = 0;
    entry.notification = notification;
    entry.outputMode = 2;
    // An empty text is refused here, and nothing of the run catches that: it reaches the entry
    // function, which writes the crash report. Unwinding stops the factory.
    auto processor = std::make_unique<WQLQueryProcessor>(entry);
    processor->setOutputter(&DefaultWMIDataOutputter::instance());

    OneShotStop stop;
    stop.connection = &connection;
    processWatcherStart(&stopOneShot, &stop, WATCH_NONE, 0);
    {
        WMIQueryHandler handler(&connection, std::make_unique<OneShotQueryHandlerSchedulePolicy>(),
                                std::move(processor), &connector);
        handler.advanceUntilDone(&stop.stopRequested);
        factory.stop();
        factory.join();
        processWatcherStop();
    }
}

}  // namespace morvax
