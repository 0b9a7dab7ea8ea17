#pragma once

#include <windows.h>

#include <wbemidl.h>

#include <utility>

#include "wmi/Wmi.h"
#include "wmi/com/ComPtr.h"

namespace morvax::wmi {

class ComEnumerator : public Enumerator {
  public:
    explicit ComEnumerator(ComPtr<IEnumWbemClassObject> enumerator)
        : enumerator_(std::move(enumerator)) {}
    HRESULT next(long timeoutMs, unsigned count,
                 std::vector<std::shared_ptr<ClassObject>>& out) override;

  private:
    ComPtr<IEnumWbemClassObject> enumerator_;
};

}  // namespace morvax::wmi
