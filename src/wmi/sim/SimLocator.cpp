#include "wmi/sim/SimLocator.h"

#include <cstdlib>

#include "util/base/Str.h"
#include "util/time/Sleep.h"
#include "wmi/sim/SimServices.h"

namespace morvax::wmi {

SimLocator::SimLocator(std::filesystem::path directory)
    : loader_(std::make_shared<SimWorldLoader>(std::move(directory))) {}

HRESULT SimLocator::create(std::unique_ptr<Locator>& out) {
    const char* directory = std::getenv("MORVAX_WMI_SIM");
    std::filesystem::path path;
    if (directory && *directory) {
        path = std::filesystem::path(Str(directory).toWide());
    }
    out = std::make_unique<SimLocator>(std::move(path));
    return WBEM_S_NO_ERROR;
}

HRESULT SimLocator::connectServer(const std::u16string& ns, std::shared_ptr<Services>& out) {
    out.reset();
    loader_->refresh();
    const std::shared_ptr<const SimWorld> world = loader_->world();
    std::u16string server, nameSpace;
    SimWorld::splitPath(ns, server, nameSpace);
    const SimHost* host = world->findHost(server);
    if (!host) {
        return RPC_E_SERVER_UNAVAILABLE;
    }
    const SimHost::Faults& faults = host->faults();
    if (faults.connectDelayMs > 0) {
        sleep(faults.connectDelayMs);
    }
    if (failed(faults.connect)) {
        return faults.connect;
    }
    if (!host->findNamespace(nameSpace)) {
        return WBEM_E_INVALID_NAMESPACE;
    }
    out = std::make_shared<SimServices>(loader_, server, nameSpace);
    return WBEM_S_NO_ERROR;
}

}  // namespace morvax::wmi
