#pragma once

#include "wmi/Wmi.h"
#include "wmi/wql/WqlExpr.h"
#include "wmi/wql/WqlObjectView.h"

namespace morvax::wmi {

// Evaluates WHERE and HAVING conditions. A comparison in which either side is NULL, absent,
// an array or an object is false, and NOT of it is true: the logic has two values.
class WqlEvaluator {
  public:
    // A null condition (no WHERE clause) holds for every object.
    static bool matches(const WqlExpr* condition, const WqlObjectView& object);

    // `left op right` for EQ, NE, LT, GT, LE, GE. Numbers compare by value across types; a
    // string against a number compares as the number it spells (64-bit values come as
    // strings), else the comparison is false; strings compare without regard to case; a
    // boolean against a number or string takes that as true or false.
    static bool compare(const Variant& left, uint32_t op, const Variant& right);

  private:
    static bool test(const WqlExpr& comparison, const WqlObjectView& object);
};

}  // namespace morvax::wmi
