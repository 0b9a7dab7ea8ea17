// Fuzz target of the WQL parser in both modes and of the query analysis over it: any bytes get
// a verdict, never a crash or a hang. What analysis mode accepts the provider's mode accepts
// too, since the provider's grammar is the wider one, and an analysed query has its four parts.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "FuzzDiscardLog.h"
#include "FuzzSupport.h"
#include "input/QueryAnalyzer.h"
#include "input/WMIException.h"
#include "util/base/Str.h"
#include "wmi/wql/WqlParser.h"

namespace morvax {
namespace {

using fuzz::check;

void analyze(const Str& text) {
    QueryAnalyzer analyzer;
    try {
        const bool valid = analyzer.isValidQuery(text);
        const bool supported = analyzer.isSupportedQuery(text);
        check(valid || !supported, "a supported query is valid");
        if (supported) {
            check(analyzer.analyzeQuery(text), "a supported query is analysed");
            check(analyzer.analysis().size() == 4, "an analysis has four parts");
            Str rendered;
            analyzer.renderAnalysis(rendered);
            check(rendered.startsWith("Select "), "a rendered analysis begins with Select");
        } else if (!valid) {
            analyzer.isValidEventQuery(text);
        }
    } catch (const WMIException&) {
        // Allowed: a failure of the parser that is no verdict on the text.
    }
}

}  // namespace
}  // namespace morvax

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace morvax;
    fuzz::DiscardLog::install();

    const Str text(reinterpret_cast<const char*>(data), size);
    const std::u16string wide = text.toWide();
    std::unique_ptr<wmi::WqlQuery> analysed;
    std::unique_ptr<wmi::WqlQuery> provided;
    const wmi::HRESULT analysisMode =
        wmi::WqlParser::parse(wide, wmi::WqlParser::Mode::ANALYSIS, analysed);
    const wmi::HRESULT providerMode =
        wmi::WqlParser::parse(wide, wmi::WqlParser::Mode::PROVIDER, provided);
    check(analysisMode == wmi::WBEM_S_NO_ERROR || analysisMode == wmi::WBEM_E_INVALID_SYNTAX,
          "analysis mode gives a query or a syntax error");
    check(analysisMode != wmi::WBEM_S_NO_ERROR || providerMode == wmi::WBEM_S_NO_ERROR,
          "what analysis mode accepts the provider's mode accepts");
    check((providerMode == wmi::WBEM_S_NO_ERROR) == (provided != nullptr),
          "a query comes with success only");
    analyze(text);
    return 0;
}
