#pragma once

#include <windows.h>

#include <wbemidl.h>

#include <memory>

#include "wmi/Wmi.h"
#include "wmi/com/ComPtr.h"

namespace morvax::wmi {

// The platform's WMI locator. COM must be initialised on the calling thread.
class ComLocator : public Locator {
  public:
    explicit ComLocator(IWbemLocator* adopted) : locator_(adopted) {}
    HRESULT connectServer(const std::u16string& ns, std::shared_ptr<Services>& out) override;

    static HRESULT create(std::unique_ptr<Locator>& out);

  private:
    ComPtr<IWbemLocator> locator_;
};

}  // namespace morvax::wmi
