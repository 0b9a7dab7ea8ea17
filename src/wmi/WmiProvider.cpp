#include "wmi/WmiProvider.h"

#include <cstdlib>
#include <cstring>

#include "wmi/sim/SimLocator.h"
#include "wmi/wql/WqlQueryParser.h"

namespace morvax::wmi {

WmiProvider::Kind WmiProvider::selected() {
    const char* value = std::getenv("MORVAX_WMI_PROVIDER");
    if (value && std::strcmp(value, "sim") == 0) {
        return SIM;
    }
    if (value && std::strcmp(value, "com") == 0) {
        return COM;
    }
    return platformDefault();
}

HRESULT WmiProvider::createLocator(Kind kind, std::unique_ptr<Locator>& out) {
    return kind == SIM ? SimLocator::create(out) : createPlatformLocator(out);
}

HRESULT createLocator(std::unique_ptr<Locator>& out) {
    return WmiProvider::createLocator(WmiProvider::selected(), out);
}

HRESULT createQueryParser(std::unique_ptr<QueryParser>& out) {
    // The platform's parser where it has one; ours where the class is not registered at all
    // (Wine has none), and always with the simulated provider, so that analysis and provider
    // agree on what a query is. Any other failure of the platform's is the caller's to report.
    constexpr HRESULT kClassNotRegistered = hresult(0x80040154);
    if (WmiProvider::selected() == WmiProvider::COM) {
        const HRESULT hr = WmiProvider::createPlatformQueryParser(out);
        if (hr != kClassNotRegistered) {
            return hr;
        }
    }
    out = std::make_unique<WqlQueryParser>();
    return WBEM_S_NO_ERROR;
}

}  // namespace morvax::wmi
