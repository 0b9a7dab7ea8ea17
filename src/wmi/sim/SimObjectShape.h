#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "wmi/sim/SimClass.h"
#include "wmi/sim/SimSynthetic.h"
#include "wmi/wql/WqlProjection.h"

namespace morvax::wmi {

// What the objects of one class in one query have in common: the class, the properties the
// select list lets through (and their names, worked out once), the namespace, and for generated
// instances the generator. Objects hold a pointer to it, so each object stays small.
class SimObjectShape {
  public:
    SimObjectShape(std::shared_ptr<const SimClass> cls, const WqlProjection& projection,
                   std::u16string nameSpace, std::shared_ptr<const SimSynthetic> synthetic = {});

    const std::shared_ptr<const SimClass>& simClass() const { return class_; }
    const WqlProjection& projection() const { return projection_; }
    // The selected properties, in the class's order.
    const std::vector<std::u16string>& names() const { return names_; }
    bool selected(size_t property) const { return selected_[property]; }
    // The class's property behind name `index` of names().
    size_t property(size_t index) const { return properties_[index]; }
    const std::u16string& nameSpace() const { return nameSpace_; }
    const SimSynthetic* synthetic() const { return synthetic_.get(); }

  private:
    std::shared_ptr<const SimClass> class_;
    WqlProjection projection_;
    std::vector<std::u16string> names_;
    std::vector<bool> selected_;
    std::vector<size_t> properties_;
    std::u16string nameSpace_;
    std::shared_ptr<const SimSynthetic> synthetic_;
};

}  // namespace morvax::wmi
