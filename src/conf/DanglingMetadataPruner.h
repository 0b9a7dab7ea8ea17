#pragma once

#include "conf/ConfPathTrie.h"
#include "conf/ConfPathTriePruner.h"

namespace morvax {

// Cuts nodes that carry metadata but neither a value nor a child: what is left of a branch
// whose content went.
class DanglingMetadataPruner : public ConfPathTriePruner {
  public:
    Result visit(const std::vector<const ConfPathTrie*>& path) override {
        const ConfPathTrie& node = *path.back();
        return node.metadata() && !node.hasValue() && node.children().empty() ? CUT : KEEP;
    }
};

}  // namespace morvax
