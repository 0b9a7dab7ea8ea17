#pragma once

#include <vector>

#include "conf/BaseConfCache.h"
#include "conf/ConfPathTriePruner.h"

namespace morvax {

// Walks the tree of one layer, root down, and records its stanzas and keys in a cache. Without
// `overwrite` the first layer that has a key keeps it; with it, a higher priority wins and
// among equals the later layer. Cuts nothing.
class BaseConfCacheBuilder : public ConfPathTriePruner {
  public:
    BaseConfCacheBuilder(BaseConfCache::Stanzas& stanzas, const ConfContext& context,
                         bool overwrite, const Str& type);

    Result visit(const std::vector<const ConfPathTrie*>& path) override;

    // The rank of a layer: the global one lowest, a user's own highest, the others by how the
    // source shares its content and whether it is the reader's application.
    static uint32_t priorityOf(StrSegment user, StrSegment app, uint32_t shareLevel,
                               uint32_t inherited, const ConfContext& context);

  private:
    void fill(PropertiesMapMetadata& record, const ConfPathTrie& node, uint32_t priority,
              const std::vector<const ConfPathTrie*>& path) const;

    BaseConfCache::Stanzas& stanzas_;
    const ConfContext& context_;
    bool overwrite_;
    const Str& type_;
    PropertiesMap* stanza_ = nullptr;
    uint32_t stanzaPriority_ = 0;
};

}  // namespace morvax
