#include "input/WMIMain.h"

#include "input/CommandLineOptions.h"
#include "input/SelfTest.h"
#include "input/ServiceRun.h"
#include "input/WMILogger.h"
#include "util/base/LastError.h"
#include "util/crash/CrashLog.h"
#include "wmi/WmiProvider.h"

namespace morvax {

namespace {

// The report of a failed COM set-up, which reaches the entry function as a bare exception: no
// object and nothing to unwind, the reason logged already.
void reportComSetupFailure() {
    CrashException exception;
    exception.code = CrashLog::CPP_EXCEPTION;
    exception.flags = CrashException::NON_CONTINUABLE;
    CrashLog::writeReport("Main Thread", exception, nullptr, nullptr);
}

}  // namespace

bool initializeCOM() {
    wmi::HRESULT hr = wmi::WmiProvider::initializeApartment();
    if (wmi::failed(hr)) {
        LastError::set(static_cast<uint32_t>(hr));
        wmiLogger().error("COM initialization failed %m");
        return false;
    }
    hr = wmi::WmiProvider::initializeSecurity();
    if (wmi::failed(hr)) {
        LastError::set(static_cast<uint32_t>(hr));
        wmiLogger().error("Security initialization failed %m");
        return false;
    }
    return true;
}

int wmiMain(int argc, const char16_t* const* argv) {
    // Nothing here catches: an exception or a fault that reaches this frame is reported where it
    // arose and ends the process with -1, and the provider is then not uninitialised.
    const CrashLog::EntryFrame frame;
    if (!initializeCOM()) {
        reportComSetupFailure();
        return -1;
    }
    parseCommandLine(argc, argv);
    int result = 0;
    if (CommandLineOptions::process().test) {
        runSelfTest();
    } else {
        result = runService();
    }
    wmi::WmiProvider::uninitializeProcess();
    return result;
}

}  // namespace morvax
