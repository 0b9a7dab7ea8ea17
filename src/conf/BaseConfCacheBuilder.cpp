#include "conf/BaseConfCacheBuilder.h"

#include "conf/ConfLoggers.h"
#include "conf/ConfPathTrie.h"

namespace morvax {

BaseConfCacheBuilder::BaseConfCacheBuilder(BaseConfCache::Stanzas& stanzas,
                                           const ConfContext& context, bool overwrite,
                                           const Str& type)
    : stanzas_(stanzas), context_(context), overwrite_(overwrite), type_(type) {}

uint32_t BaseConfCacheBuilder::priorityOf(StrSegment user, StrSegment app, uint32_t shareLevel,
                                          uint32_t inherited, const ConfContext& context) {
    if (app.view() == "system") {
        return 1;
    }
    if (user.view() != "nobody") {
        return 6;
    }
    const bool otherApp = !context.appName().empty() && context.appName().view() != app.view();
    switch (shareLevel) {
        case ConfPathMetadata::SHARE_NONE:
            if (inherited != 0) {
                return inherited;
            }
            return otherApp ? 3 : 5;
        case ConfPathMetadata::SHARE_APPLICATION:
            return otherApp ? 3 : 5;
        case ConfPathMetadata::SHARE_GLOBAL:
            return context.appName().view() == app.view() ? 4 : 2;
        default:
            return 0;
    }
}

void BaseConfCacheBuilder::fill(PropertiesMapMetadata& record, const ConfPathTrie& node,
                                uint32_t priority,
                                const std::vector<const ConfPathTrie*>& path) const {
    record.value = node.value();
    record.priority = priority;
    record.app = path[ConfPathTrie::APP - 1]->key();
    record.owner.user = Str(path[ConfPathTrie::USER - 1]->key().segment());
    record.owner.app = Str(record.app.segment());
    if (const auto& metadata = node.metadata()) {
        record.modtime = metadata->modtime;
        record.isLocal = metadata->isLocal ? 1 : 0;
        record.permissions = metadata->permissions;
        record.sourcePath = metadata->originPath;
    }
}

ConfPathTriePruner::Result BaseConfCacheBuilder::visit(
    const std::vector<const ConfPathTrie*>& path) {
    if (path.size() != ConfPathTrie::STANZA && path.size() != ConfPathTrie::KEY) {
        return KEEP;
    }
    const ConfPathTrie& node = *path.back();
    const StrSegment user = path[ConfPathTrie::USER - 1]->key();
    const StrSegment app = path[ConfPathTrie::APP - 1]->key();
    const uint32_t shareLevel = node.metadata() ? node.metadata()->shareLevel : 0;

    if (path.size() == ConfPathTrie::STANZA) {
        stanzaPriority_ = priorityOf(user, app, shareLevel, 0, context_);
        auto found = stanzas_.find(node.key().view());
        const bool present = found != stanzas_.end();
        if (!present) {
            found = stanzas_.emplace(Str(node.key().segment()), std::make_shared<PropertiesMap>())
                        .first;
        }
        stanza_ = found->second.get();
        if (!node.expansion().empty()) {
            if (stanza_->expansion().empty()) {
                stanza_->setExpansion(node.expansion());
            } else if (stanza_->expansion() != node.expansion()) {
                confCacheLogger().warn(
                    "Stanza has an expansion [%s], ignoring alternate expansion [%s] in %s.conf",
                    stanza_->expansion().c_str(), node.expansion().c_str(), type_.c_str());
            }
        }
        PropertiesMapMetadata& record = stanza_->stanzaMetadata();
        if (!present || (overwrite_ && stanzaPriority_ >= record.priority)) {
            fill(record, node, stanzaPriority_, path);
        }
        return KEEP;
    }

    const uint32_t priority = priorityOf(user, app, shareLevel, stanzaPriority_, context_);
    PropertiesMapMetadata& record = stanza_->record(node.key());
    const bool present = record.priority != 0;
    if (!present || (overwrite_ && priority >= record.priority)) {
        fill(record, node, priority, path);
    }
    return KEEP;
}

}  // namespace morvax
