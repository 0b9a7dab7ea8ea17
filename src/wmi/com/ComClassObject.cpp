#include "wmi/com/ComClassObject.h"

#include <oleauto.h>

#include "wmi/com/ComBstr.h"

namespace morvax::wmi {

namespace {

// Clears a VARIANT on every path.
struct VariantHolder {
    VARIANT v;
    VariantHolder() { VariantInit(&v); }
    ~VariantHolder() { VariantClear(&v); }
};

HRESULT fromSafeArray(SAFEARRAY* array, VARTYPE elementType, Variant& out) {
    out.vt = static_cast<uint16_t>(VT_ARRAY | elementType);
    out.array.clear();
    if (!array) {
        return WBEM_S_NO_ERROR;
    }
    LONG lower = 0;
    LONG upper = -1;
    ::HRESULT hr = SafeArrayGetLBound(array, 1, &lower);
    if (SUCCEEDED(hr)) {
        hr = SafeArrayGetUBound(array, 1, &upper);
    }
    if (FAILED(hr)) {
        return static_cast<HRESULT>(hr);
    }
    for (LONG i = lower; i <= upper; ++i) {
        VariantHolder element;
        // Every element type lands at the start of the VARIANT's value union.
        hr = SafeArrayGetElement(array, &i, &element.v.llVal);
        if (FAILED(hr)) {
            return static_cast<HRESULT>(hr);
        }
        element.v.vt = elementType;
        Variant converted;
        HRESULT status = ComClassObject::fromVariant(element.v, converted);
        if (failed(status)) {
            return status;
        }
        out.array.push_back(std::move(converted));
    }
    return WBEM_S_NO_ERROR;
}

}  // namespace

HRESULT ComClassObject::fromVariant(const VARIANT& source, Variant& out) {
    out = Variant();
    const VARTYPE vt = source.vt;
    if (vt & ::VT_ARRAY) {
        return fromSafeArray(source.parray, static_cast<VARTYPE>(vt & ::VT_TYPEMASK), out);
    }
    out.vt = vt;
    switch (vt) {
        case ::VT_EMPTY:
        case ::VT_NULL:
            break;
        case ::VT_I1:
            out.i = source.cVal;
            break;
        case ::VT_I2:
            out.i = source.iVal;
            break;
        case ::VT_I4:
            out.i = source.lVal;
            break;
        case ::VT_INT:
            out.i = source.intVal;
            break;
        case ::VT_I8:
            out.i = source.llVal;
            break;
        case ::VT_UI1:
            out.u = source.bVal;
            break;
        case ::VT_UI2:
            out.u = source.uiVal;
            break;
        case ::VT_UI4:
            out.u = source.ulVal;
            break;
        case ::VT_UINT:
            out.u = source.uintVal;
            break;
        case ::VT_UI8:
            out.u = source.ullVal;
            break;
        case ::VT_R4:
            out.d = source.fltVal;
            break;
        case ::VT_R8:
            out.d = source.dblVal;
            break;
        case ::VT_BOOL:
            out.b = source.boolVal != VARIANT_FALSE;
            break;
        case ::VT_BSTR:
            out.str = ComBstr::text(source.bstrVal);
            break;
        case ::VT_UNKNOWN:
        case ::VT_DISPATCH: {
            // The type stays as given: a dispatch value prints as type 9, not 13.
            IUnknown* unknown = source.punkVal;
            if (unknown) {
                IWbemClassObject* embedded = nullptr;
                if (SUCCEEDED(unknown->QueryInterface(IID_IWbemClassObject,
                                                      reinterpret_cast<void**>(&embedded))) &&
                    embedded) {
                    out.object = std::make_shared<ComClassObject>(embedded);
                }
            }
            break;
        }
        default: {
            // Dates, currency and decimals keep their type; their text is what remains usable.
            VariantHolder text;
            if (SUCCEEDED(
                    VariantChangeType(&text.v, const_cast<VARIANT*>(&source), 0, ::VT_BSTR))) {
                out.str = ComBstr::text(text.v.bstrVal);
            }
            break;
        }
    }
    return WBEM_S_NO_ERROR;
}

HRESULT ComClassObject::getNames(std::vector<std::u16string>& out) {
    out.clear();
    namesFailure_ = NamesStep::GET_NAMES;
    SAFEARRAY* names = nullptr;
    ::HRESULT hr = object_->GetNames(nullptr, WBEM_FLAG_NONSYSTEM_ONLY, nullptr, &names);
    if (FAILED(hr)) {
        return static_cast<HRESULT>(hr);
    }
    LONG lower = 0;
    LONG upper = -1;
    hr = SafeArrayGetLBound(names, 1, &lower);
    if (SUCCEEDED(hr)) {
        hr = SafeArrayGetUBound(names, 1, &upper);
    }
    for (LONG i = lower; SUCCEEDED(hr) && i <= upper; ++i) {
        ComBstr name;
        hr = SafeArrayGetElement(names, &i, name.put());
        if (SUCCEEDED(hr)) {
            out.push_back(ComBstr::text(name.get()));
        } else {
            namesFailure_ = NamesStep::GET_ELEMENT;
        }
    }
    SafeArrayDestroy(names);
    return static_cast<HRESULT>(hr);
}

HRESULT ComClassObject::get(const std::u16string& name, Variant& out) {
    VariantHolder value;
    ::HRESULT hr =
        object_->Get(reinterpret_cast<LPCWSTR>(name.c_str()), 0, &value.v, nullptr, nullptr);
    if (FAILED(hr)) {
        return static_cast<HRESULT>(hr);
    }
    return fromVariant(value.v, out);
}

HRESULT ComClassObject::getWithType(const std::u16string& name, Variant& out, int32_t& cimType) {
    VariantHolder value;
    CIMTYPE type = CIM_EMPTY;
    ::HRESULT hr =
        object_->Get(reinterpret_cast<LPCWSTR>(name.c_str()), 0, &value.v, &type, nullptr);
    cimType = static_cast<int32_t>(type);
    if (FAILED(hr)) {
        return static_cast<HRESULT>(hr);
    }
    return fromVariant(value.v, out);
}

HRESULT ComClassObject::getQualifier(const std::u16string& name, Variant& out) {
    out = Variant();
    ComPtr<IWbemQualifierSet> qualifiers;
    ::HRESULT hr = object_->GetQualifierSet(qualifiers.put());
    if (FAILED(hr)) {
        return static_cast<HRESULT>(hr);
    }
    VariantHolder value;
    hr = qualifiers->Get(reinterpret_cast<LPCWSTR>(name.c_str()), 0, &value.v, nullptr);
    if (FAILED(hr)) {
        return static_cast<HRESULT>(hr);
    }
    return fromVariant(value.v, out);
}

}  // namespace morvax::wmi
