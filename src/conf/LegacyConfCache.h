#pragma once

#include "conf/BaseConfCache.h"

namespace morvax {

// The cache of a reader with no user and no application: every layer counts, in the order of
// the bootstrap file, and the first layer that has a key keeps it.
class LegacyConfCache : public BaseConfCache {
  public:
    using BaseConfCache::BaseConfCache;

  protected:
    void rebuild() override;
};

}  // namespace morvax
