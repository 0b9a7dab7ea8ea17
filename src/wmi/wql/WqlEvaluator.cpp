#include "wmi/wql/WqlEvaluator.h"

#include "wmi/wql/WqlNumber.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

enum class Category { NONE, NUMBER, BOOLEAN, STRING, OTHER };

Category categoryOf(uint16_t vt) {
    switch (vt) {
        case VT_EMPTY:
        case VT_NULL:
            return Category::NONE;
        case VT_I1:
        case VT_I2:
        case VT_I4:
        case VT_I8:
        case VT_INT:
        case VT_UI1:
        case VT_UI2:
        case VT_UI4:
        case VT_UI8:
        case VT_UINT:
        case VT_R4:
        case VT_R8:
            return Category::NUMBER;
        case VT_BOOL:
            return Category::BOOLEAN;
        case VT_BSTR:
        case VT_LPWSTR:
            return Category::STRING;
        default:
            return Category::OTHER;
    }
}

bool toNumber(const Variant& value, WqlNumber& out) {
    if (categoryOf(value.vt) == Category::STRING) {
        std::u16string_view text(value.str);
        while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
            text.remove_prefix(1);
        }
        while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
            text.remove_suffix(1);
        }
        return WqlNumber::parse(text, out);
    }
    return WqlNumber::fromVariant(value, out);
}

bool toBoolean(const Variant& value, bool& out) {
    switch (categoryOf(value.vt)) {
        case Category::BOOLEAN:
            out = value.b;
            return true;
        case Category::STRING:
            if (WqlText::isWord(value.str, "true") || WqlText::isWord(value.str, "false")) {
                out = WqlText::isWord(value.str, "true");
                return true;
            }
            [[fallthrough]];
        case Category::NUMBER: {
            WqlNumber n;
            if (!toNumber(value, n)) {
                return false;
            }
            out = n.isReal ? n.real != 0 : n.magnitude != 0;
            return true;
        }
        default:
            return false;
    }
}

bool holds(uint32_t op, int order) {
    switch (op) {
        case WMIQ_RPN_OP_EQ:
            return order == 0;
        case WMIQ_RPN_OP_NE:
            return order != 0;
        case WMIQ_RPN_OP_LT:
            return order < 0;
        case WMIQ_RPN_OP_GT:
            return order > 0;
        case WMIQ_RPN_OP_LE:
            return order <= 0;
        case WMIQ_RPN_OP_GE:
            return order >= 0;
        default:
            return false;
    }
}

bool isNull(const Variant& value) {
    return value.vt == VT_NULL || value.vt == VT_EMPTY;
}

}  // namespace

bool WqlEvaluator::matches(const WqlExpr* condition, const WqlObjectView& object) {
    if (!condition) {
        return true;
    }
    switch (condition->kind) {
        case WqlExpr::Kind::AND:
            for (const auto& child : condition->children) {
                if (!matches(child.get(), object)) {
                    return false;
                }
            }
            return true;
        case WqlExpr::Kind::OR:
            for (const auto& child : condition->children) {
                if (matches(child.get(), object)) {
                    return true;
                }
            }
            return false;
        case WqlExpr::Kind::NOT:
            return !matches(condition->children.front().get(), object);
        case WqlExpr::Kind::COMPARE:
            return test(*condition, object);
    }
    return false;
}

bool WqlEvaluator::test(const WqlExpr& e, const WqlObjectView& object) {
    const std::vector<std::u16string>& path = e.left.names;
    switch (e.op) {
        case WMIQ_RPN_OP_ISA:
        case WMIQ_RPN_OP_ISNOTA: {
            const bool self = path.size() == 1 && WqlText::isWord(path[0], "__this");
            const bool is = object.isA(self ? std::vector<std::u16string>() : path, e.constant.str);
            return e.op == WMIQ_RPN_OP_ISA ? is : !is;
        }
        case WMIQ_RPN_OP_ISNULL:
        case WMIQ_RPN_OP_ISNOTNULL: {
            Variant value;
            const bool null = !object.property(path, value) || isNull(value);
            return e.op == WMIQ_RPN_OP_ISNULL ? null : !null;
        }
        case WMIQ_RPN_OP_LIKE: {
            Variant value;
            if (!e.like || !object.property(path, value)) {
                return false;
            }
            const Category category = categoryOf(value.vt);
            if (category == Category::NUMBER || category == Category::BOOLEAN) {
                if (failed(changeType(value, value, VT_BSTR))) {
                    return false;
                }
            } else if (category != Category::STRING) {
                return false;
            }
            return e.like->matches(value.str);
        }
        default: {
            Variant value;
            if (!object.property(path, value)) {
                return false;
            }
            if (e.right.names.empty()) {
                return compare(value, e.op, e.constant);
            }
            Variant other;
            return object.property(e.right.names, other) && compare(value, e.op, other);
        }
    }
}

bool WqlEvaluator::compare(const Variant& left, uint32_t op, const Variant& right) {
    const Category l = categoryOf(left.vt), r = categoryOf(right.vt);
    if (l == Category::NONE || r == Category::NONE || l == Category::OTHER ||
        r == Category::OTHER) {
        return false;
    }
    if (l == Category::STRING && r == Category::STRING) {
        return holds(op, WqlText::compareNoCase(left.str, right.str));
    }
    if (l == Category::BOOLEAN || r == Category::BOOLEAN) {
        bool a, b;
        if (!toBoolean(left, a) || !toBoolean(right, b)) {
            return false;
        }
        return holds(op, static_cast<int>(a) - static_cast<int>(b));
    }
    WqlNumber a, b;
    int order;
    if (!toNumber(left, a) || !toNumber(right, b) || !WqlNumber::compare(a, b, order)) {
        return false;
    }
    return holds(op, order);
}

}  // namespace morvax::wmi
