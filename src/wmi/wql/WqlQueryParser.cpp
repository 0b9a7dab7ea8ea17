#include "wmi/wql/WqlQueryParser.h"

#include <algorithm>

#include "wmi/wql/WqlParser.h"

namespace morvax::wmi {

HRESULT WqlQueryParser::parse(const std::u16string& text) {
    return WqlParser::parse(text, WqlParser::Mode::ANALYSIS, query_, &lastError_);
}

HRESULT WqlQueryParser::getAnalysis(const QueryAnalysis*& out) {
    out = nullptr;
    if (!query_) {
        return WBEM_E_INVALID_OPERATION;
    }
    if (query_->isAssociatorsOrReferences()) {
        return WBEM_E_INVALID_QUERY;
    }
    auto analysis = std::make_unique<QueryAnalysis>();
    query_->analysis(*analysis);
    out = analysis.get();
    handedOut_.push_back(std::move(analysis));
    return WBEM_S_NO_ERROR;
}

void WqlQueryParser::freeMemory(const QueryAnalysis* analysis) {
    auto it = std::find_if(handedOut_.begin(), handedOut_.end(),
                           [analysis](const auto& held) { return held.get() == analysis; });
    if (it != handedOut_.end()) {
        handedOut_.erase(it);
    }
}

void WqlQueryParser::empty() {
    query_.reset();
    handedOut_.clear();
    lastError_.clear();
}

}  // namespace morvax::wmi
