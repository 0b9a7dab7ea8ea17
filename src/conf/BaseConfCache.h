#pragma once

#include <map>
#include <memory>
#include <set>

#include "conf/ConfContext.h"
#include "conf/PropertiesMap.h"
#include "util/base/Str.h"
#include "util/thread/Mutex.h"

namespace morvax {

class ConfSystem;

// The merged stanzas of one conf type, built from the layers of a system on the first read and
// again after an invalidation. One reader at a time.
class BaseConfCache {
  public:
    using Stanzas = std::map<Str, std::shared_ptr<PropertiesMap>, std::less<>>;
    enum DisabledFilter { ENABLED_ONLY = 0, DISABLED_ONLY = 1, ALL_STANZAS = 2 };
    // Beyond this many named stanzas, an invalidation covers all of them.
    static constexpr size_t kMaxDirtyStanzas = 32;

    BaseConfCache(Str type, ConfContext context, ConfSystem& system);
    virtual ~BaseConfCache();
    BaseConfCache(const BaseConfCache&) = delete;
    BaseConfCache& operator=(const BaseConfCache&) = delete;

    virtual void invalidateAll();
    virtual void invalidateStanzas(const std::set<Str>& names);
    virtual void invalidateStanza(const Str& name);

    // The stanzas of `names` ("a|b": a's keys win over b's), with [default] filling in what
    // they lack. Pattern matching is never asked for here and is refused with a DEBUG line.
    void getStanza(StrSegment names, PropertiesMap& out, bool patternMatch);
    // Each stanza whose name begins with `prefix`, merged with [default], kept by `filter`.
    void getStanzasWithPrefix(StrSegment prefix, std::map<Str, PropertiesMap>& out,
                              DisabledFilter filter);

  protected:
    // Refills `stanzas_` from the layers; called under the lock.
    virtual void rebuild() = 0;
    void rebuildFromLayers(const Str& searchUser, const Str& searchApp, bool overwrite);

    Str type_;
    ConfContext context_;
    ConfSystem& system_;
    Stanzas stanzas_;
    std::set<Str> dirtyStanzas_;

  private:
    void rebuildIfDirty();

    Mutex mutex_;
    bool allDirty_ = true;
};

}  // namespace morvax
