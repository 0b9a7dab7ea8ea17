#include "input/TestWMIConfiguration.h"

#include "input/CheckpointPath.h"
#include "input/WMILogger.h"
#include "util/log/Logger.h"

namespace morvax {

namespace {

constexpr const char* kQueries[] = {
    "select * from win32_operatingsystem",
    ("select CommittedBytes, AvailableBytes, PercentCommittedBytesInUse, Caption from "
     "Win32_PerfFormattedData_PerfOS_Memory"),
};

}  // namespace

TestWMIConfiguration::TestWMIConfiguration() {
    for (const char* wql : kQueries) {
        WMIQueryEntry entry;
        entry.type = WMIQueryEntry::TYPE_WQL;
        entry.namespace_ = "root\\cimv2";
        entry.parameter = wql;
        entry.intervalMilliseconds = 1000;
        entry.outputMode = 2;
        entries_.push_back(std::move(entry));
    }
}

const WMIQueryEntry* TestWMIConfiguration::nextQuery() {
    return cursor_ < entries_.size() ? &entries_[cursor_++] : nullptr;
}

const Pathname& TestWMIConfiguration::getCheckpointPath() {
    if (checkpointPath_.empty() &&
        !getMorvaxWmiCheckpointPath(checkpointPath_, CHECKPOINT_BASE_NAME)) {
        wmiLogger().error("%s: Cannot resolve checkpoint file: ",
                          "TestWMIConfiguration::getCheckpointPath");
    }
    return checkpointPath_;
}

}  // namespace morvax
