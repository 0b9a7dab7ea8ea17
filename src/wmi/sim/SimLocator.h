#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "wmi/Wmi.h"
#include "wmi/sim/SimWorldLoader.h"

namespace morvax::wmi {

// The locator of the simulated provider: connections to the hosts and namespaces of a world
// directory, or of this machine when there is none.
class SimLocator : public Locator {
  public:
    // The world in <directory>/world.json; an empty path is this machine's world.
    explicit SimLocator(std::filesystem::path directory);

    // The world of the directory that MORVAX_WMI_SIM names; unset or empty, this machine's.
    static HRESULT create(std::unique_ptr<Locator>& out);

    // Blocks for the host's connect delay. RPC_E_SERVER_UNAVAILABLE for a server the world
    // lacks, the host's connect fault, or WBEM_E_INVALID_NAMESPACE for a namespace it lacks.
    HRESULT connectServer(const std::u16string& ns, std::shared_ptr<Services>& out) override;

  private:
    std::shared_ptr<SimWorldLoader> loader_;
};

}  // namespace morvax::wmi
