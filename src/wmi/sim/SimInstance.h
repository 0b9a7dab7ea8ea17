#pragma once

#include <memory>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimClass.h"

namespace morvax::wmi {

// The values of one instance, one per property of its class, in the class's order.
class SimInstance {
  public:
    SimInstance(std::shared_ptr<const SimClass> cls, std::vector<Variant> values)
        : class_(std::move(cls)), values_(std::move(values)) {}

    const std::shared_ptr<const SimClass>& simClass() const { return class_; }
    const std::vector<Variant>& values() const { return values_; }

  private:
    std::shared_ptr<const SimClass> class_;
    std::vector<Variant> values_;
};

}  // namespace morvax::wmi
