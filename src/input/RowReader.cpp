#include "input/RowReader.h"

#include "input/ComErrorException.h"
#include "input/ResultProcessing.h"
#include "input/WMIException.h"
#include "input/WMIQueryProcessor.h"

namespace morvax {

namespace {

// What a failed QueryInterface answers.
constexpr wmi::HRESULT COM_E_NOINTERFACE = wmi::hresult(0x80004002);

}  // namespace

void RowReader::read(WMIQueryProcessor& processor, const std::shared_ptr<wmi::ClassObject>* objects,
                     size_t count, RowBatch& batch) {
    batch.clear();
    const bool notification = processor.isNotification();
    for (size_t i = 0; i < count; ++i) {
        if (!objects[i]) {
            continue;
        }
        wmi::ClassObject& object = *objects[i];
        if (!notification) {
            readObject(processor, object, false, nullptr, batch);
            continue;
        }
        target_.reset();
        wmi::HRESULT hr = object.get(u"TargetInstance", target_);
        if (hr == wmi::WBEM_E_NOT_FOUND) {
            // Not an instance event: the object is the event.
            readObject(processor, object, false, nullptr, batch);
            continue;
        }
        if (wmi::failed(hr)) {
            throw WMIException(hr, "Unable to retrieve \"TargetInstance\" from results",
                               processor.describe().segment());
        }
        if (target_.vt != wmi::VT_UNKNOWN) {
            hr = wmi::changeType(target_, target_, wmi::VT_UNKNOWN);
            if (wmi::failed(hr)) {
                throw ComErrorException(hr);
            }
        }
        const std::shared_ptr<wmi::ClassObject> instance = std::move(target_.object);
        if (!instance) {
            throw WMIException(COM_E_NOINTERFACE,
                               "QueryInterface on an instance of \"TargetInstance\" failed",
                               processor.describe().segment());
        }
        // The event's class goes into the row with the instance's values, but a failure to
        // get it counts only after the instance was read, as a record takes them.
        eventClass_.reset();
        hr = object.get(u"__Class", eventClass_);
        const bool hasClass = !wmi::failed(hr) && eventClass_.vt == wmi::VT_BSTR;
        if (hasClass) {
            // "__InstanceCreationEvent" reads InstanceCreationEvent; a name of underscores
            // only keeps its last one.
            WStr& name = eventClass_.str;
            size_t start = name.find_first_not_of(u'_');
            if (start == WStr::npos) {
                start = name.empty() ? 0 : name.size() - 1;
            }
            name.erase(0, start);
        }
        readObject(processor, *instance, true, hasClass ? &eventClass_.str : nullptr, batch);
        if (wmi::failed(hr) && hr != wmi::WBEM_E_NOT_FOUND) {
            throw WMIException(hr,
                               "Error occurred while trying to get value of \"__Class\" from a "
                               "notification event",
                               processor.describe().segment());
        }
    }
}

void RowReader::readObject(WMIQueryProcessor& processor, wmi::ClassObject& object,
                           bool eventClassColumn, const WStr* eventClass, RowBatch& batch) {
    const std::shared_ptr<const RowPlan>& plan = planFor(processor, object, eventClassColumn);
    batch.beginRow(plan);
    readLines(plan->linesBeforeFixed(), plan->columns(), object, eventClass, batch);
    batch.markFixedLines();
    readLines(plan->linesBehindFixed(), plan->columns(), object, eventClass, batch);
}

void RowReader::readLines(std::span<const RowPlan::Line> lines,
                          const std::vector<RowPlan::Column>& columns, wmi::ClassObject& object,
                          const WStr* eventClass, RowBatch& batch) {
    for (const RowPlan::Line& line : lines) {
        if (line.index == RowPlan::kEventClass) {
            if (eventClass) {
                value_.reset();
                value_.vt = wmi::VT_BSTR;
                value_.str = *eventClass;
                batch.addValue(line, value_);
            } else {
                batch.addAbsent(line);
            }
            continue;
        }
        // The object replaces the value whole, and its text keeps its storage.
        const WStr& name = columns[line.slot].name;
        const wmi::HRESULT hr =
            line.byName ? object.get(name, value_) : object.getAt(line.index, name, value_);
        if (wmi::failed(hr)) {
            batch.addEmpty(line);
            continue;
        }
        batch.addValue(line, value_);
    }
}

const std::shared_ptr<const RowPlan>& RowReader::planFor(WMIQueryProcessor& processor,
                                                         wmi::ClassObject& object,
                                                         bool eventClass) {
    const void* key = object.shapeKey();
    if (plan_ && key != nullptr && key == shapeKey_ && plan_->eventClass() == eventClass) {
        return plan_;
    }
    const wmi::HRESULT hr = object.replaceNames(names_);
    if (wmi::failed(hr)) {
        throwNamesFailure(processor, object, hr);
    }
    if (!plan_ || plan_->eventClass() != eventClass || plan_->names() != names_) {
        plan_ = std::make_shared<const RowPlan>(names_, eventClass, options_);
    }
    if (key != shapeKey_) {
        shapeKey_ = key;
        shapeOwner_ = key != nullptr ? object.shapeOwner() : nullptr;
    }
    return plan_;
}

}  // namespace morvax
