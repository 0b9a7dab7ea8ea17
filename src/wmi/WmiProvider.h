#pragma once

#include <memory>

#include "wmi/Wmi.h"

namespace morvax::wmi {

// What stands behind createLocator and createQueryParser: the platform's WMI where it has one,
// and the simulated provider. Chosen by MORVAX_WMI_PROVIDER.
class WmiProvider {
  public:
    enum Kind { SIM, COM };

    // "sim" or "com"; anything else, or unset, is the platform's default: COM on Windows, the
    // simulated provider elsewhere.
    static Kind selected();
    static Kind platformDefault();

    // Process-wide set-up of the platform's WMI (COM in the multithreaded apartment with the
    // process's security); nothing to do without it. Once, on the primary thread.
    static HRESULT initializeProcess();
    // The two halves of initializeProcess, for a caller that reports each failure itself: the
    // multithreaded apartment, then the process's security.
    static HRESULT initializeApartment();
    static HRESULT initializeSecurity();
    static void uninitializeProcess();

    // Whether the system is Windows Vista (6.0, no service pack) or later: only there are IPv6
    // addresses usable in namespace paths. Always true off Windows.
    static bool isVistaOrUp();

    // The locator of the given provider.
    static HRESULT createLocator(Kind kind, std::unique_ptr<Locator>& out);

    // The platform's locator and query parser; they fail where the platform has no WMI.
    static HRESULT createPlatformLocator(std::unique_ptr<Locator>& out);
    static HRESULT createPlatformQueryParser(std::unique_ptr<QueryParser>& out);
};

}  // namespace morvax::wmi
