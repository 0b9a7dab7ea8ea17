#include "wmi/com/ComLocator.h"

#include "wmi/com/ComBstr.h"
#include "wmi/com/ComServices.h"

namespace morvax::wmi {

HRESULT ComLocator::create(std::unique_ptr<Locator>& out) {
    IWbemLocator* locator = nullptr;
    ::HRESULT hr = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IWbemLocator, reinterpret_cast<void**>(&locator));
    if (FAILED(hr)) {
        return static_cast<HRESULT>(hr);
    }
    out = std::make_unique<ComLocator>(locator);
    return WBEM_S_NO_ERROR;
}

HRESULT ComLocator::connectServer(const std::u16string& ns, std::shared_ptr<Services>& out) {
    ComBstr resource(ns);
    if (!resource.get()) {
        return COM_E_OUTOFMEMORY;
    }
    IWbemServices* services = nullptr;
    // No user, password, locale or authority: every connection runs as the process's user.
    ::HRESULT hr =
        locator_->ConnectServer(resource.get(), nullptr, nullptr, nullptr,
                                WBEM_FLAG_CONNECT_USE_MAX_WAIT, nullptr, nullptr, &services);
    if (FAILED(hr)) {
        if (services) {
            services->Release();
        }
        return static_cast<HRESULT>(hr);
    }
    out = std::make_shared<ComServices>(services);
    return static_cast<HRESULT>(hr);
}

}  // namespace morvax::wmi
