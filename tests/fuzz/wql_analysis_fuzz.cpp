// Fuzz target of the WQL parser in both modes and of the query analysis over it: any bytes get
// a verdict, never a crash or a hang. What analysis mode accepts the provider's mode accepts
// too, since the provider's grammar is the wider one, and an analysed query has its four parts.
// Whatever the provider's mode accepts is analysed and evaluated against an object whose
// properties cycle through the types, so that every comparison path is walked.

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
#include "wmi/wql/WqlEvaluator.h"
#include "wmi/wql/WqlObjectView.h"
#include "wmi/wql/WqlParser.h"

namespace morvax {
namespace {

using fuzz::check;

// Answers every property with a value of a type chosen by the length of its path.
class AnyView : public wmi::WqlObjectView {
  public:
    bool property(const std::vector<std::u16string>& path, wmi::Variant& out) const override {
        switch (path.size() % 6) {
            case 0:
                return false;
            case 1:
                out = wmi::Variant::fromString(u"abc");
                return true;
            case 2:
                out = wmi::Variant::fromInt(wmi::VT_I4, 42);
                return true;
            case 3:
                out = wmi::Variant::null();
                return true;
            case 4:
                out = wmi::Variant::fromBool(true);
                return true;
            default:
                out = wmi::Variant::fromDouble(wmi::VT_R8, 0.5);
                return true;
        }
    }
    bool isA(const std::vector<std::u16string>& path, const std::u16string&) const override {
        return path.size() % 2 == 0;
    }
};

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
    if (provided) {
        wmi::QueryAnalysis analysis;
        provided->analysis(analysis);
        const AnyView view;
        wmi::WqlEvaluator::matches(provided->where(), view);
        wmi::WqlEvaluator::matches(provided->having(), view);
    }
    analyze(text);
    return 0;
}
