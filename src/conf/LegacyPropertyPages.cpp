#include "conf/LegacyPropertyPages.h"

#include "conf/LegacyConfCache.h"

namespace morvax {

LegacyPropertyPages::LegacyPropertyPages(Str type, const ConfContext& context)
    : PropertyPages(type, context,
                    std::make_unique<LegacyConfCache>(type, context, context.system())) {}

}  // namespace morvax
