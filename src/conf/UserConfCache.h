#pragma once

#include "conf/BaseConfCache.h"

namespace morvax {

// The cache of a reader with a user and an application: the layers rank by the priority their
// place gives them, and among equals the later one wins.
class UserConfCache : public BaseConfCache {
  public:
    using BaseConfCache::BaseConfCache;

  protected:
    void rebuild() override;
};

}  // namespace morvax
