#pragma once

#include <memory>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/wql/WqlLikePattern.h"

namespace morvax::wmi {

// A condition of a WHERE or HAVING clause. AND and OR are n-ary, so a long chain of
// conditions stays flat; only parentheses and NOT nest, and the parser bounds them.
struct WqlExpr {
    enum class Kind { AND, OR, NOT, COMPARE };

    Kind kind = Kind::COMPARE;
    std::vector<std::unique_ptr<WqlExpr>> children;  // AND, OR: two or more; NOT: one

    // COMPARE: `left op constant`, or `left op right` between two properties. A constant
    // written first is turned round (5 < x is x > 5). ISA holds the class name as its
    // constant; IS [NOT] NULL has none. `__this` on the left of ISA is the object itself.
    uint32_t op = WMIQ_RPN_OP_UNDEFINED;  // an RpnOperator
    QualifiedName left;
    QualifiedName right;  // empty unless a property is compared with a property
    // VT_I4, VT_I8, VT_UI8, VT_R8, VT_BOOL, VT_LPWSTR or VT_NULL; VT_EMPTY without a constant.
    uint16_t constApparentType = VT_EMPTY;
    Variant constant;                            // strings as VT_BSTR
    std::shared_ptr<const WqlLikePattern> like;  // LIKE: the constant, compiled

    // Appends the reverse-Polish form: operands first, AND and OR as binary operators taken
    // from the left.
    void appendRpn(std::vector<RpnToken>& out) const;
};

}  // namespace morvax::wmi
