#include "input/ServiceRun.h"

#include <cstdio>
#include <memory>

#include "input/CommandLineOptions.h"
#include "input/IWMIConfiguration.h"
#include "input/OneShotRun.h"
#include "input/WMIConfigurationFactory.h"
#include "util/crash/CrashLog.h"
#include "util/io/InstallationInfo.h"
#include "util/io/Pathname.h"
#include "util/log/LogSetup.h"
#include "util/thread/EmptyMainThread.h"

namespace morvax {

int runService() {
    setupLogging(true, nullptr);
    InstallationInfo& installation = InstallationInfo::instance();

    Pathname crashDirectory = Pathname::join(installation.home(), "var");
    crashDirectory = Pathname::join(crashDirectory, "log");
    crashDirectory = Pathname::join(crashDirectory, "morvax");
    CrashLog::install(crashDirectory);

    EmptyMainThread mainThread;

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
        return 1;
    }

    std::fputs("\nClean shutdown completed.\n\n", stderr);
    std::fflush(stderr);
    return 0;
}

}  // namespace morvax
