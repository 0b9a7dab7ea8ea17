#pragma once

#include "conf/PropertyPages.h"

namespace morvax {

// The pages of a user in an application.
class UserPropertyPages : public PropertyPages {
  public:
    UserPropertyPages(Str type, const ConfContext& context);
    bool isPerUser() const override { return true; }
};

}  // namespace morvax
