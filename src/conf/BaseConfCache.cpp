#include "conf/BaseConfCache.h"

#include <vector>

#include "conf/BaseConfCacheBuilder.h"
#include "conf/ConfLoggers.h"
#include "conf/ConfPathTrie.h"
#include "conf/ConfSearch.h"
#include "conf/ConfSystem.h"
#include "conf/DanglingMetadataPruner.h"
#include "conf/DirtyStanzasPruner.h"
#include "conf/DisabledApplicationPruner.h"
#include "conf/MaxDepthPruner.h"
#include "util/thread/ScopedLock.h"

namespace morvax {

namespace {

const StrSegment kDefaultStanza("default");

std::vector<Str> splitNames(StrSegment names) {
    std::vector<Str> out;
    size_t start = 0;
    for (size_t i = 0; i <= names.size(); ++i) {
        if (i == names.size() || names[i] == '|') {
            out.emplace_back(StrSegment(names.data() + start, i - start));
            start = i + 1;
        }
    }
    return out;
}

}  // namespace

BaseConfCache::BaseConfCache(Str type, ConfContext context, ConfSystem& system)
    : type_(std::move(type)), context_(std::move(context)), system_(system) {}

BaseConfCache::~BaseConfCache() = default;

void BaseConfCache::invalidateAll() {
    ScopedLock hold(mutex_);
    allDirty_ = true;
    dirtyStanzas_.clear();
}

void BaseConfCache::invalidateStanzas(const std::set<Str>& names) {
    ScopedLock hold(mutex_);
    if (allDirty_ && dirtyStanzas_.empty()) {
        return;
    }
    allDirty_ = true;
    dirtyStanzas_.insert(names.begin(), names.end());
    if (dirtyStanzas_.size() >= kMaxDirtyStanzas) {
        // So many that the next rebuild is a whole one.
        dirtyStanzas_.clear();
    }
}

void BaseConfCache::invalidateStanza(const Str& name) {
    invalidateStanzas(std::set<Str>{name});
}

void BaseConfCache::rebuildIfDirty() {
    if (allDirty_) {
        rebuild();
        allDirty_ = false;
    }
}

void BaseConfCache::rebuildFromLayers(const Str& searchUser, const Str& searchApp, bool overwrite) {
    ConfSearch search;
    search.type = type_;
    search.user = searchUser;
    search.app = searchApp;
    if (!dirtyStanzas_.empty()) {
        for (const Str& name : dirtyStanzas_) {
            stanzas_.erase(name);
        }
    } else {
        stanzas_.clear();
    }
    const ApplicationTable& applications = system_.applications();
    for (const auto& mapper : system_.mappers()) {
        ConfPathTrie tree;
        mapper->fillSearch(search, tree);
        if (tree.children().empty()) {
            continue;
        }
        MaxDepthPruner depth(ConfPathTrie::KEY);
        tree.walk(depth);
        DisabledApplicationPruner disabled(
            [&applications](StrSegment app) { return applications.isEnabled(app); });
        tree.walk(disabled);
        DanglingMetadataPruner dangling;
        tree.walk(dangling);
        DirtyStanzasPruner dirty(dirtyStanzas_);
        tree.walk(dirty);
        BaseConfCacheBuilder builder(stanzas_, context_, overwrite, type_);
        tree.walk(builder);
    }
    dirtyStanzas_.clear();
}

void BaseConfCache::getStanza(StrSegment names, PropertiesMap& out, bool patternMatch) {
    const std::vector<Str> parts = splitNames(names);
    if (patternMatch) {
        propertiesMapConfigLogger().debug("Performing pattern matching for: %.*s",
                                          static_cast<int>(names.size()), names.data());
    }
    ScopedLock hold(mutex_);
    rebuildIfDirty();
    // A merge only adds keys, so the name given first decides each key.
    for (const Str& name : parts) {
        auto found = stanzas_.find(name.view());
        if (found != stanzas_.end()) {
            PropertiesMap::merge(*found->second, out, true, SharedStr(name.segment()));
        }
    }
    auto fallback = stanzas_.find(kDefaultStanza.view());
    if (fallback != stanzas_.end()) {
        PropertiesMap::merge(*fallback->second, out, false, SharedStr(kDefaultStanza));
    }
}

void BaseConfCache::getStanzasWithPrefix(StrSegment prefix, std::map<Str, PropertiesMap>& out,
                                         DisabledFilter filter) {
    ScopedLock hold(mutex_);
    rebuildIfDirty();
    auto fallback = stanzas_.find(kDefaultStanza.view());
    for (auto it = stanzas_.lower_bound(prefix.view());
         it != stanzas_.end() && it->first.view().starts_with(prefix.view()); ++it) {
        if (it->first.view() == kDefaultStanza.view()) {
            continue;
        }
        PropertiesMap merged;
        PropertiesMap::merge(*it->second, merged, true, SharedStr(it->first.segment()));
        if (fallback != stanzas_.end()) {
            PropertiesMap::merge(*fallback->second, merged, false, SharedStr(kDefaultStanza));
        }
        const bool disabled = merged.isDisabled();
        if (filter == ALL_STANZAS || (filter == DISABLED_ONLY) == disabled) {
            out[it->first] = std::move(merged);
        }
    }
}

}  // namespace morvax
