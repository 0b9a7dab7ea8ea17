#include "conf/LogSetup.h"

#include "conf/InstallationInfo.h"
#include "util/log/LogConfOptions.h"
#include "util/log/LogConfiguration.h"
#include "util/log/LogPlatform.h"

namespace morvax {

void setupLogging(bool quiet, const char* fileName, const std::map<Str, WStr>& substitutions) {
    InstallationInfo& installation = InstallationInfo::instance();
    installation.readEnvironment();
    installation.requireHome();

    LogConfOptions options;
    options.report = 1;
    options.allowedKeys = LogConfOptions::ALL_KEYS;
    options.fileName =
        Pathname::join(installation.etcPath(), fileName != nullptr ? fileName : "log-cmdline.cfg");
    options.substitutions = substitutions;
    options.substitutions[Str("${MORVAX_HOME}")] = installation.home().wide();

    if (!quiet) {
        Str line;
        line.appendFormat("Using logging configuration at %s.\n", options.fileName.toStr().c_str());
        LogPlatform::writeStandardError(line.data(), line.size());
    }
    LogConfiguration::load(options);
}

}  // namespace morvax
