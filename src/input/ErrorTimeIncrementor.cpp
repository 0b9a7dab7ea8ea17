#include "input/ErrorTimeIncrementor.h"

#include <map>
#include <string>

#include "input/WMITuning.h"

namespace morvax {

namespace {

// Only the thread that advances handlers reaches the map, so it takes no lock.
std::map<std::string, std::unique_ptr<ErrorTimeIncrementor>>& serverSchedules() {
    static auto* schedules = new std::map<std::string, std::unique_ptr<ErrorTimeIncrementor>>();
    return *schedules;
}

}  // namespace

Timeval ErrorTimeIncrementor::nextTime(const WMIQueryEntry& entry) {
    if (!owner_) {
        owner_ = std::make_unique<WMIQueryEntry>(entry);
        return TimeIncrementor::nextTime();
    }
    if (entry.sameQuery(*owner_)) {
        return TimeIncrementor::nextTime();
    }
    if (currentMilliseconds_ == 0) {
        return nextTime_;
    }
    return Timeval::addInterval(Timeval::now(), currentMilliseconds_);
}

void ErrorTimeIncrementor::resetFor(const WMIQueryEntry& entry) {
    if (!owner_) {
        reset();
    } else if (entry.sameQuery(*owner_)) {
        reset();
        owner_.reset();
    }
}

ErrorTimeIncrementor& ErrorTimeIncrementor::forServer(StrSegment server) {
    auto& schedules = serverSchedules();
    std::string key(server.data(), server.size());
    auto it = schedules.find(key);
    if (it == schedules.end()) {
        const WMITuning& tuning = WMITuning::process();
        it = schedules
                 .emplace(std::move(key),
                          std::make_unique<ErrorTimeIncrementor>(tuning.initialBackoffMilliseconds,
                                                                 tuning.maxBackoffMilliseconds))
                 .first;
    }
    return *it->second;
}

void ErrorTimeIncrementor::forgetAllServers() {
    serverSchedules().clear();
}

}  // namespace morvax
