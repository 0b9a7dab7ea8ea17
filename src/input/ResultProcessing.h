#pragma once

#include <cstddef>
#include <memory>

#include "input/EventRecord.h"
#include "input/RecordRecycler.h"
#include "input/WMIQueryProcessor.h"
#include "wmi/Wmi.h"

namespace morvax {

// Turns the objects of one call of Next into one batch and hands it to the processor's
// writeData, once, also when `count` is 0. A WMIException from the conversion leaves with
// nothing of the batch written.
void processResults(WMIQueryProcessor& processor, const std::shared_ptr<wmi::ClassObject>* objects,
                    size_t count);
// The same, reusing the records, entries and scratch space that earlier batches left in
// `recycler`.
void processResults(WMIQueryProcessor& processor, const std::shared_ptr<wmi::ClassObject>* objects,
                    size_t count, RecordRecycler& recycler);

// The non-system properties of `object` with their values as text (outputMode 1 and 2), or its
// class name as the only key (outputMode 0). Throws WMIException.
void extractRecord(WMIQueryProcessor& processor, EventRecord& record, wmi::ClassObject& object);

// The properties of the event's TargetInstance plus EventClass, or the object as it stands when
// it has no TargetInstance. Throws WMIException.
void extractNotificationRecord(WMIQueryProcessor& processor, EventRecord& record,
                               wmi::ClassObject& object);

// The WMIException of a failed getNames: of taking one name from the answer, or of the call.
[[noreturn]] void throwNamesFailure(WMIQueryProcessor& processor, wmi::ClassObject& object,
                                    wmi::HRESULT hr);

// The value text of every name already in `record`.
void fillValues(WMIQueryProcessor& processor, EventRecord& record, wmi::ClassObject& object);

}  // namespace morvax
