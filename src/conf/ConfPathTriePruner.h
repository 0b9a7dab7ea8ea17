#pragma once

#include <vector>

namespace morvax {

class ConfPathTrie;

// A visitor of the nodes of a conf tree, which says per node whether the branch stays.
class ConfPathTriePruner {
  public:
    enum Result { CUT = 0, KEEP = 1, KEEP_IF_NOT_EMPTY = 2 };

    virtual ~ConfPathTriePruner() = default;
    // `path` holds the nodes from the user level down to the one visited: its size is the
    // node's depth (1 user, 2 app, 3 type, 4 stanza, 5 key).
    virtual Result visit(const std::vector<const ConfPathTrie*>& path) = 0;
};

}  // namespace morvax
