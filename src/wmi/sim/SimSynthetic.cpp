#include "wmi/sim/SimSynthetic.h"

namespace morvax::wmi {

namespace {

// 1 January 2024 as days since 1 January 1970.
constexpr int64_t kBaseDays = 19723;

void appendDecimal(std::u16string& out, uint64_t value) {
    char16_t digits[20];
    char16_t* const end = digits + 20;
    char16_t* first = end;
    do {
        *--first = static_cast<char16_t>(u'0' + value % 10);
        value /= 10;
    } while (value != 0);
    out.append(first, static_cast<size_t>(end - first));
}

// Writes `value` as `width` digits at `at`.
void putPadded(char16_t* at, uint64_t value, size_t width) {
    for (size_t i = width; i > 0; --i) {
        at[i - 1] = static_cast<char16_t>(u'0' + value % 10);
        value /= 10;
    }
}

void appendTagged(std::u16string& out, const std::u16string& prefix, uint64_t index) {
    out.reserve(out.size() + prefix.size() + 8);
    out.append(prefix);
    out.push_back(u'_');
    appendDecimal(out, index);
}

void appendDateTime(std::u16string& out, uint64_t seconds, const char16_t* offset) {
    // Civil date from a day count (the proleptic Gregorian calendar).
    int64_t z = kBaseDays + static_cast<int64_t>(seconds / 86400) + 719468;
    const int64_t era = z / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const int64_t month = mp < 10 ? mp + 3 : mp - 9;
    const int64_t year = yoe + era * 400 + (month <= 2 ? 1 : 0);
    const uint64_t secondOfDay = seconds % 86400;

    char16_t text[] = u"yyyymmddHHMMSS.000000";
    putPadded(text, static_cast<uint64_t>(year), 4);
    putPadded(text + 4, static_cast<uint64_t>(month), 2);
    putPadded(text + 6, static_cast<uint64_t>(day), 2);
    putPadded(text + 8, secondOfDay / 3600, 2);
    putPadded(text + 10, secondOfDay / 60 % 60, 2);
    putPadded(text + 12, secondOfDay % 60, 2);
    const size_t offsetLength = std::char_traits<char16_t>::length(offset);
    out.reserve(out.size() + 21 + offsetLength);
    out.append(text, 21);
    out.append(offset, offsetLength);
}

// Values are written in place, so that a variant read into again and again keeps the storage
// of its text.
std::u16string& textOf(Variant& out) {
    out.reset();
    out.vt = VT_BSTR;
    return out.str;
}

void setSigned(Variant& out, uint16_t vt, int64_t value) {
    out.reset();
    out.vt = vt;
    out.i = value;
}

void setUnsigned(Variant& out, uint16_t vt, uint64_t value) {
    out.reset();
    out.vt = vt;
    out.u = value;
}

void setReal(Variant& out, uint16_t vt, double value) {
    out.reset();
    out.vt = vt;
    out.d = value;
}

void setBool(Variant& out, bool value) {
    out.reset();
    out.vt = VT_BOOL;
    out.b = value;
}

void setInteger(Variant& out, uint16_t vt, uint64_t n) {
    switch (vt) {
        case VT_I1:
            setSigned(out, vt, static_cast<int64_t>(n % 128));
            return;
        case VT_I2:
            setSigned(out, vt, static_cast<int64_t>(n % 32768));
            return;
        case VT_I4:
        case VT_INT:
            setSigned(out, vt, static_cast<int64_t>(n % 2147483648u));
            return;
        case VT_I8:
            setSigned(out, vt, static_cast<int64_t>(n));
            return;
        case VT_UI1:
            setUnsigned(out, vt, n % 256);
            return;
        case VT_UI2:
            setUnsigned(out, vt, n % 65536);
            return;
        case VT_UI4:
        case VT_UINT:
            setUnsigned(out, vt, n % 4294967296u);
            return;
        default:
            setUnsigned(out, VT_UI8, n);
            return;
    }
}

// One value of a generated instance, or of an element of an array; false when the property
// has no value to make (embedded objects).
bool fillElement(const SimClass& cls, size_t property, uint64_t index, Variant& v) {
    const SimProperty& p = cls.properties()[property];
    const SimType element = p.type.element();
    const uint64_t n = index + property;
    switch (element.cim) {
        case SimCimType::STRING:
            appendTagged(textOf(v), p.name, index);
            return true;
        case SimCimType::DATETIME:
            appendDateTime(textOf(v), index, u"+000");
            return true;
        case SimCimType::REFERENCE: {
            std::u16string& path = textOf(v);
            path.append(cls.name());
            path.append(u".Index=");
            appendDecimal(path, index);
            return true;
        }
        case SimCimType::SINT8:
            setSigned(v, VT_I2, static_cast<int64_t>(n % 128));
            return true;
        case SimCimType::SINT16:
            setSigned(v, VT_I2, static_cast<int64_t>(n % 32768));
            return true;
        case SimCimType::CHAR16:
            setSigned(v, VT_I2, static_cast<int64_t>(u'A' + n % 26));
            return true;
        case SimCimType::UINT8:
            setUnsigned(v, VT_UI1, n % 256);
            return true;
        case SimCimType::UINT16:
            setSigned(v, VT_I4, static_cast<int64_t>(n % 65536));
            return true;
        case SimCimType::SINT32:
        case SimCimType::UINT32:
            setSigned(v, VT_I4, static_cast<int64_t>(n % 2147483648u));
            return true;
        case SimCimType::SINT64:
        case SimCimType::UINT64:
            appendDecimal(textOf(v), index * 1000 + property);
            return true;
        case SimCimType::REAL32:
        case SimCimType::REAL64:
            setReal(v, element.vt, static_cast<double>(index) + 0.5);
            return true;
        case SimCimType::BOOLEAN:
            setBool(v, n % 2 == 0);
            return true;
        case SimCimType::OBJECT:
            return false;
        case SimCimType::EXPLICIT:
            switch (element.vt) {
                case VT_BSTR:
                    appendTagged(textOf(v), p.name, index);
                    return true;
                case VT_R4:
                case VT_R8:
                    setReal(v, element.vt, static_cast<double>(index) + 0.5);
                    return true;
                case VT_BOOL:
                    setBool(v, n % 2 == 0);
                    return true;
                case VT_UNKNOWN:
                    return false;
                default:
                    setInteger(v, element.vt, n);
                    return true;
            }
    }
    v.reset();
    return true;
}

}  // namespace

SimSynthetic::SimSynthetic(std::shared_ptr<const SimClass> cls) : class_(std::move(cls)) {
    roles_.assign(class_->properties().size(), Role::PLAIN);
}

SimSynthetic::SimSynthetic(std::shared_ptr<const SimClass> cls, std::u16string logFile,
                           std::u16string computerName)
    : class_(std::move(cls)), logFile_(std::move(logFile)), computerName_(std::move(computerName)) {
    struct Named {
        const char16_t* name;
        Role role;
    };
    static const Named kRoles[] = {
        {u"Category", Role::CATEGORY},
        {u"ComputerName", Role::COMPUTER_NAME},
        {u"EventCode", Role::EVENT_CODE},
        {u"EventIdentifier", Role::EVENT_CODE},
        {u"EventType", Role::EVENT_TYPE},
        {u"InsertionStrings", Role::INSERTION_STRINGS},
        {u"Logfile", Role::LOGFILE},
        {u"Message", Role::MESSAGE},
        {u"RecordNumber", Role::RECORD_NUMBER},
        {u"SourceName", Role::SOURCE_NAME},
        {u"TimeGenerated", Role::TIME},
        {u"TimeWritten", Role::TIME},
        {u"Type", Role::TYPE},
    };
    for (const SimProperty& property : class_->properties()) {
        Role role = Role::NONE;
        for (const Named& named : kRoles) {
            if (SimClass::sameName(property.name, named.name)) {
                role = named.role;
            }
        }
        roles_.push_back(role);
    }
}

std::u16string SimSynthetic::dateTime(uint64_t seconds, const char16_t* offset) {
    std::u16string out;
    appendDateTime(out, seconds, offset);
    return out;
}

Variant SimSynthetic::value(size_t property, uint64_t index) const {
    Variant v;
    fill(property, index, v);
    return v;
}

void SimSynthetic::fill(size_t property, uint64_t index, Variant& out) const {
    if (property >= roles_.size()) {
        out = Variant::null();
        return;
    }
    const Role role = roles_[property];
    if (role == Role::PLAIN) {
        fillPlain(property, index, out);
        return;
    }
    out = recordValue(role, index);
}

void SimSynthetic::fillPlain(size_t property, uint64_t index, Variant& out) const {
    const SimType& type = class_->properties()[property].type;
    if (!type.isArray()) {
        if (!fillElement(*class_, property, index, out)) {
            out = Variant::null();
        }
        return;
    }
    Variant item;
    if (!fillElement(*class_, property, index, item)) {
        out = Variant::null();
        return;
    }
    out.reset();
    out.vt = type.vt;
    out.array.push_back(std::move(item));
}

Variant SimSynthetic::recordValue(Role role, uint64_t index) const {
    const uint64_t number = index + 1;
    // Every tenth record an error, every tenth after it a warning, the rest information.
    const uint64_t kind = index % 10;
    switch (role) {
        case Role::CATEGORY:
            return Variant::fromInt(VT_I4, 0);
        case Role::COMPUTER_NAME:
            return Variant::fromString(computerName_);
        case Role::EVENT_CODE:
            return Variant::fromInt(VT_I4, static_cast<int64_t>(1000 + index % 100));
        case Role::EVENT_TYPE:
            return Variant::fromUInt(VT_UI1, kind == 0 ? 1 : kind == 1 ? 2 : 3);
        case Role::INSERTION_STRINGS: {
            Variant array;
            array.vt = VT_ARRAY | VT_BSTR;
            std::u16string text;
            appendDecimal(text, number);
            array.array.push_back(Variant::fromString(std::move(text)));
            return array;
        }
        case Role::LOGFILE:
            return Variant::fromString(logFile_);
        case Role::MESSAGE: {
            std::u16string text = u"Synthetic event ";
            appendDecimal(text, number);
            text.append(u" of ");
            text.append(logFile_);
            return Variant::fromString(std::move(text));
        }
        case Role::RECORD_NUMBER:
            return Variant::fromInt(VT_I4, static_cast<int64_t>(number % 2147483648u));
        case Role::SOURCE_NAME:
            return Variant::fromString(u"MorvaxSim");
        case Role::TIME:
            return Variant::fromString(dateTime(index, u"-000"));
        case Role::TYPE:
            return Variant::fromString(kind == 0   ? u"Error"
                                       : kind == 1 ? u"Warning"
                                                   : u"Information");
        case Role::PLAIN:
        case Role::NONE:
            break;
    }
    return Variant::null();
}

}  // namespace morvax::wmi
