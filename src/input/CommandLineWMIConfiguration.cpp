#include "input/CommandLineWMIConfiguration.h"

#include "input/CheckpointPath.h"
#include "input/WMILogger.h"
#include "util/base/Tokenizer.h"

namespace morvax {

CommandLineWMIConfiguration::CommandLineWMIConfiguration(StrSegment logList,
                                                         const std::optional<Str>& servers,
                                                         bool watch) {
    const std::vector<Str> logs = Tokenizer::splitList(logList);
    const std::vector<Str> serverNames =
        servers ? Tokenizer::splitList(servers->segment()) : std::vector<Str>{Str(".")};
    entries_.reserve(logs.size() * serverNames.size());
    for (const Str& server : serverNames) {
        for (const Str& log : logs) {
            WMIQueryEntry entry;
            entry.type = WMIQueryEntry::TYPE_EVENT_LOG;
            entry.namespace_ = "\\\\";
            entry.namespace_.append(server).append("\\root\\cimv2");
            entry.parameter = log;
            entry.intervalMilliseconds = 1000;
            entry.name = log;
            entry.notification = watch;
            entries_.push_back(entry);
        }
    }
}

const WMIQueryEntry* CommandLineWMIConfiguration::nextQuery() {
    if (cursor_ >= entries_.size()) {
        return nullptr;
    }
    return &entries_[cursor_++];
}

bool CommandLineWMIConfiguration::hasQueries() const {
    return !entries_.empty();
}

const Pathname& CommandLineWMIConfiguration::getCheckpointPath() {
    if (checkpointPath_.empty() &&
        !getMorvaxWmiCheckpointPath(checkpointPath_, CHECKPOINT_BASE_NAME)) {
        wmiLogger().error("%s: Cannot resolve checkpoint file: ",
                          "CommandLineWMIConfiguration::getCheckpointPath");
    }
    return checkpointPath_;
}

}  // namespace morvax
