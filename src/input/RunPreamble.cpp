#include "input/RunPreamble.h"

#include "conf/InstallationInfo.h"
#include "conf/LogSetup.h"
#include "util/crash/CrashLog.h"
#include "util/io/Pathname.h"

namespace morvax {

RunPreamble::SetUp::SetUp() {
    setupLogging(true, nullptr);
    InstallationInfo& installation = InstallationInfo::instance();
    Pathname crashDirectory = Pathname::join(installation.home(), "var");
    crashDirectory = Pathname::join(crashDirectory, "log");
    crashDirectory = Pathname::join(crashDirectory, "morvax");
    CrashLog::install(crashDirectory);
}

RunPreamble::RunPreamble() = default;

}  // namespace morvax
