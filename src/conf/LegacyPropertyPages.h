#pragma once

#include "conf/PropertyPages.h"

namespace morvax {

// The pages of a reader with no user and no application, such as this program.
class LegacyPropertyPages : public PropertyPages {
  public:
    LegacyPropertyPages(Str type, const ConfContext& context);
    bool isPerUser() const override { return false; }
};

}  // namespace morvax
