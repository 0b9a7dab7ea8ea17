#include "conf/LegacyConfCache.h"

namespace morvax {

void LegacyConfCache::rebuild() {
    rebuildFromLayers(context_.userName().empty() ? Str("nobody") : context_.userName(),
                      context_.appName(), false);
}

}  // namespace morvax
