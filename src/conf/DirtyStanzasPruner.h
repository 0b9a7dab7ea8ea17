#pragma once

#include <set>

#include "conf/ConfPathTrie.h"
#include "conf/ConfPathTriePruner.h"
#include "util/base/Str.h"

namespace morvax {

// Keeps only the stanzas of `dirty`; keeps all when the set is empty.
class DirtyStanzasPruner : public ConfPathTriePruner {
  public:
    explicit DirtyStanzasPruner(const std::set<Str>& dirty) : dirty_(dirty) {}
    Result visit(const std::vector<const ConfPathTrie*>& path) override {
        if (path.size() != ConfPathTrie::STANZA || dirty_.empty()) {
            return KEEP;
        }
        return dirty_.count(Str(path.back()->key().segment())) != 0 ? KEEP : CUT;
    }

  private:
    const std::set<Str>& dirty_;
};

}  // namespace morvax
