#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "util/base/Str.h"
#include "util/base/StrSegment.h"
#include "wmi/Wmi.h"

namespace morvax {

// Tells, before any provider sees a WQL text, whether it is well-formed, whether it is a kind of
// query that can be analysed, and what it selects, from which classes and on which conditions.
// It rests on the WMI layer's query parser, made on first use. One thread only.
class QueryAnalyzer {
  public:
    enum Part : int32_t {
        PART_PROPERTIES = 0,  // the selected properties, comma-separated
        PART_CLASSES = 1,     // the classes of FROM
        PART_LEFT = 2,        // the left-hand property of each condition, in reverse-Polish order
        PART_CONSTANTS = 3,   // the constant of each condition, in the same order
    };

    // Longest text handed to the parser; a longer one is refused as a syntax error, so that no
    // caller can make the analysis cost more than a bounded parse.
    static constexpr size_t kMaxQueryBytes = 1 << 20;

    QueryAnalyzer();
    ~QueryAnalyzer();
    QueryAnalyzer(const QueryAnalyzer&) = delete;
    QueryAnalyzer& operator=(const QueryAnalyzer&) = delete;

    // False only when the parser calls the text a syntax error.
    bool isValidQuery(StrSegment text);
    // Valid, and the parser can analyse it (ASSOCIATORS OF and REFERENCES OF cannot be).
    // Throws WMIException for any other failure of the analysis.
    bool isSupportedQuery(StrSegment text);
    // Valid once its event clause (GROUP WITHIN ..., or WITHIN n) is cut out. The parser then
    // sees the text in lower case.
    bool isValidEventQuery(StrSegment text);
    // Fills the four parts. When the parser exists already it analyses its last parse, so the
    // caller must have asked isValidQuery or isSupportedQuery of this same text first.
    bool analyzeQuery(StrSegment text);
    // Appends "Select <properties> from <classes>", and " where <constants>" when there are
    // conditions. For showing, not for sending.
    void renderAnalysis(Str& out) const;

    const std::map<int32_t, Str>& analysis() const { return analysis_; }

  private:
    void ensureQueryParser();
    // GetAnalysis as isSupportedQuery reads it: true for an analysis, false for a query that
    // cannot be analysed, a WMIException otherwise.
    bool analysable();

    std::unique_ptr<wmi::QueryParser> parser_;
    std::map<int32_t, Str> analysis_;
};

}  // namespace morvax
