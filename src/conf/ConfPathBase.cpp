#include "conf/ConfPathBase.h"

namespace morvax {

ConfPathBase::~ConfPathBase() = default;

void ConfPathBase::addSegment(SharedStr segment, SharedStr expansion) {
    segments_.push_back(std::move(segment));
    expansions_.push_back(std::move(expansion));
}

}  // namespace morvax
