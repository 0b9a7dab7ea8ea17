#include "conf/UserPropertyPages.h"

#include "conf/UserConfCache.h"

namespace morvax {

UserPropertyPages::UserPropertyPages(Str type, const ConfContext& context)
    : PropertyPages(type, context,
                    std::make_unique<UserConfCache>(type, context, context.system())) {}

}  // namespace morvax
