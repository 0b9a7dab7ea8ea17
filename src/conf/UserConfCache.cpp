#include "conf/UserConfCache.h"

namespace morvax {

void UserConfCache::rebuild() {
    // Every owner's layers may speak for the user; the priorities decide.
    rebuildFromLayers(Str(), Str(), true);
}

}  // namespace morvax
