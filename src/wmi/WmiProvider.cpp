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
    // The platform's parser where it has one (Wine has none); ours otherwise, and always with
    // the simulated provider, so that analysis and provider agree on what a query is.
    if (WmiProvider::selected() == WmiProvider::COM &&
        !failed(WmiProvider::createPlatformQueryParser(out))) {
        return WBEM_S_NO_ERROR;
    }
    out = std::make_unique<WqlQueryParser>();
    return WBEM_S_NO_ERROR;
}

}  // namespace morvax::wmi
