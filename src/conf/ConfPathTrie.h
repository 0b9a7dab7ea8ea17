#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "conf/ConfPathMetadata.h"
#include "conf/ConfPathTriePruner.h"
#include "conf/SharedStr.h"

namespace morvax {

class ConfPathBase;

// One node of a tree of conf addresses; the root is a node too. The levels below the root are
// user, app, type, stanza and key. Children are kept in byte order of their names, so every walk
// meets them sorted. Texts are shared handles and metadata is shared per source file, so copying
// a tree copies pointers.
class ConfPathTrie {
  public:
    using Children = std::map<SharedStr, std::unique_ptr<ConfPathTrie>, std::less<>>;
    enum Depth : size_t { USER = 1, APP = 2, TYPE = 3, STANZA = 4, KEY = 5 };

    explicit ConfPathTrie(SharedStr key = SharedStr()) : key_(std::move(key)) {}
    virtual ~ConfPathTrie();
    ConfPathTrie(const ConfPathTrie&) = delete;
    ConfPathTrie& operator=(const ConfPathTrie&) = delete;

    // Walks the user, the app and each segment of `path` down from this node, making what is
    // missing; returns the last node.
    virtual ConfPathTrie& getOrCreate(const ConfPathBase& path);
    // Adds below `target` copies of the branches of this node that `pruner` keeps.
    virtual void copyInto(ConfPathTrie& target, ConfPathTriePruner& pruner) const;

    // The child named `key`, made if missing.
    ConfPathTrie& child(const SharedStr& key);
    const ConfPathTrie* find(StrSegment key) const;
    void erase(StrSegment key);
    // Visits the children in sorted order, depth first, and removes what the pruner cuts;
    // true when every child was cut.
    bool walk(ConfPathTriePruner& pruner);

    const SharedStr& key() const { return key_; }
    const Children& children() const { return children_; }
    Children& children() { return children_; }
    void clearChildren() { children_.clear(); }
    // A stanza node has a value, empty: it tells an empty stanza from a node that only carries
    // metadata.
    bool hasValue() const { return hasValue_; }
    const SharedStr& value() const { return value_; }
    void setValue(SharedStr value) {
        value_ = std::move(value);
        hasValue_ = true;
    }
    const std::shared_ptr<const ConfPathMetadata>& metadata() const { return metadata_; }
    void setMetadata(std::shared_ptr<const ConfPathMetadata> metadata) {
        metadata_ = std::move(metadata);
    }
    const SharedStr& expansion() const { return expansion_; }
    void setExpansion(SharedStr expansion) { expansion_ = std::move(expansion); }

  private:
    Children children_;
    SharedStr value_;
    bool hasValue_ = false;
    std::shared_ptr<const ConfPathMetadata> metadata_;
    SharedStr expansion_;
    SharedStr key_;
};

}  // namespace morvax
