#include "wmi/sim/SimObjectShape.h"

namespace morvax::wmi {

SimObjectShape::SimObjectShape(std::shared_ptr<const SimClass> cls, const WqlProjection& projection,
                               std::u16string nameSpace,
                               std::shared_ptr<const SimSynthetic> synthetic)
    : class_(std::move(cls)),
      projection_(projection),
      nameSpace_(std::move(nameSpace)),
      synthetic_(std::move(synthetic)) {
    const std::vector<SimProperty>& properties = class_->properties();
    for (size_t i = 0; i < properties.size(); ++i) {
        const bool keep = projection_.selects(properties[i].name);
        selected_.push_back(keep);
        if (keep) {
            names_.push_back(properties[i].name);
            properties_.push_back(i);
        }
    }
}

}  // namespace morvax::wmi
