#include "wmi/sim/SimEventLog.h"

#include <nlohmann/json.hpp>

#include "util/thread/ScopedLock.h"
#include "wmi/sim/SimBuiltins.h"
#include "wmi/sim/SimJsonReader.h"
#include "wmi/sim/SimReport.h"

namespace morvax::wmi {

SimEventLog::SimEventLog(Setup setup)
    : setup_(std::move(setup)),
      synthetic_(std::make_shared<const SimSynthetic>(SimBuiltins::ntLogEvent(), setup_.name,
                                                      setup_.computerName)),
      records_(std::make_shared<SimEventRecords>(SimBuiltins::ntLogEvent())),
      lastNumber_(static_cast<uint32_t>(setup_.synthetic)) {
    if (!setup_.file.empty()) {
        file_ = std::make_unique<SimJsonlTail>(setup_.file);
    }
}

uint64_t SimEventLog::refresh() {
    if (!file_) {
        return 0;
    }
    ScopedLock lock(mutex_);
    generation_ = file_->refresh(*this);
    return generation_;
}

void SimEventLog::restart() {
    records_ = std::make_shared<SimEventRecords>(SimBuiltins::ntLogEvent());
    lastNumber_ = static_cast<uint32_t>(setup_.synthetic);
    fullReported_ = false;
}

void SimEventLog::line(uint32_t number, StrSegment text) {
    SimJsonReader::Json object;
    if (!SimJsonReader::objectOfLine(setup_.file, number, text, object)) {
        return;
    }
    const auto& cls = SimBuiltins::ntLogEvent();
    SimJsonReader reader(nullptr, u"root\\cimv2");
    std::vector<Str> problems;
    std::vector<Variant> values = reader.values(*cls, object, problems);
    for (const Str& problem : problems) {
        SimReport::atLine(setup_.file, number, problem.segment());
    }
    values[cls->find(u"Logfile")] = Variant::fromString(setup_.name);
    Variant& recordNumber = values[cls->find(u"RecordNumber")];
    if (recordNumber.vt == VT_NULL) {
        // Records without a number follow the one before them, in the 32 bits of a record
        // number (delivered as VT_I4, as WMI gives a uint32).
        recordNumber = Variant::fromInt(VT_I4, static_cast<int32_t>(lastNumber_ + 1u));
    }
    if (!records_->add(values)) {
        if (!fullReported_) {
            SimReport::atLine(setup_.file, number,
                              "the log holds no more than 4 GiB of records; this line and the "
                              "ones after it are skipped");
            fullReported_ = true;
        }
        return;
    }
    lastNumber_ = static_cast<uint32_t>(recordNumber.i);
}

void SimEventLog::records(std::shared_ptr<const SimEventRecords>& out, size_t& count) const {
    ScopedLock lock(mutex_);
    out = records_;
    count = records_->size();
}

bool SimEventLog::recordsFrom(uint64_t generation, size_t from,
                              std::vector<std::shared_ptr<const SimInstance>>& out) const {
    ScopedLock lock(mutex_);
    if (generation != generation_) {
        return false;
    }
    for (size_t i = from; i < records_->size(); ++i) {
        out.push_back(records_->instance(i));
    }
    return true;
}

void SimEventLog::position(uint64_t& generation, size_t& count) const {
    ScopedLock lock(mutex_);
    generation = generation_;
    count = records_->size();
}

}  // namespace morvax::wmi
