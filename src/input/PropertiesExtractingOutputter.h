#pragma once

#include <vector>

#include "input/WMIDataOutputter.h"
#include "util/base/Str.h"

namespace morvax {

// Collects the property names of each record, in record order, instead of writing events.
class PropertiesExtractingOutputter : public WMIDataOutputter {
  public:
    // `list` is the caller's and must outlive this object.
    explicit PropertiesExtractingOutputter(std::vector<Str>* list) : list_(list) {}

    void writeEvent(ResultBatch::iterator position) override;
    // It reads records.
    bool writesRows() const override { return false; }

  private:
    std::vector<Str>* list_;
};

}  // namespace morvax
