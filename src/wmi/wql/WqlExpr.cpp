#include "wmi/wql/WqlExpr.h"

namespace morvax::wmi {

void WqlExpr::appendRpn(std::vector<RpnToken>& out) const {
    RpnToken token;
    switch (kind) {
        case Kind::COMPARE:
            token.tokenType = WMIQ_RPN_TOKEN_EXPRESSION;
            token.operatorType = op;
            token.leftIdent = left;
            token.rightIdent = right;
            token.constApparentType = constApparentType;
            token.constant = constant;
            out.push_back(std::move(token));
            return;
        case Kind::NOT:
            children.front()->appendRpn(out);
            token.tokenType = WMIQ_RPN_TOKEN_NOT;
            out.push_back(std::move(token));
            return;
        case Kind::AND:
        case Kind::OR:
            token.tokenType = kind == Kind::AND ? WMIQ_RPN_TOKEN_AND : WMIQ_RPN_TOKEN_OR;
            for (size_t i = 0; i < children.size(); ++i) {
                children[i]->appendRpn(out);
                if (i > 0) {
                    out.push_back(token);
                }
            }
            return;
    }
}

}  // namespace morvax::wmi
