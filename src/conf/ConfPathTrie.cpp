#include "conf/ConfPathTrie.h"

#include "conf/ConfPathBase.h"

namespace morvax {

namespace {

using Path = std::vector<const ConfPathTrie*>;

// Cuts below `children` what the pruner says; true when all of them went.
bool walkChildren(ConfPathTrie::Children& children, Path& path, ConfPathTriePruner& pruner) {
    bool allCut = true;
    for (auto it = children.begin(); it != children.end();) {
        ConfPathTrie& child = *it->second;
        path.push_back(&child);
        const ConfPathTriePruner::Result result = pruner.visit(path);
        bool cut = result == ConfPathTriePruner::CUT;
        if (!cut) {
            const bool emptied = walkChildren(child.children(), path, pruner);
            cut = result == ConfPathTriePruner::KEEP_IF_NOT_EMPTY && emptied;
        }
        path.pop_back();
        if (cut) {
            it = children.erase(it);
        } else {
            allCut = false;
            ++it;
        }
    }
    return allCut;
}

void copyChildren(const ConfPathTrie& from, ConfPathTrie& to, Path& path,
                  ConfPathTriePruner& pruner) {
    for (const auto& [key, child] : from.children()) {
        path.push_back(child.get());
        const ConfPathTriePruner::Result result = pruner.visit(path);
        if (result != ConfPathTriePruner::CUT) {
            const bool existed = to.find(key) != nullptr;
            ConfPathTrie& copy = to.child(key);
            if (child->hasValue()) {
                copy.setValue(child->value());
            }
            if (child->metadata()) {
                copy.setMetadata(child->metadata());
            }
            if (!child->expansion().empty()) {
                copy.setExpansion(child->expansion());
            }
            copyChildren(*child, copy, path, pruner);
            if (result == ConfPathTriePruner::KEEP_IF_NOT_EMPTY && !existed &&
                copy.children().empty()) {
                to.erase(key);
            }
        }
        path.pop_back();
    }
}

}  // namespace

ConfPathTrie::~ConfPathTrie() = default;

ConfPathTrie& ConfPathTrie::child(const SharedStr& key) {
    auto found = children_.find(key);
    if (found == children_.end()) {
        found = children_.emplace(key, std::make_unique<ConfPathTrie>(key)).first;
    }
    return *found->second;
}

const ConfPathTrie* ConfPathTrie::find(StrSegment key) const {
    auto found = children_.find(key.view());
    return found != children_.end() ? found->second.get() : nullptr;
}

void ConfPathTrie::erase(StrSegment key) {
    auto found = children_.find(key.view());
    if (found != children_.end()) {
        children_.erase(found);
    }
}

ConfPathTrie& ConfPathTrie::getOrCreate(const ConfPathBase& path) {
    ConfPathTrie* node = &child(SharedStr(path.context().user.segment()));
    node = &node->child(path.app());
    for (size_t i = 0; i < path.segmentCount(); ++i) {
        node = &node->child(path.segment(i));
    }
    return *node;
}

void ConfPathTrie::copyInto(ConfPathTrie& target, ConfPathTriePruner& pruner) const {
    Path path;
    copyChildren(*this, target, path, pruner);
}

bool ConfPathTrie::walk(ConfPathTriePruner& pruner) {
    Path path;
    return walkChildren(children_, path, pruner);
}

}  // namespace morvax
