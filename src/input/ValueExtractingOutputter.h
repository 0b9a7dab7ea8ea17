#pragma once

#include <vector>

#include "input/WMIDataOutputter.h"
#include "util/base/Str.h"

namespace morvax {

// Collects one value of each record instead of writing events: the value of the named property
// where a record has it, or, with an empty name, the record's first property name (the class
// name, when the results carry only that).
class ValueExtractingOutputter : public WMIDataOutputter {
  public:
    // `list` is the caller's and must outlive this object.
    ValueExtractingOutputter(WStr propertyName, std::vector<Str>* list)
        : propertyName_(std::move(propertyName)), list_(list) {}

    void writeEvent(ResultBatch::iterator position) override;
    // It reads records.
    bool writesRows() const override { return false; }

  private:
    WStr propertyName_;
    std::vector<Str>* list_;
};

}  // namespace morvax
