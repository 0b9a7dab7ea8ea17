#include "input/ResultProcessing.h"

#include <charconv>
#include <cstdint>
#include <cstring>

#include "input/ComErrorException.h"
#include "input/WMIException.h"

namespace morvax {

namespace {

// What a failed QueryInterface answers.
constexpr wmi::HRESULT COM_E_NOINTERFACE = wmi::hresult(0x80004002);

// As VariantChangeType, where a failure is not expected and so not survivable either.
void changeTypeOrThrow(wmi::Variant& value, uint16_t vt) {
    const wmi::HRESULT hr = wmi::changeType(value, value, vt);
    if (wmi::failed(hr)) {
        throw ComErrorException(hr);
    }
}

// The digits of a number as wide text; numbers have no other characters than ASCII.
template <typename T>
void assignNumber(WStr& target, T number) {
    char digits[32];
    const auto result = std::to_chars(digits, digits + sizeof digits, number);
    target.assign(digits, result.ptr);
}

void assignAscii(WStr& target, const char* text) {
    target.assign(text, text + std::char_traits<char>::length(text));
}

void assignUnknownType(WStr& target, uint16_t vt) {
    static const char prefix[] = "<unknown variant result type ";
    char text[sizeof prefix + 8];
    std::memcpy(text, prefix, sizeof prefix - 1);
    char* end = std::to_chars(text + sizeof prefix - 1, text + sizeof text - 1, vt).ptr;
    *end++ = '>';
    target.assign(text, end);
}

// The text by which a value appears in an event. Only the types that WMI uses for numbers,
// strings and flags have a text of their own; every other type, arrays included, is named by
// its number. Numbers are printed as the platform's conversion to VT_INT or VT_UINT gives them;
// within range that is the number itself, so the conversion is only asked for out of range.
void valueText(wmi::Variant& value, WStr& target) {
    switch (value.vt) {
        case wmi::VT_NULL:
            assignAscii(target, "NULL");
            return;
        case wmi::VT_I2:
        case wmi::VT_I4:
        case wmi::VT_I1:
        case wmi::VT_INT:
            if (value.vt != wmi::VT_INT && (value.i < INT32_MIN || value.i > INT32_MAX)) {
                changeTypeOrThrow(value, wmi::VT_INT);
            }
            assignNumber(target, static_cast<int32_t>(value.i));
            return;
        case wmi::VT_BSTR:
            // Whichever way needs no allocation: both texts may be reused.
            if (target.capacity() >= value.str.size()) {
                target.assign(value.str);
            } else {
                target.swap(value.str);
            }
            return;
        case wmi::VT_BOOL:
            assignAscii(target, value.b ? "True" : "False");
            return;
        case wmi::VT_UI1:
        case wmi::VT_UI2:
        case wmi::VT_UI4:
        case wmi::VT_UINT:
            if (value.vt != wmi::VT_UINT && value.u > UINT32_MAX) {
                changeTypeOrThrow(value, wmi::VT_UINT);
            }
            assignNumber(target, static_cast<uint32_t>(value.u));
            return;
        case wmi::VT_I8:
            assignNumber(target, static_cast<long long>(value.i));
            return;
        case wmi::VT_UI8:
            assignNumber(target, static_cast<unsigned long long>(value.u));
            return;
        default:
            assignUnknownType(target, value.vt);
            return;
    }
}

// Property values into `record`'s entries, with `scratch` for the values.
void fillInto(EventRecord& record, wmi::ClassObject& object, wmi::Variant& scratch) {
    for (auto& [name, text] : record) {
        // As good as a fresh value to the object, but its text keeps its storage.
        scratch.reset();
        if (wmi::failed(object.get(name, scratch))) {
            continue;
        }
        valueText(scratch, text);
    }
}

// Without a recycler the properties join `record` as it stands. With one, `record` is empty or
// left from an earlier batch, and its entries are reused.
void extract(WMIQueryProcessor& processor, EventRecord& record, wmi::ClassObject& object,
             RecordRecycler* recycler) {
    if (processor.outputMode() == 0) {
        if (recycler) {
            recycler->takeBack(record);
        }
        wmi::Variant className;
        if (!wmi::failed(object.get(u"__CLASS", className)) && className.vt == wmi::VT_BSTR) {
            record.insert_or_assign(std::move(className.str), WStr());
        }
        return;
    }
    std::vector<WStr> ownNames;
    std::vector<WStr>& names = recycler ? recycler->names() : ownNames;
    const wmi::HRESULT hr = recycler ? object.replaceNames(names) : object.getNames(names);
    if (wmi::failed(hr)) {
        throwNamesFailure(processor, object, hr);
    }
    if (!recycler) {
        for (WStr& name : names) {
            record.try_emplace(std::move(name));
        }
        wmi::Variant scratch;
        fillInto(record, object, scratch);
        return;
    }
    if (recycler->fits(record, names)) {
        for (auto& entry : record) {
            entry.second.clear();
        }
    } else {
        recycler->takeBack(record);
        // In order, each entry goes straight behind the last.
        for (const WStr& name : recycler->sortedNames()) {
            record.insert(record.end(), recycler->entry(name));
        }
    }
    fillInto(record, object, recycler->value());
}

void extractNotification(WMIQueryProcessor& processor, EventRecord& record,
                         wmi::ClassObject& object, RecordRecycler* recycler) {
    wmi::Variant target;
    wmi::HRESULT hr = object.get(u"TargetInstance", target);
    if (hr == wmi::WBEM_E_NOT_FOUND) {
        // Not an instance event: the object is the event.
        extract(processor, record, object, recycler);
        return;
    }
    if (wmi::failed(hr)) {
        throw WMIException(hr, "Unable to retrieve \"TargetInstance\" from results",
                           processor.describe().segment());
    }
    if (target.vt != wmi::VT_UNKNOWN) {
        changeTypeOrThrow(target, wmi::VT_UNKNOWN);
    }
    std::shared_ptr<wmi::ClassObject> instance = target.object;
    if (!instance) {
        throw WMIException(COM_E_NOINTERFACE,
                           "QueryInterface on an instance of \"TargetInstance\" failed",
                           processor.describe().segment());
    }
    extract(processor, record, *instance, recycler);
    instance.reset();
    target.clear();

    wmi::Variant eventClass;
    hr = object.get(u"__Class", eventClass);
    if (hr == wmi::WBEM_E_NOT_FOUND) {
        return;
    }
    if (wmi::failed(hr)) {
        throw WMIException(
            hr, "Error occurred while trying to get value of \"__Class\" from a notification event",
            processor.describe().segment());
    }
    if (eventClass.vt != wmi::VT_BSTR) {
        return;
    }
    // "__InstanceCreationEvent" reads InstanceCreationEvent; a name of underscores only keeps
    // its last one.
    const WStr& name = eventClass.str;
    size_t start = name.find_first_not_of(u'_');
    if (start == WStr::npos) {
        start = name.empty() ? 0 : name.size() - 1;
    }
    record.try_emplace(u"EventClass", name.substr(start));
}

}  // namespace

void throwNamesFailure(WMIQueryProcessor& processor, wmi::ClassObject& object, wmi::HRESULT hr) {
    if (object.namesFailure() == wmi::ClassObject::NamesStep::GET_ELEMENT) {
        throw WMIException(hr, "Error in SafeArrayGetElement", StrSegment());
    }
    throw WMIException(hr,
                       "Error retrieving names of properties from a result returned by the WMI "
                       "provider (IWbemClassObject::GetNames)",
                       processor.describe().segment());
}

void processResults(WMIQueryProcessor& processor, const std::shared_ptr<wmi::ClassObject>* objects,
                    size_t count) {
    RecordRecycler recycler;
    processResults(processor, objects, count, recycler);
}

void processResults(WMIQueryProcessor& processor, const std::shared_ptr<wmi::ClassObject>* objects,
                    size_t count, RecordRecycler& recycler) {
    if (processor.writesObjects()) {
        processor.writeObjects(objects, count);
        return;
    }
    // The records of the last batch stay as they are, to be filled again.
    ResultBatch& batch = recycler.batch();
    size_t used = 0;
    const bool notification = processor.isNotification();
    for (size_t i = 0; i < count; ++i) {
        if (!objects[i]) {
            continue;
        }
        if (used == batch.size()) {
            batch.emplace_back();
        }
        EventRecord& record = batch[used++];
        if (notification) {
            extractNotification(processor, record, *objects[i], &recycler);
        } else {
            extract(processor, record, *objects[i], &recycler);
        }
        processor.filterRecord(record);
    }
    // Also when empty: that is how a processor learns that a query returned nothing.
    const ResultBatch::iterator first = batch.begin();
    processor.writeData(first, first + static_cast<ptrdiff_t>(used));
}

void extractRecord(WMIQueryProcessor& processor, EventRecord& record, wmi::ClassObject& object) {
    extract(processor, record, object, nullptr);
}

void extractNotificationRecord(WMIQueryProcessor& processor, EventRecord& record,
                               wmi::ClassObject& object) {
    extractNotification(processor, record, object, nullptr);
}

void fillValues(WMIQueryProcessor&, EventRecord& record, wmi::ClassObject& object) {
    wmi::Variant scratch;
    fillInto(record, object, scratch);
}

}  // namespace morvax
