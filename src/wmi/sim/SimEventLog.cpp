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
                                                      setup_.computerName)) {
    if (!setup_.file.empty()) {
        file_ = std::make_unique<SimJsonlFile>(setup_.file);
    }
}

uint64_t SimEventLog::refresh() {
    if (!file_) {
        return 0;
    }
    ScopedLock lock(mutex_);
    for (;;) {
        const uint64_t generation = file_->refresh();
        if (generation != generation_) {
            generation_ = generation;
            records_.clear();
        }
        std::vector<SimJsonlFile::Line> lines;
        if (file_->linesFrom(generation_, records_.size(), lines)) {
            for (const SimJsonlFile::Line& line : lines) {
                records_.push_back(record(line));
            }
            return generation_;
        }
        // Rewritten by another refresh in between: take the new generation.
    }
}

std::shared_ptr<const SimInstance> SimEventLog::record(const SimJsonlFile::Line& line) const {
    const auto& cls = SimBuiltins::ntLogEvent();
    SimJsonReader reader(nullptr, u"root\\cimv2");
    std::vector<Str> problems;
    auto json = SimJsonReader::Json::parse(line.text.data(), line.text.data() + line.text.size(),
                                           nullptr, false);
    std::vector<Variant> values = reader.values(*cls, json, problems);
    for (const Str& problem : problems) {
        SimReport::atLine(setup_.file, line.number, problem.segment());
    }
    values[cls->find(u"Logfile")] = Variant::fromString(setup_.name);
    Variant& number = values[cls->find(u"RecordNumber")];
    if (number.vt == VT_NULL) {
        // Records without a number follow the one before them, in the 32 bits of a record
        // number (delivered as VT_I4, as WMI gives a uint32).
        uint32_t previous = static_cast<uint32_t>(setup_.synthetic);
        if (!records_.empty()) {
            previous =
                static_cast<uint32_t>(records_.back()->values()[cls->find(u"RecordNumber")].i);
        }
        number = Variant::fromInt(VT_I4, static_cast<int32_t>(previous + 1u));
    }
    return std::make_shared<const SimInstance>(cls, std::move(values));
}

bool SimEventLog::recordsFrom(uint64_t generation, size_t from,
                              std::vector<std::shared_ptr<const SimInstance>>& out) const {
    ScopedLock lock(mutex_);
    if (generation != generation_) {
        return false;
    }
    for (size_t i = from; i < records_.size(); ++i) {
        out.push_back(records_[i]);
    }
    return true;
}

void SimEventLog::position(uint64_t& generation, size_t& count) const {
    ScopedLock lock(mutex_);
    generation = generation_;
    count = records_.size();
}

}  // namespace morvax::wmi
