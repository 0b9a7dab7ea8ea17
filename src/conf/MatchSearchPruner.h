#pragma once

#include "conf/ConfPathTrie.h"
#include "conf/ConfPathTriePruner.h"
#include "conf/ConfSearch.h"

namespace morvax {

// Keeps what a search path matches: its user, application and type, and everything below.
// Levels above the type go when nothing matched under them.
class MatchSearchPruner : public ConfPathTriePruner {
  public:
    explicit MatchSearchPruner(const ConfSearch& search) : search_(search) {}
    Result visit(const std::vector<const ConfPathTrie*>& path) override {
        const SharedStr& key = path.back()->key();
        switch (path.size()) {
            case ConfPathTrie::USER:
                return matches(search_.user, key) ? KEEP_IF_NOT_EMPTY : CUT;
            case ConfPathTrie::APP:
                return matches(search_.app, key) ? KEEP_IF_NOT_EMPTY : CUT;
            case ConfPathTrie::TYPE:
                return key == search_.type.segment() ? KEEP : CUT;
            default:
                return KEEP;
        }
    }

  private:
    static bool matches(const Str& wanted, const SharedStr& key) {
        return wanted.empty() || key == wanted.segment();
    }
    const ConfSearch& search_;
};

}  // namespace morvax
