#include "conf/ConfSettings.h"

#include "conf/ConfLoggers.h"
#include "conf/ConfWhiteSpace.h"

namespace morvax {

namespace {

Pathname bootstrapFile(const Pathname& etc) {
    return Pathname::join(Pathname::join(Pathname::join(etc, "system"), "default"), "conf.conf");
}

}  // namespace

ConfSettings::ConfSettings(const Pathname& etcRoot, const Pathname& installationEtc) {
    file_ = bootstrapFile(etcRoot);
    if (file_.exists() != Pathname::REGULAR_FILE && !(etcRoot == installationEtc)) {
        file_ = bootstrapFile(installationEtc);
    }
    if (file_.exists() != Pathname::REGULAR_FILE) {
        confSettingsLogger().warn("No bootstrap configuration available for: %s",
                                  etcRoot.toStr().c_str());
        return;
    }
    loaded_ = ini_.parse(file_);
}

bool ConfSettings::hasBootstrap() const {
    return loaded_ && ini_.stanza(Str("bootstrap")) != nullptr;
}

std::vector<std::pair<Str, Str>> ConfSettings::bootstrapEntries() const {
    std::vector<std::pair<Str, Str>> out;
    const IniStanza* bootstrap = loaded_ ? ini_.stanza(Str("bootstrap")) : nullptr;
    if (bootstrap == nullptr) {
        return out;
    }
    for (const auto& [key, value] : bootstrap->entries) {
        out.emplace_back(Str(ConfWhiteSpace::trim(key.segment())),
                         Str(ConfWhiteSpace::trim(value.value.segment())));
    }
    return out;
}

}  // namespace morvax
