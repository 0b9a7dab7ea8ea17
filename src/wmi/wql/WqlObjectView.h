#pragma once

#include <string>
#include <vector>

#include "wmi/Wmi.h"

namespace morvax::wmi {

// What the evaluator needs of an object. Paths are the names of a dotted property as the
// query spells them ({"TargetInstance", "Name"}); a view matches them without regard to case.
class WqlObjectView {
  public:
    virtual ~WqlObjectView() = default;
    // The value at `path`, through embedded objects; false when a step is missing or is not
    // an object. A property that exists without a value gives true and VT_NULL.
    virtual bool property(const std::vector<std::u16string>& path, Variant& out) const = 0;
    // Whether the object at `path` (the object itself when `path` is empty) is of class
    // `className` or of a class derived from it.
    virtual bool isA(const std::vector<std::u16string>& path,
                     const std::u16string& className) const = 0;
};

}  // namespace morvax::wmi
