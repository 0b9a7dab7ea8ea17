#pragma once

#include <cstddef>
#include <vector>

#include "input/EventRecord.h"
#include "wmi/Wmi.h"

namespace morvax {

// What converting one batch of results leaves for the next: the batch's records, the entries
// of records already written, and room for names and values. Entries keep the storage of their
// texts, so once the first batches are through, a long enumeration hardly allocates.
class RecordRecycler {
  public:
    RecordRecycler() = default;
    RecordRecycler(const RecordRecycler&) = delete;
    RecordRecycler& operator=(const RecordRecycler&) = delete;

    // An entry named `name` with an empty value, for insertion into a record.
    EventRecord::node_type entry(const WStr& name);
    // Keeps `entry` for a later one; beyond a bound it is let go.
    void keep(EventRecord::node_type entry);
    // Keeps every entry of `record`, which is left empty.
    void takeBack(EventRecord& record);

    // Whether `record` has an entry for each of `names` and no other. Afterwards sortedNames()
    // are `names` in a record's order without repeats. Objects of one query mostly have the
    // same names, so that sorting is seldom done again.
    bool fits(const EventRecord& record, const std::vector<WStr>& names);
    const std::vector<WStr>& sortedNames() const { return sortedNames_; }

    // The records of a batch: those in use and the empty ones left from earlier batches.
    ResultBatch& batch() { return batch_; }
    // Scratch space for the names of an object and the value of a property.
    std::vector<WStr>& names() { return names_; }
    wmi::Variant& value() { return value_; }

  private:
    std::vector<EventRecord::node_type> spare_;
    ResultBatch batch_;
    std::vector<WStr> names_;
    std::vector<WStr> lastNames_;
    std::vector<WStr> sortedNames_;
    wmi::Variant value_;
};

}  // namespace morvax
