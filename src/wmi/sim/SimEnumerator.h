#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimClassObject.h"
#include "wmi/sim/SimEventRecords.h"
#include "wmi/sim/SimHost.h"
#include "wmi/wql/WqlQuery.h"

namespace morvax::wmi {

// The results of a data query, made one at a time as next() asks for them: stored instances
// and generated ones, tested against WHERE and shown through the select list. The faults of the
// host shape what next() answers. Belongs to one thread.
class SimEnumerator : public Enumerator {
  public:
    // The instances of one class (or one event log) in the order they are delivered: stored
    // ones and generated ones (index range), stored first unless `generatedFirst`, and the whole
    // of it backwards when `reverse`. The stored ones of an event log are the packed records
    // [recordsBegin, recordsEnd), made into instances as they come.
    struct Segment {
        std::shared_ptr<const SimObjectShape> shape;
        std::vector<std::shared_ptr<const SimInstance>> stored;
        std::shared_ptr<const SimEventRecords> records;
        size_t recordsBegin = 0;
        size_t recordsEnd = 0;
        uint64_t generatedBegin = 0;
        uint64_t generatedEnd = 0;
        bool generatedFirst = false;
        bool reverse = false;

        size_t storedCount() const { return records ? recordsEnd - recordsBegin : stored.size(); }
        std::shared_ptr<const SimInstance> storedAt(size_t at) const {
            return records ? records->instance(recordsBegin + at) : stored[at];
        }
    };

    SimEnumerator(std::shared_ptr<const WqlQuery> query, std::vector<Segment> segments,
                  const SimHost::Faults& faults);

    HRESULT next(long timeoutMs, unsigned count,
                 std::vector<std::shared_ptr<ClassObject>>& out) override;

  private:
    // The next object that WHERE lets through; null at the end.
    std::shared_ptr<ClassObject> find();
    // A result of `shape`: an object the reader has let go of, made again, or a new one.
    std::shared_ptr<SimClassObject> make(const std::shared_ptr<const SimObjectShape>& shape,
                                         std::shared_ptr<const SimInstance> instance,
                                         uint64_t index);
    // Takes back the objects of the last call that only this enumerator still holds.
    void reclaim();

    std::shared_ptr<const WqlQuery> query_;
    std::vector<Segment> segments_;
    SimHost::Faults faults_;
    uint64_t startMs_;

    size_t segment_ = 0;
    int part_ = 0;           // 0 or 1: which half of the segment
    uint64_t position_ = 0;  // within the part
    bool started_ = false;
    std::shared_ptr<ClassObject> pending_;
    // The objects handed out by the last call, and those free to be made again.
    std::vector<std::shared_ptr<SimClassObject>> handedOut_;
    std::vector<std::shared_ptr<SimClassObject>> spare_;
    uint64_t delivered_ = 0;
    HRESULT failure_ = WBEM_S_NO_ERROR;
};

}  // namespace morvax::wmi
