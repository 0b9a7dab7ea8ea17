#include <windows.h>

#include <objbase.h>

#include "wmi/WmiProvider.h"
#include "wmi/com/ComLocator.h"
#include "wmi/com/ComQueryParser.h"

namespace morvax::wmi {

WmiProvider::Kind WmiProvider::platformDefault() {
    return COM;
}

HRESULT WmiProvider::initializeApartment() {
    return static_cast<HRESULT>(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
}

HRESULT WmiProvider::initializeSecurity() {
    // Every proxy runs with this: the process's own user, privacy and impersonation.
    return static_cast<HRESULT>(
        CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
                             RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr));
}

HRESULT WmiProvider::initializeProcess() {
    HRESULT hr = initializeApartment();
    if (failed(hr)) {
        return hr;
    }
    return initializeSecurity();
}

void WmiProvider::uninitializeProcess() {
    CoUninitialize();
}

HRESULT WmiProvider::createPlatformLocator(std::unique_ptr<Locator>& out) {
    return ComLocator::create(out);
}

HRESULT WmiProvider::createPlatformQueryParser(std::unique_ptr<QueryParser>& out) {
    return ComQueryParser::create(out);
}

}  // namespace morvax::wmi
