#include "input/ServiceRun.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "input/CommandLineOptions.h"
#include "input/IWMIConfiguration.h"
#include "input/OneShotRun.h"
#include "input/ProcessWatcher.h"
#include "input/RunPreamble.h"
#include "input/WMICheckpointer.h"
#include "input/WMIConfigurationFactory.h"
#include "input/WMIConnectionManager.h"
#include "input/WMIQueryHandlerBuilder.h"
#include "input/WMITuning.h"

namespace morvax {

namespace {

void stopManager(void* manager) {
    static_cast<WMIConnectionManager*>(manager)->stop();
}

// The service proper: the checkpoints, the manager thread over the configured entries and the
// watcher that stops it; the primary thread only waits. A store or manager that cannot be set up
// ends the process.
void runCollector(IWMIConfiguration& configuration, const CommandLineOptions& options) {
    auto checkpointer = std::make_unique<WMICheckpointer>();
    if (!checkpointer->init(WMITuning::process().checkpointSyncIntervalMilliseconds,
                            configuration.getCheckpointPath())) {
        std::fputs("ERROR: Error initiating WMICheckpointer\n", stderr);
        std::exit(-1);
    }
    auto manager = std::make_unique<WMIConnectionManager>();
    if (!manager->init(&configuration)) {
        // At once: the store that was opened is not written back on the way out.
        std::fputs("ERROR: Error configuring WMIConnectionManager\n", stderr);
        std::exit(1);
    }
    WMIQueryHandlerBuilder::installFactories(checkpointer.get(), manager.get());

    ProcessWatcherMode mode = WATCH_PARENT_ENV;
    if (options.runUntilPidDies) {
        mode = WATCH_RUN_UNTIL_PID_DIES;
    } else if (options.dieWhenPidDies) {
        mode = WATCH_DIE_WHEN_PID_DIES;
    }
    processWatcherStart(&stopManager, manager.get(), mode, options.pid);
    manager->start();
    manager->join();
    processWatcherStop();

    // Handlers write their last checkpoints as they go, so the manager goes before the store.
    manager.reset();
    WMIQueryHandlerBuilder::clear();
    checkpointer.reset();
}

}  // namespace

int runService() {
    RunPreamble preamble;

    const CommandLineOptions& options = CommandLineOptions::process();
    if (options.wql) {
        Str wql = Str::fromWide(*options.wql);
        Str nameSpace =
            options.namespace_ ? Str::fromWide(*options.namespace_) : Str("root\\cimv2");
        runOneShot(std::move(wql), std::move(nameSpace), options.watch);
    } else {
        // The service run takes its queries from the configuration; without any there is
        // nothing to do, and the daemon learns it from the status alone.
        std::unique_ptr<IWMIConfiguration> configuration = createWMIConfiguration();
        if (!configuration->hasQueries()) {
            return 1;
        }
        runCollector(*configuration, options);
    }

    std::fputs("\nClean shutdown completed.\n\n", stderr);
    std::fflush(stderr);
    return 0;
}

}  // namespace morvax
