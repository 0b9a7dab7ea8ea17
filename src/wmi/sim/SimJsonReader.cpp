#include "wmi/sim/SimJsonReader.h"

#include <nlohmann/json.hpp>

#include "wmi/sim/SimClassObject.h"
#include "wmi/sim/SimReport.h"
#include "wmi/wql/WqlText.h"

namespace morvax::wmi {

namespace {

// A scalar as the type conversions take it; false for arrays and objects.
bool raw(const SimJsonReader::Json& json, Variant& out) {
    switch (json.type()) {
        case nlohmann::json::value_t::null:
            out = Variant::null();
            return true;
        case nlohmann::json::value_t::boolean:
            out = Variant::fromBool(json.get<bool>());
            return true;
        case nlohmann::json::value_t::number_integer:
            out = Variant::fromInt(VT_I8, json.get<int64_t>());
            return true;
        case nlohmann::json::value_t::number_unsigned: {
            const uint64_t u = json.get<uint64_t>();
            out = u <= static_cast<uint64_t>(INT64_MAX)
                      ? Variant::fromInt(VT_I8, static_cast<int64_t>(u))
                      : Variant::fromUInt(VT_UI8, u);
            return true;
        }
        case nlohmann::json::value_t::number_float:
            out = Variant::fromDouble(VT_R8, json.get<double>());
            return true;
        case nlohmann::json::value_t::string:
            out = Variant::fromString(SimJsonReader::wide(json.get_ref<const std::string&>()));
            return true;
        default:
            return false;
    }
}

const char* kindOf(const SimJsonReader::Json& json) {
    return json.type_name();
}

bool ignored(const std::string& key, const std::vector<const char*>& ignore) {
    Str lower(key.data(), key.size());
    lower.toLower();
    for (const char* name : ignore) {
        if (lower == name) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::u16string SimJsonReader::wide(const std::string& utf8) {
    return Str::toWide(StrSegment(utf8.data(), utf8.size()));
}

bool SimJsonReader::objectOfLine(const std::filesystem::path& file, uint32_t number,
                                 StrSegment text, Json& out) {
    try {
        out = Json::parse(text.data(), text.data() + text.size());
    } catch (const Json::exception& e) {
        SimReport::atLine(file, number, Str::printf("%s; line skipped", e.what()).segment());
        return false;
    }
    if (!out.is_object()) {
        SimReport::atLine(file, number, "not a JSON object; line skipped");
        return false;
    }
    return true;
}

bool SimJsonReader::Nesting::ok(Str& why) const {
    if (depth_ <= kMaxNesting) {
        return true;
    }
    why.format("arrays and objects nest deeper than %d levels", kMaxNesting);
    return false;
}

bool SimJsonReader::value(const Json& json, const SimType& type, Variant& out, Str& why) const {
    out = Variant::null();
    if (json.is_null()) {
        return true;
    }
    const Nesting level(depth_);
    if (json.is_structured() && !level.ok(why)) {
        return false;
    }
    if (type.isArray()) {
        if (!json.is_array()) {
            why.format("an array was expected, not a %s", kindOf(json));
            return false;
        }
        Variant array;
        array.vt = type.vt;
        for (const Json& element : json) {
            Variant v;
            if (!value(element, type.element(), v, why)) {
                return false;
            }
            if (v.vt == VT_NULL) {
                why = "an array cannot hold null";
                return false;
            }
            array.array.push_back(std::move(v));
        }
        out = std::move(array);
        return true;
    }
    if (type.vt == VT_UNKNOWN) {
        if (!json.is_object()) {
            why.format("an object was expected, not a %s", kindOf(json));
            return false;
        }
        std::vector<Str> problems;
        auto inner = embedded(json, problems);
        if (!problems.empty()) {
            why = problems.front();
            return false;
        }
        out = Variant::fromObject(SimClassObject::whole(std::move(inner), nameSpace_));
        return true;
    }
    Variant scalar;
    if (!raw(json, scalar)) {
        why.format("a %s cannot be a value of this type", kindOf(json));
        return false;
    }
    const HRESULT hr = SimTypes::convert(scalar, type, out);
    if (failed(hr)) {
        out = Variant::null();
        why.format("%s does not fit the type (%s)", json.dump().c_str(),
                   hr == COM_DISP_E_OVERFLOW ? "out of range" : "type mismatch");
        return false;
    }
    return true;
}

bool SimJsonReader::untyped(const Json& json, Variant& out, Str& why) const {
    out = Variant::null();
    if (json.is_object()) {
        return value(json, SimTypes::cim(SimCimType::OBJECT), out, why);
    }
    if (json.is_array()) {
        if (json.empty()) {
            out.vt = VT_ARRAY | VT_BSTR;
            return true;
        }
        Variant first;
        {
            const Nesting level(depth_);
            if (!level.ok(why) || !untyped(json.front(), first, why)) {
                return false;
            }
        }
        if (first.isArray() || first.vt == VT_NULL) {
            why = "an array must hold scalars or objects";
            return false;
        }
        return value(json, SimTypes::explicitVt(static_cast<uint16_t>(first.vt | VT_ARRAY)), out,
                     why);
    }
    Variant scalar;
    raw(json, scalar);
    out = SimTypes::untyped(scalar);
    return true;
}

std::shared_ptr<const SimInstance> SimJsonReader::instance(
    const std::shared_ptr<const SimClass>& cls, const Json& object, std::vector<Str>& problems,
    const std::vector<const char*>& ignore) const {
    return std::make_shared<const SimInstance>(cls, values(*cls, object, problems, ignore));
}

std::vector<Variant> SimJsonReader::values(const SimClass& cls, const Json& object,
                                           std::vector<Str>& problems,
                                           const std::vector<const char*>& ignore) const {
    std::vector<Variant> values(cls.properties().size(), Variant::null());
    for (auto it = object.begin(); it != object.end(); ++it) {
        const std::u16string name = wide(it.key());
        const int at = cls.find(name);
        if (at < 0) {
            if (!ignored(it.key(), ignore) && !WqlText::isWord(name, "__class")) {
                problems.push_back(Str::printf("class %S has no property \"%s\"; left out",
                                               cls.name().c_str(), it.key().c_str()));
            }
            continue;
        }
        Str why;
        if (!value(it.value(), cls.properties()[at].type, values[at], why)) {
            problems.push_back(Str::printf("property \"%s\": %s", it.key().c_str(), why.c_str()));
        }
    }
    return values;
}

std::shared_ptr<const SimInstance> SimJsonReader::embedded(const Json& object,
                                                           std::vector<Str>& problems) const {
    std::u16string className;
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (WqlText::isWord(wide(it.key()), "__class") && it.value().is_string()) {
            className = wide(it.value().get<std::string>());
            if (!WqlText::isName(className)) {
                problems.push_back(Str::printf("class name \"%s\" is not a WMI name; left out",
                                               it.value().get<std::string>().c_str()));
                className.clear();
            }
        }
    }
    if (ns_ && !className.empty()) {
        if (auto cls = ns_->find(className)) {
            return instance(cls, object, problems);
        }
    }
    auto adHoc = std::make_shared<SimClass>(className, u"");
    adHoc->setSource(SimClass::Source::NONE);
    std::vector<Variant> values;
    for (auto it = object.begin(); it != object.end(); ++it) {
        const std::u16string name = wide(it.key());
        if (WqlText::isWord(name, "__class") || adHoc->find(name) >= 0) {
            continue;
        }
        // Such a name would reach the event stream as it stands.
        if (!WqlText::isName(name)) {
            problems.push_back(
                Str::printf("property name \"%s\" is not a WMI name; left out", it.key().c_str()));
            continue;
        }
        Variant v;
        Str why;
        if (!untyped(it.value(), v, why)) {
            problems.push_back(Str::printf("property \"%s\": %s", it.key().c_str(), why.c_str()));
        }
        // A null value says nothing of its type; text is what WMI would show of it.
        SimType type = SimTypes::explicitVt(v.vt == VT_NULL ? uint16_t{VT_BSTR} : v.vt);
        adHoc->addProperty(name, type);
        values.push_back(std::move(v));
    }
    return std::make_shared<const SimInstance>(std::move(adHoc), std::move(values));
}

}  // namespace morvax::wmi
