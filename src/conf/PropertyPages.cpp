#include "conf/PropertyPages.h"

#include <tuple>

#include "conf/ConfSystem.h"
#include "conf/LegacyPropertyPages.h"
#include "conf/PropertyPagesException.h"
#include "conf/UserPropertyPages.h"
#include "util/thread/Mutex.h"
#include "util/thread/ScopedLock.h"

namespace morvax {

namespace {

// type, root, user, user's app, app
using PagesKey = std::tuple<Str, WStr, Str, Str, Str>;

struct PageTable {
    Mutex lock;
    std::map<PagesKey, std::unique_ptr<PropertyPages>> pages;
};

PageTable& pageTable() {
    static auto* table = new PageTable();
    return *table;
}

}  // namespace

PropertyPages& PropertyPages::get(StrSegment type) {
    return get(type, ConfContext());
}

PropertyPages& PropertyPages::get(StrSegment type, const ConfContext& context) {
    const Str typeName(type);
    if (!context.userName().empty() && context.appName().empty()) {
        throw PropertyPagesContextException(
            typeName, "Cannot read configuration if user context is set but app context is not");
    }
    PageTable& table = pageTable();
    ScopedLock hold(table.lock);
    PagesKey key{typeName, context.effectiveEtc().wide(), context.userName(), context.userApp(),
                 context.appName()};
    auto found = table.pages.find(key);
    if (found == table.pages.end()) {
        std::unique_ptr<PropertyPages> pages;
        if (context.userName().empty() && context.appName().empty()) {
            pages = std::make_unique<LegacyPropertyPages>(typeName, context);
        } else {
            pages = std::make_unique<UserPropertyPages>(typeName, context);
        }
        found = table.pages.emplace(std::move(key), std::move(pages)).first;
    }
    return *found->second;
}

PropertyPages::PropertyPages(Str type, ConfContext context, std::unique_ptr<BaseConfCache> cache)
    : type_(std::move(type)),
      context_(std::move(context)),
      actingUser_(context_.userName()),
      actingApp_(context_.appName()),
      cache_(std::move(cache)) {}

PropertyPages::~PropertyPages() = default;

void PropertyPages::rebuildCache() {
    cache_->invalidateAll();
}

}  // namespace morvax
