#include "wmi/WmiProvider.h"

namespace morvax::wmi {

namespace {
// "Class not registered": this platform has no WMI of its own.
constexpr HRESULT kNoPlatformWmi = hresult(0x80040154);
}  // namespace

WmiProvider::Kind WmiProvider::platformDefault() {
    return SIM;
}

HRESULT WmiProvider::initializeProcess() {
    return WBEM_S_NO_ERROR;
}

HRESULT WmiProvider::initializeApartment() {
    return WBEM_S_NO_ERROR;
}

HRESULT WmiProvider::initializeSecurity() {
    return WBEM_S_NO_ERROR;
}

void WmiProvider::uninitializeProcess() {}

bool WmiProvider::isVistaOrUp() {
    return true;
}

HRESULT WmiProvider::createPlatformLocator(std::unique_ptr<Locator>&) {
    return kNoPlatformWmi;
}

HRESULT WmiProvider::createPlatformQueryParser(std::unique_ptr<QueryParser>&) {
    return kNoPlatformWmi;
}

}  // namespace morvax::wmi
