#include "input/WMIMain.h"

#include <exception>
#include <typeinfo>

#include "input/CommandLineOptions.h"
#include "input/SelfTest.h"
#include "input/ServiceRun.h"
#include "input/WMILogger.h"
#include "util/base/LastError.h"
#include "util/crash/CrashLog.h"
#include "wmi/WmiProvider.h"

namespace morvax {

namespace {

// What the entry function throws when COM cannot be set up: it carries nothing, the reason has
// been logged already.
struct ComSetupFailure {};

// The crash report of an exception that reached the entry function.
void reportUncaught(const char* typeName, const char* what) {
    CrashLog::noteUnhandledException(typeName, what);
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
    int result = 0;
    try {
        if (!initializeCOM()) {
            throw ComSetupFailure();
        }
        parseCommandLine(argc, argv);
        if (CommandLineOptions::process().test) {
            runSelfTest();
        } else {
            result = runService();
        }
        wmi::WmiProvider::uninitializeProcess();
    } catch (const std::exception& e) {
        reportUncaught(typeid(e).name(), e.what());
        result = -1;
    } catch (...) {
        reportUncaught("unknown", nullptr);
        result = -1;
    }
    return result;
}

}  // namespace morvax
