#include "input/ValueExtractingOutputter.h"

namespace morvax {

void ValueExtractingOutputter::writeEvent(ResultBatch::iterator position) {
    const EventRecord& record = *position;
    if (propertyName_.empty()) {
        if (!record.empty()) {
            list_->push_back(Str::fromWide(record.begin()->first));
        }
        return;
    }
    const auto found = record.find(propertyName_);
    if (found != record.end()) {
        list_->push_back(Str::fromWide(found->second));
    }
}

}  // namespace morvax
