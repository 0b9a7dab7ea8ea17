#pragma once

#include <functional>

#include "conf/ConfPathTrie.h"
#include "conf/ConfPathTriePruner.h"
#include "util/base/StrSegment.h"

namespace morvax {

// Cuts what lies in applications that are disabled or unknown, except their type "app", which
// must stay readable: it is where an application says whether it is enabled.
class DisabledApplicationPruner : public ConfPathTriePruner {
  public:
    using IsEnabled = std::function<bool(StrSegment app)>;
    explicit DisabledApplicationPruner(IsEnabled isEnabled) : isEnabled_(std::move(isEnabled)) {}

    Result visit(const std::vector<const ConfPathTrie*>& path) override {
        if (path.size() == ConfPathTrie::APP) {
            return isEnabled_(path.back()->key()) ? KEEP : KEEP_IF_NOT_EMPTY;
        }
        if (path.size() == ConfPathTrie::TYPE && !isEnabled_(path[ConfPathTrie::APP - 1]->key())) {
            return path.back()->key() == StrSegment("app") ? KEEP : CUT;
        }
        return KEEP;
    }

  private:
    IsEnabled isEnabled_;
};

}  // namespace morvax
