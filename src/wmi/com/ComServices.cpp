#include "wmi/com/ComServices.h"

#include "wmi/com/ComBstr.h"
#include "wmi/com/ComClassObject.h"
#include "wmi/com/ComEnumerator.h"

namespace morvax::wmi {

namespace {

// Forward-only and return-immediately: results are read with next() at a time-out of zero.
constexpr LONG kQueryFlags = WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY;

// The query language, one BSTR for the whole process, never freed.
BSTR queryLanguage() {
    static BSTR language = SysAllocString(L"WQL");
    return language;
}

// What a call that makes an enumerator gave back; a failure leaves `out` empty, and the pointer
// releases anything a failing provider handed out all the same.
HRESULT adopt(::HRESULT hr, ComPtr<IEnumWbemClassObject>& enumerator,
              std::unique_ptr<Enumerator>& out) {
    if (SUCCEEDED(hr)) {
        out = std::make_unique<ComEnumerator>(std::move(enumerator));
    }
    return static_cast<HRESULT>(hr);
}

template <typename Method>
HRESULT run(IWbemServices* services, Method method, const std::u16string& wql,
            std::unique_ptr<Enumerator>& out) {
    BSTR language = queryLanguage();
    ComBstr query(wql);
    if (!language || !query.get()) {
        return COM_E_OUTOFMEMORY;
    }
    ComPtr<IEnumWbemClassObject> enumerator;
    return adopt((services->*method)(language, query.get(), kQueryFlags, nullptr, enumerator.put()),
                 enumerator, out);
}

}  // namespace

HRESULT ComServices::execQuery(const std::u16string& wql, std::unique_ptr<Enumerator>& out) {
    return run(services_.get(), &IWbemServices::ExecQuery, wql, out);
}

HRESULT ComServices::execNotificationQuery(const std::u16string& wql,
                                           std::unique_ptr<Enumerator>& out) {
    return run(services_.get(), &IWbemServices::ExecNotificationQuery, wql, out);
}

HRESULT ComServices::getObject(const std::u16string& path, std::shared_ptr<ClassObject>& out) {
    out.reset();
    ComBstr object(path);
    if (!object.get()) {
        return COM_E_OUTOFMEMORY;
    }
    IWbemClassObject* found = nullptr;
    ::HRESULT hr = services_->GetObject(object.get(), 0, nullptr, &found, nullptr);
    if (FAILED(hr) || !found) {
        if (found) {
            found->Release();
        }
        return FAILED(hr) ? static_cast<HRESULT>(hr) : WBEM_E_NOT_FOUND;
    }
    out = std::make_shared<ComClassObject>(found);
    return static_cast<HRESULT>(hr);
}

HRESULT ComServices::createClassEnum(std::unique_ptr<Enumerator>& out) {
    out.reset();
    ComPtr<IEnumWbemClassObject> enumerator;
    return adopt(services_->CreateClassEnum(nullptr, WBEM_FLAG_DEEP | kQueryFlags, nullptr,
                                            enumerator.put()),
                 enumerator, out);
}

}  // namespace morvax::wmi
