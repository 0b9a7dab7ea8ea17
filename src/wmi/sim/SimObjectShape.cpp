#include "wmi/sim/SimObjectShape.h"

namespace morvax::wmi {

SimObjectShape::SimObjectShape(std::shared_ptr<const SimClass> cls, const WqlProjection& projection,
                               std::u16string nameSpace,
                               std::shared_ptr<const SimSynthetic> synthetic)
    : class_(std::move(cls)),
      projection_(projection),
      nameSpace_(std::move(nameSpace)),
      synthetic_(std::move(synthetic)) {
    for (const SimProperty& property : class_->properties()) {
        const bool keep = projection_.selects(property.name);
        selected_.push_back(keep);
        if (keep) {
            names_.push_back(property.name);
        }
    }
}

}  // namespace morvax::wmi
