#include "wmi/com/ComServices.h"

#include "wmi/com/ComBstr.h"
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

template <typename Method>
HRESULT run(IWbemServices* services, Method method, const std::u16string& wql,
            std::unique_ptr<Enumerator>& out) {
    BSTR language = queryLanguage();
    ComBstr query(wql);
    if (!language || !query.get()) {
        return COM_E_OUTOFMEMORY;
    }
    IEnumWbemClassObject* enumerator = nullptr;
    ::HRESULT hr = (services->*method)(language, query.get(), kQueryFlags, nullptr, &enumerator);
    if (FAILED(hr)) {
        if (enumerator) {
            enumerator->Release();
        }
        return static_cast<HRESULT>(hr);
    }
    out = std::make_unique<ComEnumerator>(enumerator);
    return static_cast<HRESULT>(hr);
}

}  // namespace

HRESULT ComServices::execQuery(const std::u16string& wql, std::unique_ptr<Enumerator>& out) {
    return run(services_.get(), &IWbemServices::ExecQuery, wql, out);
}

HRESULT ComServices::execNotificationQuery(const std::u16string& wql,
                                           std::unique_ptr<Enumerator>& out) {
    return run(services_.get(), &IWbemServices::ExecNotificationQuery, wql, out);
}

}  // namespace morvax::wmi
