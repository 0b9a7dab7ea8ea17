#include "wmi/sim/SimBuiltins.h"

namespace morvax::wmi {

namespace {

std::shared_ptr<SimClass> makeClass(const char16_t* name, std::vector<std::u16string> derivation) {
    auto cls = std::make_shared<SimClass>(name, derivation.size() > 1 ? derivation[1] : u"");
    cls->setDerivation(std::move(derivation));
    cls->setSource(SimClass::Source::NONE);
    return cls;
}

std::vector<std::shared_ptr<const SimClass>> makeEventClasses() {
    const SimType securityDescriptor = SimTypes::cim(SimCimType::UINT8, true);
    const SimType timeCreated = SimTypes::cim(SimCimType::UINT64);
    const SimType object = SimTypes::cim(SimCimType::OBJECT);
    const std::vector<std::u16string> root = {u"__IndicationRelated", u"__SystemClass"};
    auto chain = [&](std::vector<std::u16string> head) {
        head.insert(head.end(), root.begin(), root.end());
        return head;
    };

    std::vector<std::shared_ptr<const SimClass>> out;
    for (const char16_t* name : {u"__Event", u"__ExtrinsicEvent"}) {
        auto cls = makeClass(name, chain(name == std::u16string(u"__Event")
                                             ? std::vector<std::u16string>{name}
                                             : std::vector<std::u16string>{name, u"__Event"}));
        cls->addProperty(u"SECURITY_DESCRIPTOR", securityDescriptor);
        cls->addProperty(u"TIME_CREATED", timeCreated);
        out.push_back(cls);
    }
    for (const char16_t* name : {u"__InstanceOperationEvent", u"__InstanceCreationEvent",
                                 u"__InstanceDeletionEvent", u"__InstanceModificationEvent"}) {
        std::vector<std::u16string> head = {name};
        if (name != std::u16string(u"__InstanceOperationEvent")) {
            head.push_back(u"__InstanceOperationEvent");
        }
        head.push_back(u"__Event");
        auto cls = makeClass(name, chain(std::move(head)));
        if (name == std::u16string(u"__InstanceModificationEvent")) {
            cls->addProperty(u"PreviousInstance", object);
        }
        cls->addProperty(u"SECURITY_DESCRIPTOR", securityDescriptor);
        cls->addProperty(u"TargetInstance", object);
        cls->addProperty(u"TIME_CREATED", timeCreated);
        out.push_back(cls);
    }
    auto aggregate = makeClass(u"__AggregateEvent", chain({u"__AggregateEvent"}));
    aggregate->addProperty(u"NumberOfEvents", SimTypes::cim(SimCimType::UINT32));
    aggregate->addProperty(u"Representative", object);
    out.push_back(aggregate);
    return out;
}

const std::shared_ptr<const SimClass>& byName(const char16_t* name) {
    for (const auto& cls : SimBuiltins::eventClasses()) {
        if (cls->name() == name) {
            return cls;
        }
    }
    return SimBuiltins::eventClasses().front();
}

}  // namespace

const std::shared_ptr<const SimClass>& SimBuiltins::ntLogEvent() {
    static const std::shared_ptr<const SimClass> cls = [] {
        auto c = std::make_shared<SimClass>(u"Win32_NTLogEvent", u"");
        c->setSource(SimClass::Source::EVENT_LOG);
        const struct {
            const char16_t* name;
            SimCimType type;
            bool array;
        } kSchema[] = {
            {u"Category", SimCimType::UINT16, false},
            {u"CategoryString", SimCimType::STRING, false},
            {u"ComputerName", SimCimType::STRING, false},
            {u"Data", SimCimType::UINT8, true},
            {u"EventCode", SimCimType::UINT16, false},
            {u"EventIdentifier", SimCimType::UINT32, false},
            {u"EventType", SimCimType::UINT8, false},
            {u"InsertionStrings", SimCimType::STRING, true},
            {u"Logfile", SimCimType::STRING, false},
            {u"Message", SimCimType::STRING, false},
            {u"RecordNumber", SimCimType::UINT32, false},
            {u"SourceName", SimCimType::STRING, false},
            {u"TimeGenerated", SimCimType::DATETIME, false},
            {u"TimeWritten", SimCimType::DATETIME, false},
            {u"Type", SimCimType::STRING, false},
            {u"User", SimCimType::STRING, false},
        };
        for (const auto& p : kSchema) {
            c->addProperty(p.name, SimTypes::cim(p.type, p.array));
        }
        return std::shared_ptr<const SimClass>(c);
    }();
    return cls;
}

const std::vector<std::shared_ptr<const SimClass>>& SimBuiltins::eventClasses() {
    static const std::vector<std::shared_ptr<const SimClass>> classes = makeEventClasses();
    return classes;
}

const std::shared_ptr<const SimClass>& SimBuiltins::instanceCreationEvent() {
    static const std::shared_ptr<const SimClass>& cls = byName(u"__InstanceCreationEvent");
    return cls;
}

const std::shared_ptr<const SimClass>& SimBuiltins::aggregateEvent() {
    static const std::shared_ptr<const SimClass>& cls = byName(u"__AggregateEvent");
    return cls;
}

}  // namespace morvax::wmi
