#include "wmi/sim/SimClassObject.h"

#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

std::shared_ptr<SimClassObject> SimClassObject::whole(std::shared_ptr<const SimInstance> instance,
                                                      const std::u16string& nameSpace) {
    auto shape =
        std::make_shared<const SimObjectShape>(instance->simClass(), WqlProjection(), nameSpace);
    return std::make_shared<SimClassObject>(std::move(shape), std::move(instance));
}

HRESULT SimClassObject::getNames(std::vector<std::u16string>& out) {
    out = shape_->names();
    return WBEM_S_NO_ERROR;
}

Variant SimClassObject::value(size_t index) const {
    Variant v;
    fillValue(index, v);
    return v;
}

void SimClassObject::fillValue(size_t index, Variant& out) const {
    if (instance_) {
        const std::vector<Variant>& values = instance_->values();
        if (index < values.size()) {
            out = values[index];
        } else {
            out = Variant::null();
        }
        return;
    }
    const SimSynthetic* synthetic = shape_->synthetic();
    if (synthetic) {
        synthetic->fill(index, index_, out);
    } else {
        out = Variant::null();
    }
}

HRESULT SimClassObject::get(const std::u16string& name, Variant& out) {
    if (name.size() > 2 && name[0] == u'_' && name[1] == u'_') {
        return systemProperty(name, out) ? WBEM_S_NO_ERROR : WBEM_E_NOT_FOUND;
    }
    const int at = simClass().find(name);
    if (at < 0 || !shape_->selected(static_cast<size_t>(at))) {
        return WBEM_E_NOT_FOUND;
    }
    selectedValue(static_cast<size_t>(at), name, out);
    return WBEM_S_NO_ERROR;
}

HRESULT SimClassObject::getWithType(const std::u16string& name, Variant& out, int32_t& cimType) {
    cimType = CIM_EMPTY;
    const HRESULT hr = get(name, out);
    if (failed(hr)) {
        return hr;
    }
    if (name.size() > 2 && name[0] == u'_' && name[1] == u'_') {
        // System properties are text but for the two counts.
        const int32_t base = (out.vt & VT_TYPEMASK) == VT_I4 ? CIM_SINT32 : CIM_STRING;
        cimType = base | (out.isArray() ? CIM_FLAG_ARRAY : 0);
    } else {
        cimType = SimTypes::cimNumber(simClass().properties()[simClass().find(name)].type);
    }
    return hr;
}

HRESULT SimClassObject::getQualifier(const std::u16string& name, Variant& out) {
    out = Variant();
    if (!WqlText::isWord(name, "abstract") || simClass().source() != SimClass::Source::ABSTRACT) {
        return WBEM_E_NOT_FOUND;
    }
    out = Variant::fromBool(true);
    return WBEM_S_NO_ERROR;
}

HRESULT SimClassObject::getAt(size_t index, const std::u16string& name, Variant& out) {
    if (index >= shape_->names().size()) {
        return get(name, out);
    }
    // A generated instance holds no embedded object to narrow: straight to the generator.
    const SimSynthetic* synthetic = shape_->synthetic();
    if (!instance_ && synthetic) {
        synthetic->fill(shape_->property(index), index_, out);
        return WBEM_S_NO_ERROR;
    }
    selectedValue(shape_->property(index), shape_->names()[index], out);
    return WBEM_S_NO_ERROR;
}

void SimClassObject::selectedValue(size_t at, const std::u16string& name, Variant& out) const {
    fillValue(at, out);
    // An embedded object shows only what the select list names inside it.
    if (out.vt == VT_UNKNOWN && !shape_->projection().all()) {
        auto* inner = dynamic_cast<SimClassObject*>(out.object.get());
        if (inner && inner->instance_) {
            auto shape = std::make_shared<const SimObjectShape>(
                inner->shape_->simClass(), shape_->projection().nested(name), shape_->nameSpace());
            out.object = std::make_shared<SimClassObject>(std::move(shape), inner->instance_);
        }
    }
}

bool SimClassObject::systemProperty(const std::u16string& name, Variant& out) const {
    const SimClass& cls = simClass();
    const std::vector<std::u16string>& derivation = cls.derivation();
    if (WqlText::isWord(name, "__class")) {
        out = Variant::fromString(cls.name());
    } else if (WqlText::isWord(name, "__superclass")) {
        out = derivation.size() > 1 ? Variant::fromString(derivation[1]) : Variant::null();
    } else if (WqlText::isWord(name, "__dynasty")) {
        out = Variant::fromString(derivation.back());
    } else if (WqlText::isWord(name, "__derivation")) {
        out = Variant();
        out.vt = VT_ARRAY | VT_BSTR;
        for (size_t i = 1; i < derivation.size(); ++i) {
            out.array.push_back(Variant::fromString(derivation[i]));
        }
    } else if (WqlText::isWord(name, "__genus")) {
        out = Variant::fromInt(VT_I4, 2);
    } else if (WqlText::isWord(name, "__property_count")) {
        out = Variant::fromInt(VT_I4, static_cast<int64_t>(cls.properties().size()));
    } else if (WqlText::isWord(name, "__namespace")) {
        out = Variant::fromString(shape_->nameSpace());
    } else if (WqlText::isWord(name, "__path") || WqlText::isWord(name, "__relpath") ||
               WqlText::isWord(name, "__server")) {
        out = Variant::null();
    } else {
        return false;
    }
    return true;
}

bool SimClassObject::lookup(const std::u16string& name, Variant& out) const {
    if (name.size() > 2 && name[0] == u'_' && name[1] == u'_') {
        return systemProperty(name, out);
    }
    const int at = simClass().find(name);
    if (at < 0) {
        return false;
    }
    fillValue(static_cast<size_t>(at), out);
    return true;
}

bool SimClassObject::property(const std::vector<std::u16string>& path, Variant& out) const {
    if (path.empty() || !lookup(path.front(), out)) {
        return false;
    }
    for (size_t i = 1; i < path.size(); ++i) {
        if (out.vt != VT_UNKNOWN || !out.object) {
            return false;
        }
        std::shared_ptr<ClassObject> inner = std::move(out.object);
        if (auto* sim = dynamic_cast<const SimClassObject*>(inner.get())) {
            if (!sim->lookup(path[i], out)) {
                return false;
            }
        } else if (failed(inner->get(path[i], out))) {
            return false;
        }
    }
    return true;
}

bool SimClassObject::isA(const std::vector<std::u16string>& path,
                         const std::u16string& className) const {
    if (path.empty()) {
        return simClass().isA(className);
    }
    Variant target;
    if (!property(path, target) || target.vt != VT_UNKNOWN || !target.object) {
        return false;
    }
    if (auto* sim = dynamic_cast<const SimClassObject*>(target.object.get())) {
        return sim->simClass().isA(className);
    }
    Variant name;
    return !failed(target.object->get(u"__CLASS", name)) && name.vt == VT_BSTR &&
           WqlText::equalNoCase(name.str, className);
}

}  // namespace morvax::wmi
