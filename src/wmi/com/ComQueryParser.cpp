#include "wmi/com/ComQueryParser.h"

// mingw-w64 declares these two identifiers but its import libraries do not define them.
extern "C" const CLSID CLSID_WbemQuery = {
    0xEAC8A024, 0x21E2, 0x4523, {0xAD, 0x73, 0xA7, 0x1A, 0x0A, 0xA2, 0xF5, 0x6A}};
extern "C" const IID IID_IWbemQuery = {
    0x81166F58, 0xDD98, 0x11D3, {0xA1, 0x20, 0x00, 0x10, 0x5A, 0x1F, 0x51, 0x5A}};

namespace morvax::wmi {

namespace {

std::u16string wide(LPCWSTR text) {
    return text ? std::u16string(reinterpret_cast<const char16_t*>(text)) : std::u16string();
}

QualifiedName convertName(const SWbemQueryQualifiedName* name) {
    QualifiedName out;
    if (name && name->m_ppszNameList) {
        for (ULONG i = 0; i < name->m_uNameListSize; ++i) {
            out.names.push_back(wide(name->m_ppszNameList[i]));
        }
    }
    return out;
}

Variant convertConstant(ULONG apparentType, const SWbemRpnConst& value) {
    switch (apparentType) {
        case ::VT_I4:
            return Variant::fromInt(VT_I4, value.m_lLongVal);
        case ::VT_UI4:
            return Variant::fromUInt(VT_UI4, value.m_uLongVal);
        case ::VT_I8:
            return Variant::fromInt(VT_I8, value.m_lVal64);
        case ::VT_UI8:
            return Variant::fromUInt(VT_UI8, static_cast<uint64_t>(value.m_uVal64));
        case ::VT_R8:
            return Variant::fromDouble(VT_R8, value.m_dblVal);
        case ::VT_BOOL:
            return Variant::fromBool(value.m_bBoolVal != 0);
        case ::VT_LPWSTR: {
            Variant v = Variant::fromString(wide(value.m_pszStrVal));
            v.vt = VT_LPWSTR;
            return v;
        }
        default:
            return Variant();
    }
}

}  // namespace

HRESULT ComQueryParser::create(std::unique_ptr<QueryParser>& out) {
    IWbemQuery* query = nullptr;
    ::HRESULT hr = CoCreateInstance(CLSID_WbemQuery, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemQuery,
                                    reinterpret_cast<void**>(&query));
    if (FAILED(hr)) {
        return static_cast<HRESULT>(hr);
    }
    out = std::make_unique<ComQueryParser>(query);
    return WBEM_S_NO_ERROR;
}

ComQueryParser::~ComQueryParser() {
    empty();
}

HRESULT ComQueryParser::parse(const std::u16string& text) {
    return static_cast<HRESULT>(query_->Parse(L"WQL", reinterpret_cast<LPCWSTR>(text.c_str()), 0));
}

HRESULT ComQueryParser::getAnalysis(const QueryAnalysis*& out) {
    out = nullptr;
    void* raw = nullptr;
    ::HRESULT hr = query_->GetAnalysis(WMIQ_ANALYSIS_RPN_SEQUENCE, 0, &raw);
    if (FAILED(hr) || !raw) {
        return static_cast<HRESULT>(FAILED(hr) ? hr : WBEM_E_FAILED);
    }
    const auto* encoded = static_cast<const SWbemRpnEncodedQuery*>(raw);
    auto analysis = std::make_unique<QueryAnalysis>();
    for (ULONG i = 0; i < encoded->m_uSelectListSize && encoded->m_ppSelectList; ++i) {
        analysis->selectList.push_back(convertName(encoded->m_ppSelectList[i]));
    }
    for (ULONG i = 0; i < encoded->m_uFromListSize && encoded->m_ppszFromList; ++i) {
        analysis->fromList.push_back(wide(encoded->m_ppszFromList[i]));
    }
    for (ULONG i = 0; i < encoded->m_uWhereClauseSize && encoded->m_ppRpnWhereClause; ++i) {
        const SWbemRpnQueryToken* token = encoded->m_ppRpnWhereClause[i];
        if (!token) {
            continue;
        }
        RpnToken converted;
        converted.tokenType = token->m_uTokenType;
        converted.operatorType = token->m_uOperator;
        converted.leftIdent = convertName(token->m_pLeftIdent);
        converted.rightIdent = convertName(token->m_pRightIdent);
        converted.constApparentType = static_cast<uint16_t>(token->m_uConstApparentType);
        converted.constant = convertConstant(token->m_uConstApparentType, token->m_Const);
        analysis->whereList.push_back(std::move(converted));
    }
    query_->FreeMemory(raw);
    analysis_ = std::move(analysis);
    out = analysis_.get();
    return WBEM_S_NO_ERROR;
}

void ComQueryParser::freeMemory(const QueryAnalysis* analysis) {
    if (analysis && analysis == analysis_.get()) {
        analysis_.reset();
    }
}

void ComQueryParser::empty() {
    analysis_.reset();
    if (query_) {
        query_->Empty();
    }
}

}  // namespace morvax::wmi
