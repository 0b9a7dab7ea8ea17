#pragma once

#include <windows.h>

#include <wbemidl.h>

#include <memory>

#include "wmi/Wmi.h"
#include "wmi/com/ComPtr.h"

namespace morvax::wmi {

// A result object of the platform's WMI.
class ComClassObject : public ClassObject {
  public:
    explicit ComClassObject(IWbemClassObject* adopted) : object_(adopted) {}
    HRESULT getNames(std::vector<std::u16string>& out) override;
    HRESULT get(const std::u16string& name, Variant& out) override;
    HRESULT getWithType(const std::u16string& name, Variant& out, int32_t& cimType) override;
    HRESULT getQualifier(const std::u16string& name, Variant& out) override;
    NamesStep namesFailure() const override { return namesFailure_; }

    // Converts a VARIANT as WMI fills it; embedded objects become ComClassObjects.
    static HRESULT fromVariant(const VARIANT& source, Variant& out);

  private:
    ComPtr<IWbemClassObject> object_;
    NamesStep namesFailure_ = NamesStep::GET_NAMES;
};

}  // namespace morvax::wmi
