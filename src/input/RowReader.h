#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "input/RowBatch.h"
#include "input/RowPlan.h"
#include "wmi/Wmi.h"

namespace morvax {

class WMIQueryProcessor;

// Reads result objects into rows of a RowBatch, as extractRecord and extractNotificationRecord
// read them into records, and with the same failures. The plan of a shape is made at its first
// object and kept while the objects keep it: the provider's shape key tells that at once, or
// else the names are compared.
class RowReader {
  public:
    explicit RowReader(RowPlan::Options options) : options_(std::move(options)) {}
    RowReader(const RowReader&) = delete;
    RowReader& operator=(const RowReader&) = delete;

    // Replaces the rows of `batch` with those of `objects`; null objects are skipped. Throws
    // WMIException.
    void read(WMIQueryProcessor& processor, const std::shared_ptr<wmi::ClassObject>* objects,
              size_t count, RowBatch& batch);

  private:
    // One object's values. `eventClassColumn`: a notification's instance, whose record has
    // EventClass; `eventClass` is its text, null when the event has none.
    void readObject(WMIQueryProcessor& processor, wmi::ClassObject& object, bool eventClassColumn,
                    const WStr* eventClass, RowBatch& batch);
    void readLines(std::span<const RowPlan::Line> lines,
                   const std::vector<RowPlan::Column>& columns, wmi::ClassObject& object,
                   const WStr* eventClass, RowBatch& batch);
    const std::shared_ptr<const RowPlan>& planFor(WMIQueryProcessor& processor,
                                                  wmi::ClassObject& object, bool eventClass);

    RowPlan::Options options_;
    std::shared_ptr<const RowPlan> plan_;
    const void* shapeKey_ = nullptr;
    // Keeps shapeKey_ from being given to another shape.
    std::shared_ptr<const void> shapeOwner_;
    std::vector<WStr> names_;
    wmi::Variant value_;
    wmi::Variant target_;
    wmi::Variant eventClass_;
};

}  // namespace morvax
