#pragma once

#include <windows.h>

#include <wbemidl.h>

#include "wmi/Wmi.h"
#include "wmi/com/ComPtr.h"

namespace morvax::wmi {

class ComServices : public Services {
  public:
    explicit ComServices(IWbemServices* adopted) : services_(adopted) {}
    HRESULT execQuery(const std::u16string& wql, std::unique_ptr<Enumerator>& out) override;
    HRESULT execNotificationQuery(const std::u16string& wql,
                                  std::unique_ptr<Enumerator>& out) override;
    HRESULT getObject(const std::u16string& path, std::shared_ptr<ClassObject>& out) override;
    HRESULT createClassEnum(std::unique_ptr<Enumerator>& out) override;

  private:
    ComPtr<IWbemServices> services_;
};

}  // namespace morvax::wmi
