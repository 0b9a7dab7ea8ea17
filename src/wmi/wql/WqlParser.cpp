#include "wmi/wql/WqlParser.h"

#include <cmath>
#include <utility>

#include "wmi/wql/WqlNumber.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

uint32_t turnRound(uint32_t op) {
    switch (op) {
        case WMIQ_RPN_OP_LT:
            return WMIQ_RPN_OP_GT;
        case WMIQ_RPN_OP_GT:
            return WMIQ_RPN_OP_LT;
        case WMIQ_RPN_OP_LE:
            return WMIQ_RPN_OP_GE;
        case WMIQ_RPN_OP_GE:
            return WMIQ_RPN_OP_LE;
        default:
            return op;
    }
}

std::unique_ptr<WqlExpr> makeGroup(WqlExpr::Kind kind, std::unique_ptr<WqlExpr> first) {
    auto group = std::make_unique<WqlExpr>();
    group->kind = kind;
    group->children.push_back(std::move(first));
    return group;
}

struct ObjectKeyword {
    const char* word;
    bool takesValue;
    bool forReferences;
};

// The keywords of the WHERE clause of ASSOCIATORS OF; REFERENCES OF takes a subset.
// clang-format off
constexpr ObjectKeyword kObjectKeywords[] = {
    {"assocclass", true, false},
    {"classdefsonly", false, true},
    {"keysonly", false, true},
    {"requiredassocqualifier", true, false},
    {"requiredqualifier", true, true},
    {"resultclass", true, true},
    {"resultrole", true, false},
    {"role", true, true},
    {"schemaonly", false, true},
};
// clang-format on

}  // namespace

HRESULT WqlParser::parse(const std::u16string& text, Mode mode, std::unique_ptr<WqlQuery>& out,
                         Str* error) {
    out.reset();
    if (text.size() > kMaxQueryLength) {
        if (error) {
            error->format("query longer than %zu characters", kMaxQueryLength);
        }
        return WBEM_E_INVALID_SYNTAX;
    }
    WqlParser parser(text, mode);
    auto query = std::make_unique<WqlQuery>();
    if (!parser.parseQuery(*query)) {
        if (error) {
            *error = parser.error_;
        }
        return WBEM_E_INVALID_SYNTAX;
    }
    if (error) {
        error->clear();
    }
    out = std::move(query);
    return WBEM_S_NO_ERROR;
}

const WqlToken& WqlParser::peek() {
    if (!hasLookahead_) {
        lookahead_ = lexer_.next();
        hasLookahead_ = true;
    }
    return lookahead_;
}

WqlToken WqlParser::take() {
    peek();
    hasLookahead_ = false;
    return std::move(lookahead_);
}

bool WqlParser::atKeyword(WqlKeyword keyword) {
    const WqlToken& token = peek();
    return token.type == WqlTokenType::KEYWORD && token.keyword == keyword;
}

bool WqlParser::takeKeyword(WqlKeyword keyword) {
    if (!atKeyword(keyword)) {
        return false;
    }
    take();
    return true;
}

bool WqlParser::fail(const char* expected) {
    const WqlToken& token = peek();
    if (token.type == WqlTokenType::INVALID) {
        error_ = lexer_.error();
    } else if (error_.empty()) {
        error_.appendFormat("expected %s at offset %zu", expected, token.offset);
    }
    return false;
}

bool WqlParser::parseQuery(WqlQuery& query) {
    bool ok;
    if (atKeyword(WqlKeyword::KW_SELECT)) {
        ok = parseSelect(query);
    } else if (atKeyword(WqlKeyword::KW_ASSOCIATORS) || atKeyword(WqlKeyword::KW_REFERENCES)) {
        ok = parseObjectQuery(query);
    } else {
        return fail("SELECT, ASSOCIATORS OF or REFERENCES OF");
    }
    if (ok && peek().type != WqlTokenType::END_OF_TEXT) {
        return fail("the end of the query");
    }
    return ok;
}

