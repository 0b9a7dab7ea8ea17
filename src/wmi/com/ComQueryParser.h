#pragma once

#include <windows.h>

#include <wbemidl.h>
#include <wmiutils.h>

#include <memory>

#include "wmi/Wmi.h"
#include "wmi/com/ComPtr.h"

namespace morvax::wmi {

// The platform's query parser (IWbemQuery), with its analysis converted to QueryAnalysis.
class ComQueryParser : public QueryParser {
  public:
    explicit ComQueryParser(IWbemQuery* adopted) : query_(adopted) {}
    ~ComQueryParser() override;
    HRESULT parse(const std::u16string& text) override;
    HRESULT getAnalysis(const QueryAnalysis*& out) override;
    void freeMemory(const QueryAnalysis* analysis) override;
    void empty() override;

    // Fails where the platform has no IWbemQuery (Wine has none).
    static HRESULT create(std::unique_ptr<QueryParser>& out);

  private:
    ComPtr<IWbemQuery> query_;
    std::unique_ptr<QueryAnalysis> analysis_;
};

}  // namespace morvax::wmi
