#include "input/MorvaxWMIConfiguration.h"

#include <map>
#include <vector>

#include "conf/PropertiesMap.h"
#include "conf/PropertyPages.h"
#include "input/CheckpointPath.h"
#include "input/WMILogger.h"
#include "input/WMITuning.h"
#include "net/HostNames.h"
#include "util/base/CharSet.h"
#include "util/base/Tokenizer.h"
#include "wmi/WmiProvider.h"

namespace morvax {

namespace {

// A seconds key of [settings] over its millisecond value: an absent or bad key leaves it.
struct SecondsSetting {
    const char* key;
    uint64_t WMITuning::*milliseconds;
};
constexpr SecondsSetting kSecondsSettings[] = {
    {"initial_backoff", &WMITuning::initialBackoffMilliseconds},
    {"max_backoff", &WMITuning::maxBackoffMilliseconds},
    {"checkpoint_sync_interval", &WMITuning::checkpointSyncIntervalMilliseconds},
};

Str narrowExpanded(const PropertiesMap& stanza, const char* key, bool& present) {
    WStr wide;
    present = stanza.getExpandedWide(StrSegment(key), wide);
    return present ? Str::fromWide(wide) : Str();
}

// Blanks and tabs, stripped from both ends of each list entry.
constexpr CharSet kBlanks(" \t");

Str stripBlanks(const Str& text) {
    return Str::trimCopy(text.segment(), kBlanks);
}

// "\\<server>\<namespace>", or the namespace alone for the local machine; root\cimv2 when the
// stanza names none.
Str namespacePath(const Str& server, const Str& nameSpace) {
    Str path;
    if (!server.empty()) {
        path.append("\\\\").append(server).append("\\");
    }
    path.append(nameSpace.empty() ? Str("root\\cimv2") : nameSpace);
    return path;
}

// An IPv6 address as a server name goes in brackets.
void encloseIPv6(Str& server) {
    if (!HostNames::isIPv6Address(server.c_str())) {
        return;
    }
    if (!wmi::WmiProvider::isVistaOrUp()) {
        // The words stand as the program has always logged this failed test.
        wmiLogger().error("Ipv6 for WMI is supported on this version of Windows.");
    }
    wmiLogger().warn("'%s' looks like a ipv6 address, Will enclose in '[]' if not already done.",
                     server.c_str());
    if (server.empty() || server[0] != '[') {
        server = Str("[") + server;
    }
    if (server[server.size() - 1] != ']') {
        server.append(']');
    }
}

bool equalsNoCase(StrSegment a, const char* b) {
    const Str lower = Str(a).toLowerCopy();
    return lower.view() == b;
}

}  // namespace

MorvaxWMIConfiguration::MorvaxWMIConfiguration(const Str& defaultIndex) {
    PropertyPages& pages = PropertyPages::get(StrSegment("wmi"));
    PropertiesMap settings;
    pages.getStanza(StrSegment("settings"), settings);
    readSettings(settings);
    std::map<Str, PropertiesMap> stanzas;
    pages.getStanzasWithPrefix(StrSegment("WMI"), stanzas, BaseConfCache::ALL_STANZAS);
    for (const auto& [name, stanza] : stanzas) {
        readStanza(name, stanza, defaultIndex);
    }
    cursor_ = entries_.begin();
}

void MorvaxWMIConfiguration::readSettings(const PropertiesMap& settings) {
    WMITuning& tuning = WMITuning::process();
    for (const SecondsSetting& setting : kSecondsSettings) {
        uint64_t& milliseconds = tuning.*setting.milliseconds;
        uint32_t seconds = static_cast<uint32_t>((milliseconds + 999) / 1000);
        settings.getUnsigned(StrSegment(setting.key), seconds);
        milliseconds = uint64_t{seconds} * 1000;
    }
    settings.getUnsigned(StrSegment("max_retries_at_max_backoff"), tuning.maxRetriesAtMaxBackoff);
}

void MorvaxWMIConfiguration::readStanza(const Str& stanzaName, const PropertiesMap& stanza,
                                        const Str& defaultIndex) {
    if (stanza.isDisabled()) {
        return;
    }
    WMIQueryEntry entry;
    entry.outputMode = 2;
    if (stanzaName.size() > 4) {
        entry.name = Str(StrSegment(stanzaName.data() + 4, stanzaName.size() - 4));
    }
    bool present = false;
    const Str nameSpace = narrowExpanded(stanza, "namespace", present);
    entry.namespace_ = nameSpace;
    stanza.getBool(StrSegment("current_only"), entry.notification);
    stanza.getBool(StrSegment("disable_hostname_normalization"),
                   entry.disableHostnameNormalization);

    stanza.getString(StrSegment("index"), entry.index);
    if (entry.index.empty() || equalsNoCase(entry.index.segment(), "default")) {
        entry.index = defaultIndex;
    }

    uint32_t interval = 0;
    if (!stanza.getUnsigned(StrSegment("interval"), interval)) {
        wmiLogger().error(
            "The stanza \"%s\" is missing the \"interval\" property, which is "
            "required. Skipping this stanza.",
            stanzaName.c_str());
        return;
    }
    entry.intervalMilliseconds = uint64_t{interval} * 1000;

    bool hasServer = false;
    const Str serverText = narrowExpanded(stanza, "server", hasServer);
    std::vector<Str> servers;
    if (hasServer) {
        if (nameSpace.view().starts_with("\\\\")) {
            wmiLogger().error(
                "The stanza \"%s\" is invalid: You cannot specify absolute \"namespace\" "
                "parameter (one that contains server name) and also specify the \"server\" "
                "parameter in the same stanza. Skipping this stanza.",
                stanzaName.c_str());
            return;
        }
        servers = Tokenizer::splitList(serverText.segment());
    } else {
        servers.emplace_back();
    }
    for (Str& server : servers) {
        encloseIPv6(server);
    }
    entry.hostname = narrowExpanded(stanza, "hostname", present);

    Str wql;
    if (stanza.getString(StrSegment("wql"), wql) && !wql.empty()) {
        entry.parameter = wql;
        for (const Str& server : servers) {
            WMIQueryEntry copy = entry;
            copy.namespace_ = namespacePath(stripBlanks(server), nameSpace);
            entries_.push_back(std::move(copy));
        }
        return;
    }
    Str logText;
    if (!stanza.getString(StrSegment("event_log_file"), logText) || logText.empty()) {
        wmiLogger().error(
            "The stanza \"%s\" is invalid: either wql or event_log_file must be "
            "present. Skipping this stanza.",
            stanzaName.c_str());
        return;
    }
    entry.type = WMIQueryEntry::TYPE_EVENT_LOG;
    const std::vector<Str> logs = Tokenizer::splitList(logText.segment());
    for (const Str& server : servers) {
        const Str path = namespacePath(stripBlanks(server), nameSpace);
        for (const Str& log : logs) {
            WMIQueryEntry copy = entry;
            copy.namespace_ = path;
            copy.parameter = stripBlanks(log);
            copy.name = Str("WinEventLog:") + copy.parameter;
            entries_.push_back(std::move(copy));
        }
    }
}

const WMIQueryEntry* MorvaxWMIConfiguration::nextQuery() {
    if (cursor_ == entries_.end()) {
        return nullptr;
    }
    return &*cursor_++;
}

const Pathname& MorvaxWMIConfiguration::getCheckpointPath() {
    if (checkpointPath_.empty()) {
        // An empty path fails the checkpointer's start, which says why.
        getMorvaxWmiCheckpointPath(checkpointPath_, CHECKPOINT_BASE_NAME);
    }
    return checkpointPath_;
}

}  // namespace morvax