bool WqlParser::parseSelect(WqlQuery& query) {
    take();
    query.kind_ = WqlQuery::Kind::SELECT;
    if (peek().type == WqlTokenType::STAR) {
        take();
    } else if (!parseNameList(query.selectList_)) {
        return false;
    }
    if (!takeKeyword(WqlKeyword::KW_FROM)) {
        return fail("FROM");
    }
    if (peek().type != WqlTokenType::IDENTIFIER) {
        return fail("a class name");
    }
    query.className_ = take().text;
    if (atKeyword(WqlKeyword::KW_WITHIN)) {
        if (mode_ == Mode::ANALYSIS) {
            return fail("WHERE or the end of the query (WITHIN is an event clause)");
        }
        take();
        if (!parseInterval(query.withinSeconds_)) {
            return false;
        }
        query.hasWithin_ = true;
    }
    if (takeKeyword(WqlKeyword::KW_WHERE)) {
        query.where_ = parseOr(0);
        if (!query.where_) {
            return false;
        }
    }
    if (atKeyword(WqlKeyword::KW_GROUP)) {
        if (mode_ == Mode::ANALYSIS) {
            return fail("the end of the query (GROUP is an event clause)");
        }
        take();
        if (!takeKeyword(WqlKeyword::KW_WITHIN)) {
            return fail("WITHIN");
        }
        if (!parseInterval(query.groupWithinSeconds_)) {
            return false;
        }
        query.hasGroup_ = true;
        if (takeKeyword(WqlKeyword::KW_BY) && !parseNameList(query.groupBy_)) {
            return false;
        }
        if (takeKeyword(WqlKeyword::KW_HAVING)) {
            query.having_ = parseOr(0);
            if (!query.having_) {
                return false;
            }
        }
    }
    return true;
}

bool WqlParser::parseObjectQuery(WqlQuery& query) {
    const bool references = take().keyword == WqlKeyword::KW_REFERENCES;
    query.kind_ = references ? WqlQuery::Kind::REFERENCES : WqlQuery::Kind::ASSOCIATORS;
    // OF is taken without looking further: the path behind it is not made of tokens.
    if (!takeKeyword(WqlKeyword::KW_OF)) {
        return fail("OF");
    }
    if (!lexer_.readBraced(query.objectPath_)) {
        error_ = lexer_.error();
        return false;
    }
    if (!takeKeyword(WqlKeyword::KW_WHERE)) {
        return true;
    }
    do {
        if (peek().type != WqlTokenType::IDENTIFIER) {
            return fail(references ? "a REFERENCES OF keyword" : "an ASSOCIATORS OF keyword");
        }
        const ObjectKeyword* found = nullptr;
        for (const ObjectKeyword& k : kObjectKeywords) {
            if (WqlText::isWord(peek().text, k.word) && (k.forReferences || !references)) {
                found = &k;
            }
        }
        if (!found) {
            return fail(references ? "a REFERENCES OF keyword" : "an ASSOCIATORS OF keyword");
        }
        take();
        if (found->takesValue) {
            if (peek().type != WqlTokenType::COMPARISON || peek().op != WMIQ_RPN_OP_EQ) {
                return fail("'='");
            }
            take();
            if (peek().type != WqlTokenType::IDENTIFIER &&
                peek().type != WqlTokenType::STRING_LITERAL) {
                return fail("a name");
            }
            take();
        }
    } while (peek().type == WqlTokenType::IDENTIFIER);
    return true;
}

bool WqlParser::parseName(QualifiedName& out) {
    out.names.clear();
    for (;;) {
        if (peek().type != WqlTokenType::IDENTIFIER) {
            return fail("a property name");
        }
        out.names.push_back(take().text);
        if (peek().type != WqlTokenType::DOT) {
            return true;
        }
        take();
    }
}

bool WqlParser::parseNameList(std::vector<QualifiedName>& out) {
    for (;;) {
        QualifiedName name;
        if (!parseName(name)) {
            return false;
        }
        out.push_back(std::move(name));
        if (peek().type != WqlTokenType::COMMA) {
            return true;
        }
        take();
    }
}

bool WqlParser::parseInterval(double& seconds) {
    if (peek().type != WqlTokenType::NUMBER_LITERAL) {
        return fail("an interval in seconds");
    }
    WqlNumber n;
    WqlNumber::fromVariant(peek().number, n);
    const double value = n.toDouble();
    if (n.negative || !(value >= 0) || !std::isfinite(value)) {
        return fail("an interval in seconds");
    }
    take();
    seconds = value;
    return true;
}

std::unique_ptr<WqlExpr> WqlParser::parseOr(int depth) {
    auto first = parseAnd(depth);
    if (!first || !atKeyword(WqlKeyword::KW_OR)) {
        return first;
    }
    auto group = makeGroup(WqlExpr::Kind::OR, std::move(first));
    while (takeKeyword(WqlKeyword::KW_OR)) {
        auto next = parseAnd(depth);
        if (!next) {
            return nullptr;
        }
        group->children.push_back(std::move(next));
    }
    return group;
}

std::unique_ptr<WqlExpr> WqlParser::parseAnd(int depth) {
    auto first = parseNot(depth);
    if (!first || !atKeyword(WqlKeyword::KW_AND)) {
        return first;
    }
    auto group = makeGroup(WqlExpr::Kind::AND, std::move(first));
    while (takeKeyword(WqlKeyword::KW_AND)) {
        auto next = parseNot(depth);
        if (!next) {
            return nullptr;
        }
        group->children.push_back(std::move(next));
    }
    return group;
}

