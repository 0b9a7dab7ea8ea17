#pragma once

#include <memory>
#include <string>

#include "util/base/Str.h"
#include "wmi/Wmi.h"
#include "wmi/wql/WqlLexer.h"
#include "wmi/wql/WqlQuery.h"

namespace morvax::wmi {

// Parses WQL:
//   SELECT * | name[.name...], ... FROM class [WITHIN n] [WHERE condition]
//       [GROUP WITHIN n [BY name, ...] [HAVING condition]]
//   ASSOCIATORS OF {path} [WHERE keyword[ = value] ...]
//   REFERENCES OF {path} [WHERE keyword[ = value] ...]
class WqlParser {
  public:
    enum class Mode {
        PROVIDER,  // everything above, event clauses included
        ANALYSIS,  // as the platform's query analysis: WITHIN and GROUP are syntax errors
    };

    // How deep parentheses and NOT may nest, so that no text can exhaust the stack.
    static constexpr int kMaxNesting = 64;
    // The longest text, in UTF-16 code units, that is parsed at all; a longer one is a syntax
    // error, so that the cost of a parse has a stated bound.
    static constexpr size_t kMaxQueryLength = size_t{1} << 20;

    // WBEM_S_NO_ERROR with the query in `out`, or WBEM_E_INVALID_SYNTAX with the reason in
    // `error` (when given). Any text gets one of the two.
    static HRESULT parse(const std::u16string& text, Mode mode, std::unique_ptr<WqlQuery>& out,
                         Str* error = nullptr);

  private:
    WqlParser(const std::u16string& text, Mode mode) : lexer_(text), mode_(mode) {}

    const WqlToken& peek();
    WqlToken take();
    bool atKeyword(WqlKeyword keyword);
    bool takeKeyword(WqlKeyword keyword);
    bool fail(const char* expected);

    bool parseQuery(WqlQuery& query);
    bool parseSelect(WqlQuery& query);
    bool parseObjectQuery(WqlQuery& query);
    bool parseName(QualifiedName& out);
    bool parseNameList(std::vector<QualifiedName>& out);
    bool parseInterval(double& seconds);
    std::unique_ptr<WqlExpr> parseOr(int depth);
    std::unique_ptr<WqlExpr> parseAnd(int depth);
    std::unique_ptr<WqlExpr> parseNot(int depth);
    std::unique_ptr<WqlExpr> parsePrimary(int depth);
    std::unique_ptr<WqlExpr> parseComparison();
    bool parseConstant(WqlExpr& expr);

    WqlLexer lexer_;
    Mode mode_;
    WqlToken lookahead_;
    bool hasLookahead_ = false;
    Str error_;
};

}  // namespace morvax::wmi
