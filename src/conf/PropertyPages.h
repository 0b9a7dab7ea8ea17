#pragma once

#include <map>
#include <memory>

#include "conf/BaseConfCache.h"
#include "conf/ConfContext.h"
#include "conf/PropertiesMap.h"

namespace morvax {

// The merged view of one conf type: every <type>.conf of the installation at once, layered as
// the bootstrap file says. Pages are made on first use and live as long as the process.
class PropertyPages {
  public:
    // The pages of `type` for a reader with no user and no application.
    static PropertyPages& get(StrSegment type);
    // Throws PropertyPagesContextException for a user without an application.
    static PropertyPages& get(StrSegment type, const ConfContext& context);

    virtual ~PropertyPages();
    PropertyPages(const PropertyPages&) = delete;
    PropertyPages& operator=(const PropertyPages&) = delete;

    // Forgets what was merged; the next read builds it again.
    virtual void rebuildCache();
    virtual bool isPerUser() const = 0;

    // `name` may list several stanzas, "a|b": a's keys win over b's; [default] fills in.
    void getStanza(StrSegment name, PropertiesMap& out, bool patternMatch = false) {
        cache_->getStanza(name, out, patternMatch);
    }
    void getStanzasWithPrefix(StrSegment prefix, std::map<Str, PropertiesMap>& out,
                              BaseConfCache::DisabledFilter filter = BaseConfCache::ENABLED_ONLY) {
        cache_->getStanzasWithPrefix(prefix, out, filter);
    }
    const Str& type() const { return type_; }

  protected:
    PropertyPages(Str type, ConfContext context, std::unique_ptr<BaseConfCache> cache);

    Str type_;
    ConfContext context_;
    Str actingUser_;
    Str actingApp_;
    std::unique_ptr<BaseConfCache> cache_;
};

}  // namespace morvax