std::unique_ptr<WqlExpr> WqlParser::parseNot(int depth) {
    if (!atKeyword(WqlKeyword::KW_NOT)) {
        return parsePrimary(depth);
    }
    if (depth >= kMaxNesting) {
        fail("less nesting of NOT and parentheses");
        return nullptr;
    }
    take();
    auto operand = parseNot(depth + 1);
    if (!operand) {
        return nullptr;
    }
    return makeGroup(WqlExpr::Kind::NOT, std::move(operand));
}

std::unique_ptr<WqlExpr> WqlParser::parsePrimary(int depth) {
    if (peek().type != WqlTokenType::OPEN_PAREN) {
        return parseComparison();
    }
    if (depth >= kMaxNesting) {
        fail("less nesting of NOT and parentheses");
        return nullptr;
    }
    take();
    auto inner = parseOr(depth + 1);
    if (!inner) {
        return nullptr;
    }
    if (peek().type != WqlTokenType::CLOSE_PAREN) {
        fail("')'");
        return nullptr;
    }
    take();
    return inner;
}

bool WqlParser::parseConstant(WqlExpr& expr) {
    const WqlToken& token = peek();
    switch (token.type) {
        case WqlTokenType::STRING_LITERAL:
            expr.constApparentType = VT_LPWSTR;
            expr.constant = Variant::fromString(token.text);
            break;
        case WqlTokenType::NUMBER_LITERAL:
            expr.constApparentType = token.number.vt;
            expr.constant = token.number;
            break;
        case WqlTokenType::KEYWORD:
            if (token.keyword == WqlKeyword::KW_TRUE || token.keyword == WqlKeyword::KW_FALSE) {
                expr.constApparentType = VT_BOOL;
                expr.constant = Variant::fromBool(token.keyword == WqlKeyword::KW_TRUE);
                break;
            }
            if (token.keyword == WqlKeyword::KW_NULL) {
                expr.constApparentType = VT_NULL;
                expr.constant = Variant::null();
                break;
            }
            return false;
        default:
            return false;
    }
    take();
    return true;
}

std::unique_ptr<WqlExpr> WqlParser::parseComparison() {
    auto expr = std::make_unique<WqlExpr>();
    if (peek().type != WqlTokenType::IDENTIFIER) {
        // constant op property
        if (!parseConstant(*expr)) {
            fail("a condition");
            return nullptr;
        }
        if (peek().type != WqlTokenType::COMPARISON) {
            fail("a comparison operator");
            return nullptr;
        }
        expr->op = turnRound(take().op);
        if (!parseName(expr->left)) {
            return nullptr;
        }
        return expr;
    }
    if (!parseName(expr->left)) {
        return nullptr;
    }
    if (peek().type == WqlTokenType::COMPARISON) {
        expr->op = take().op;
        if (peek().type == WqlTokenType::IDENTIFIER) {
            if (!parseName(expr->right)) {
                return nullptr;
            }
        } else if (!parseConstant(*expr)) {
            fail("a constant or a property name");
            return nullptr;
        }
        return expr;
    }
    if (takeKeyword(WqlKeyword::KW_IS)) {
        expr->op = takeKeyword(WqlKeyword::KW_NOT) ? WMIQ_RPN_OP_ISNOTNULL : WMIQ_RPN_OP_ISNULL;
        if (!takeKeyword(WqlKeyword::KW_NULL)) {
            fail("NULL");
            return nullptr;
        }
        return expr;
    }
    if (takeKeyword(WqlKeyword::KW_ISA)) {
        if (peek().type != WqlTokenType::STRING_LITERAL) {
            fail("a class name in quotes");
            return nullptr;
        }
        expr->op = WMIQ_RPN_OP_ISA;
        parseConstant(*expr);
        return expr;
    }
    const bool negated = takeKeyword(WqlKeyword::KW_NOT);
    if (!takeKeyword(WqlKeyword::KW_LIKE)) {
        fail(negated ? "LIKE" : "a comparison operator");
        return nullptr;
    }
    if (peek().type != WqlTokenType::STRING_LITERAL) {
        fail("a pattern in quotes");
        return nullptr;
    }
    expr->op = WMIQ_RPN_OP_LIKE;
    parseConstant(*expr);
    expr->like = std::make_shared<const WqlLikePattern>(expr->constant.str);
    return negated ? makeGroup(WqlExpr::Kind::NOT, std::move(expr)) : std::move(expr);
}

}  // namespace morvax::wmi
