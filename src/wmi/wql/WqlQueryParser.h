#pragma once

#include <memory>
#include <vector>

#include "util/base/Str.h"
#include "wmi/Wmi.h"
#include "wmi/wql/WqlQuery.h"

namespace morvax::wmi {

// The stand-alone query parser for systems without the platform's. It parses as the
// platform's does, so event clauses are syntax errors. getAnalysis answers
// WBEM_E_INVALID_QUERY for ASSOCIATORS OF and REFERENCES OF, and WBEM_E_INVALID_OPERATION
// when no parse has succeeded since the last empty().
class WqlQueryParser : public QueryParser {
  public:
    HRESULT parse(const std::u16string& text) override;
    HRESULT getAnalysis(const QueryAnalysis*& out) override;
    void freeMemory(const QueryAnalysis* analysis) override;
    void empty() override;

    // Why the last parse failed, with the offset; empty after a success.
    const Str& lastError() const { return lastError_; }

  private:
    std::unique_ptr<WqlQuery> query_;
    // Records handed out stay valid until freeMemory or empty, whatever is parsed meanwhile.
    std::vector<std::unique_ptr<QueryAnalysis>> handedOut_;
    Str lastError_;
};

}  // namespace morvax::wmi
