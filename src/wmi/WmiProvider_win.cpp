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

bool WmiProvider::isVistaOrUp() {
    OSVERSIONINFOEXW wanted{};
    wanted.dwOSVersionInfoSize = sizeof(wanted);
    wanted.dwMajorVersion = 6;
    wanted.dwMinorVersion = 0;
    wanted.wServicePackMajor = 0;
    DWORDLONG mask = 0;
    mask = VerSetConditionMask(mask, VER_MAJORVERSION, VER_GREATER_EQUAL);
    mask = VerSetConditionMask(mask, VER_MINORVERSION, VER_GREATER_EQUAL);
    mask = VerSetConditionMask(mask, VER_SERVICEPACKMAJOR, VER_GREATER_EQUAL);
    return VerifyVersionInfoW(&wanted, VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR,
                              mask) != FALSE;
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
