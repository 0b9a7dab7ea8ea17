#pragma once

#include "conf/ConfPathTriePruner.h"

namespace morvax {

// Cuts everything below `maxDepth`.
class MaxDepthPruner : public ConfPathTriePruner {
  public:
    explicit MaxDepthPruner(size_t maxDepth) : maxDepth_(maxDepth) {}
    Result visit(const std::vector<const ConfPathTrie*>& path) override {
        return path.size() > maxDepth_ ? CUT : KEEP;
    }

  private:
    size_t maxDepth_;
};

}  // namespace morvax
