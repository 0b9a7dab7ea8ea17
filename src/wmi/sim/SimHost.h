#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimEventLog.h"
#include "wmi/sim/SimNamespace.h"

namespace morvax::wmi {

// One machine of the world: its namespaces, its event logs and the faults that let tests reach
// every failure path of a collector.
class SimHost {
  public:
    struct Faults {
        HRESULT connect = WBEM_S_NO_ERROR;  // what connectServer answers
        uint64_t connectDelayMs = 0;        // how long connectServer blocks first
        HRESULT execQuery = WBEM_S_NO_ERROR;
        bool nextAfter = false;       // next fails with nextAfterResult once nextAfterCount
        uint64_t nextAfterCount = 0;  // objects of one enumeration were delivered
        HRESULT nextAfterResult = WBEM_S_NO_ERROR;
        uint64_t nextDelayMs = 0;  // next answers WBEM_S_TIMEDOUT this long after the query
    };

    explicit SimHost(std::u16string name) : name_(std::move(name)) {}

    // As the world file spells it.
    const std::u16string& name() const { return name_; }
    const Faults& faults() const { return faults_; }
    Faults& faults() { return faults_; }

    // Without regard to case, either slash.
    const SimNamespace* findNamespace(const std::u16string& name) const;
    SimNamespace* findNamespace(const std::u16string& name);
    // The namespace of that name, made when it is new.
    SimNamespace& addNamespace(const std::u16string& name);

    const std::vector<std::shared_ptr<SimEventLog>>& eventLogs() const { return eventLogs_; }
    const SimEventLog* findEventLog(const std::u16string& name) const;
    void addEventLog(std::shared_ptr<SimEventLog> log) { eventLogs_.push_back(std::move(log)); }

    // "root/cimv2", "\root\cimv2\" and "root\cimv2" are one namespace.
    static std::u16string normalizeNamespace(const std::u16string& name);

  private:
    std::u16string name_;
    Faults faults_;
    std::vector<std::unique_ptr<SimNamespace>> namespaces_;
    std::vector<std::shared_ptr<SimEventLog>> eventLogs_;
};

}  // namespace morvax::wmi
