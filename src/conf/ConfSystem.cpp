#include "conf/ConfSystem.h"

#include <map>

#include "conf/ConfContext.h"
#include "conf/ConfLoggers.h"
#include "conf/InstallationInfo.h"
#include "conf/LegacyConfCache.h"
#include "util/base/Tokenizer.h"
#include "util/thread/Mutex.h"
#include "util/thread/ScopedLock.h"

namespace morvax {

namespace {

// The systems of the process, one per root: the system itself defines them as shared.
struct Systems {
    Mutex lock;
    std::map<WStr, std::unique_ptr<ConfSystem>> byRoot;
};

Systems& systems() {
    static auto* instance = new Systems();
    return *instance;
}

void addList(const PropertiesMap& stanza, StrSegment key, std::set<Str>& out) {
    Str value;
    if (!stanza.getString(key, value)) {
        return;
    }
    for (Str& name : Tokenizer::splitList(value.segment())) {
        out.insert(std::move(name));
    }
}

}  // namespace

ConfSystem& ConfSystem::forContext(const ConfContext& context) {
    Systems& all = systems();
    ScopedLock hold(all.lock);
    const Pathname etc = context.effectiveEtc();
    auto found = all.byRoot.find(etc.wide());
    if (found == all.byRoot.end()) {
        found = all.byRoot.emplace(etc.wide(), std::unique_ptr<ConfSystem>(new ConfSystem(context)))
                    .first;
    }
    return *found->second;
}

ConfSystem::ConfSystem(const ConfContext& context) : etc_(context.effectiveEtc()) {
    settings_ = std::make_unique<ConfSettings>(etc_, InstallationInfo::instance().etcPath());
    const Str root = etc_.toStr();
    ConfPathMapperManager::Directories directories{etc_, context.appsDirectory(),
                                                   context.deployedAppsDirectory()};
    if (!settings_->isLoaded()) {
        confPathMapperManagerLogger().error("Could not read bootstrap configuration: %s",
                                            root.c_str());
    } else if (!settings_->hasBootstrap()) {
        confPathMapperManagerLogger().error("Could not find '%s' stanza in bootstrapping conf: %s",
                                            "bootstrap", root.c_str());
    } else {
        confPathMapperManagerLogger().info("Running setup for %s using %s", root.c_str(),
                                           settings_->file().toStr().c_str());
        manager_ = std::make_unique<ConfPathMapperManager>(directories, *settings_);
    }
    applications_ = ApplicationTable(directories.apps, directories.deployedApps);
    // The user name mapping (users.ini) serves per-user reads, which no caller of this program
    // makes with a user of its own: it is not loaded.
    readFieldSets(context);
}

std::vector<std::shared_ptr<IConfPathMapper>> ConfSystem::mappers() const {
    return manager_ ? manager_->mappers() : std::vector<std::shared_ptr<IConfPathMapper>>();
}

void ConfSystem::readFieldSets(const ConfContext& context) {
    PropertiesMap general;
    LegacyConfCache server(Str("server"), context, *this);
    server.getStanza(StrSegment("general"), general, false);
    addList(general, StrSegment("encrypt_fields"), encryptFields_);
    PropertiesMap clustering;
    server.getStanza(StrSegment("shclustering"), clustering, false);
    if (clustering.find(StrSegment("encrypt_fields")) != nullptr) {
        propertiesMapConfigLogger().warn(
            "server.conf/[shclustering]/encrypt_fields is deprecated. Use "
            "server.conf/[general]/encrypt_fields");
        addList(clustering, StrSegment("encrypt_fields"), encryptFields_);
    }
    PropertiesMap auditTrail;
    LegacyConfCache audit(Str("audit"), context, *this);
    audit.getStanza(StrSegment("auditTrail"), auditTrail, false);
    addList(auditTrail, StrSegment("redact_fields"), redactFields_);
}

}  // namespace morvax
