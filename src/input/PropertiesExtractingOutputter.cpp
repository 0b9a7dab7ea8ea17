#include "input/PropertiesExtractingOutputter.h"

namespace morvax {

void PropertiesExtractingOutputter::writeEvent(ResultBatch::iterator position) {
    for (const auto& property : *position) {
        list_->push_back(Str::fromWide(property.first));
    }
}

}  // namespace morvax
