#include "input/QueryAnalyzer.h"

#include "input/WMIException.h"
#include "input/WMILogger.h"
#include "util/base/CharSet.h"
#include "util/log/Logger.h"
#include "util/regex/Regex.h"

namespace morvax {

namespace {

// The event clauses that the parser does not take. GROUP is tried first, so that
// "GROUP WITHIN 600 BY x" goes whole with all that follows it. A match of ".+ (group.*)" can
// only begin at the start of a line, and anchoring it there (with the same greedy choice of
// clause) keeps the search linear: unanchored, a long line without the clause costs the square
// of its length.
constexpr const char* kEventClauses[] = {"(?m)^.+ (group.*)", "(?m)^.+ (within [0-9]+).*"};

constexpr CharSet kBlanks(" \t");

// The last entry's comma goes; an empty list stays empty.
void dropLastComma(Str& text) {
    if (!text.empty() && text.back() == ',') {
        text.resize(text.size() - 1);
    }
}

void appendConstant(const wmi::RpnToken& token, Str& out) {
    const wmi::Variant& value = token.constant;
    switch (token.constApparentType) {
        case wmi::VT_I4:
            out.appendFormat("%d", static_cast<int32_t>(value.i));
            break;
        case wmi::VT_R8:
            out.appendFormat("%f", value.d);
            break;
        case wmi::VT_BOOL:
            out.appendFormat("%u", value.b ? 1u : 0u);
            break;
        case wmi::VT_UI4:
            out.appendFormat("%u", static_cast<uint32_t>(value.u));
            break;
        case wmi::VT_I8:
            out.appendFormat("%lld", static_cast<long long>(value.i));
            break;
        case wmi::VT_UI8:
            out.appendFormat("%llu", static_cast<unsigned long long>(value.u));
            break;
        case wmi::VT_LPWSTR:
            out.appendWide(value.str);
            break;
        default:
            // Another type leaves its place empty; the comma still follows.
            break;
    }
}

}  // namespace

QueryAnalyzer::QueryAnalyzer() = default;
QueryAnalyzer::~QueryAnalyzer() = default;

void QueryAnalyzer::ensureQueryParser() {
    if (parser_) {
        return;
    }
    const wmi::HRESULT hr = wmi::createQueryParser(parser_);
    if (wmi::failed(hr) || !parser_) {
        parser_.reset();
        throw WMIException(hr, "CoCreateInstance of CLSID_WbemQuery failed.", "");
    }
}

bool QueryAnalyzer::isValidQuery(StrSegment text) {
    ensureQueryParser();
    // Any other failure is no answer about the text, so it counts as valid.
    return parser_->parse(Str::toWide(text)) != wmi::WBEM_E_INVALID_SYNTAX;
}

bool QueryAnalyzer::analysable() {
    const wmi::QueryAnalysis* analysis = nullptr;
    const wmi::HRESULT hr = parser_->getAnalysis(analysis);
    if (hr == wmi::WBEM_S_NO_ERROR) {
        parser_->freeMemory(analysis);
        return true;
    }
    if (hr == wmi::WBEM_E_INVALID_OPERATION || hr == wmi::WBEM_E_INVALID_QUERY) {
        return false;
    }
    throw WMIException(hr, "GetAnalysis failed with unknown error.", "");
}

bool QueryAnalyzer::isSupportedQuery(StrSegment text) {
    ensureQueryParser();
    return isValidQuery(text) && analysable();
}

bool QueryAnalyzer::isValidEventQuery(StrSegment text) {
    Str lower = Str(text).toLowerCopy();
    for (const char* pattern : kEventClauses) {
        RegexMatch match;
        if (!Regex(pattern).search(lower, &match) || !match.matched(1)) {
            continue;
        }
        const size_t start = static_cast<size_t>(match.group(1).data() - lower.data());
        const size_t end = start + match.group(1).size();
        Str cut(lower.data(), start);
        cut.append(lower.data() + end, lower.size() - end);
        return isValidQuery(cut);
    }
    return false;
}

bool QueryAnalyzer::analyzeQuery(StrSegment text) {
    if (!parser_) {
        ensureQueryParser();
        if (!isValidQuery(text) || !analysable()) {
            return false;
        }
    }
    analysis_.clear();

    const wmi::QueryAnalysis* analysis = nullptr;
    const wmi::HRESULT hr = parser_->getAnalysis(analysis);
    if (wmi::failed(hr) || analysis == nullptr) {
        wmiLogger().error("IWbemQuery::GetAnanlysis failed with error 0x%x.",
                          static_cast<uint32_t>(hr));
        return false;
    }

    Str properties;
    for (const wmi::QualifiedName& name : analysis->selectList) {
        if (!name.names.empty()) {
            properties.appendWide(name.names.front());
        }
        properties.append(',');
    }
    Str classes;
    for (const std::u16string& name : analysis->fromList) {
        classes.appendWide(name).append(',');
    }
    Str lefts;
    Str constants;
    for (const wmi::RpnToken& token : analysis->whereList) {
        // Operators have no left identifier.
        if (token.leftIdent.names.empty()) {
            continue;
        }
        lefts.appendWide(token.leftIdent.names.front()).append(',');
        appendConstant(token, constants);
        constants.append(',');
    }
    for (Str* part : {&properties, &classes, &lefts, &constants}) {
        dropLastComma(*part);
    }
    analysis_[PART_PROPERTIES] = std::move(properties);
    analysis_[PART_CLASSES] = std::move(classes);
    analysis_[PART_LEFT] = std::move(lefts);
    analysis_[PART_CONSTANTS] = std::move(constants);

    parser_->freeMemory(analysis);
    parser_->empty();
    return true;
}

void QueryAnalyzer::renderAnalysis(Str& out) const {
    auto part = [this](int32_t number) {
        auto it = analysis_.find(number);
        return it == analysis_.end() ? Str() : Str::trimCopy(it->second, kBlanks);
    };
    out.appendFormat("%s %s %s %s", "Select", part(PART_PROPERTIES).c_str(), "from",
                     part(PART_CLASSES).c_str());
    auto constants = analysis_.find(PART_CONSTANTS);
    if (constants != analysis_.end()) {
        out.appendFormat(" %s %s", "where", constants->second.c_str());
    }
}

}  // namespace morvax
