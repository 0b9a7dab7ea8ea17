#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "util/thread/Mutex.h"
#include "wmi/Wmi.h"
#include "wmi/sim/SimInstance.h"

namespace morvax::wmi {

// The records of one generation of an event-log file, packed: the values of each record in one
// compact encoding in a shared byte buffer, made into an instance again only when it is
// delivered, and its record number beside it so that a query for a few numbers finds them
// without decoding the rest. Records are only ever added. Safe to share between threads.
class SimEventRecords {
  public:
    // Offsets are 32 bits: a generation holds at most this many bytes of packed values.
    static constexpr uint64_t kMaxBytes = UINT32_MAX;

    // `cls` has a RecordNumber property.
    explicit SimEventRecords(std::shared_ptr<const SimClass> cls);

    // One value per property of the class. Embedded objects, which records do not have, are
    // kept as null. False, and nothing added, once the generation is full.
    bool add(const std::vector<Variant>& values);
    size_t size() const;
    std::shared_ptr<const SimInstance> instance(size_t index) const;
    // Of the first `count` records, the index range [begin, end) outside which none has a
    // RecordNumber in [low, high]: all of them unless the numbers ascend.
    void narrow(size_t count, int64_t low, int64_t high, size_t& begin, size_t& end) const;

  private:
    std::shared_ptr<const SimClass> class_;
    int recordNumber_;
    mutable Mutex mutex_;
    std::vector<char> bytes_;
    std::vector<uint32_t> offsets_;
    std::vector<int32_t> numbers_;
    bool ascending_ = true;
};

}  // namespace morvax::wmi
