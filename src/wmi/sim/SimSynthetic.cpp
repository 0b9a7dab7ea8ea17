#include "wmi/sim/SimSynthetic.h"

namespace morvax::wmi {

namespace {

// 1 January 2024 as days since 1 January 1970.
constexpr int64_t kBaseDays = 19723;

void appendDecimal(std::u16string& out, uint64_t value) {
    char16_t digits[20];
    size_t n = 0;
    do {
        digits[n++] = static_cast<char16_t>(u'0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (n > 0) {
        out.push_back(digits[--n]);
    }
}

void appendPadded(std::u16string& out, uint64_t value, size_t width) {
    char16_t digits[20];
    for (size_t i = width; i > 0; --i) {
        digits[i - 1] = static_cast<char16_t>(u'0' + value % 10);
        value /= 10;
    }
    out.append(digits, width);
}

std::u16string tagged(const std::u16string& prefix, uint64_t index) {
    std::u16string out;
    out.reserve(prefix.size() + 8);
    out.append(prefix);
    out.push_back(u'_');
    appendDecimal(out, index);
    return out;
}

Variant integerOf(uint16_t vt, uint64_t n) {
    switch (vt) {
        case VT_I1:
            return Variant::fromInt(vt, static_cast<int64_t>(n % 128));
        case VT_I2:
            return Variant::fromInt(vt, static_cast<int64_t>(n % 32768));
        case VT_I4:
        case VT_INT:
            return Variant::fromInt(vt, static_cast<int64_t>(n % 2147483648u));
        case VT_I8:
            return Variant::fromInt(vt, static_cast<int64_t>(n));
        case VT_UI1:
            return Variant::fromUInt(vt, n % 256);
        case VT_UI2:
            return Variant::fromUInt(vt, n % 65536);
        case VT_UI4:
        case VT_UINT:
            return Variant::fromUInt(vt, n % 4294967296u);
        default:
            return Variant::fromUInt(VT_UI8, n);
    }
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

    std::u16string out;
    out.reserve(25);
    appendPadded(out, static_cast<uint64_t>(year), 4);
    appendPadded(out, static_cast<uint64_t>(month), 2);
    appendPadded(out, static_cast<uint64_t>(day), 2);
    appendPadded(out, secondOfDay / 3600, 2);
    appendPadded(out, secondOfDay / 60 % 60, 2);
    appendPadded(out, secondOfDay % 60, 2);
    out.append(u".000000");
    out.append(offset);
    return out;
}

Variant SimSynthetic::value(size_t property, uint64_t index) const {
    if (property >= roles_.size()) {
        return Variant::null();
    }
    const Role role = roles_[property];
    if (role == Role::PLAIN) {
        return plainValue(property, index);
    }
    return recordValue(role, index);
}

Variant SimSynthetic::plainValue(size_t property, uint64_t index) const {
    const SimProperty& p = class_->properties()[property];
    const SimType element = p.type.element();
    const uint64_t n = index + property;
    Variant v;
    switch (element.cim) {
        case SimCimType::STRING:
            v = Variant::fromString(tagged(p.name, index));
            break;
        case SimCimType::DATETIME:
            v = Variant::fromString(dateTime(index));
            break;
        case SimCimType::REFERENCE: {
            std::u16string path = class_->name() + u".Index=";
            appendDecimal(path, index);
            v = Variant::fromString(std::move(path));
            break;
        }
        case SimCimType::SINT8:
            v = Variant::fromInt(VT_I2, static_cast<int64_t>(n % 128));
            break;
        case SimCimType::SINT16:
            v = Variant::fromInt(VT_I2, static_cast<int64_t>(n % 32768));
            break;
        case SimCimType::CHAR16:
            v = Variant::fromInt(VT_I2, static_cast<int64_t>(u'A' + n % 26));
            break;
        case SimCimType::UINT8:
            v = Variant::fromUInt(VT_UI1, n % 256);
            break;
        case SimCimType::UINT16:
            v = Variant::fromInt(VT_I4, static_cast<int64_t>(n % 65536));
            break;
        case SimCimType::SINT32:
        case SimCimType::UINT32:
            v = Variant::fromInt(VT_I4, static_cast<int64_t>(n % 2147483648u));
            break;
        case SimCimType::SINT64:
        case SimCimType::UINT64: {
            std::u16string text;
            appendDecimal(text, index * 1000 + property);
            v = Variant::fromString(std::move(text));
            break;
        }
        case SimCimType::REAL32:
        case SimCimType::REAL64:
            v = Variant::fromDouble(element.vt, static_cast<double>(index) + 0.5);
            break;
        case SimCimType::BOOLEAN:
            v = Variant::fromBool(n % 2 == 0);
            break;
        case SimCimType::OBJECT:
            return Variant::null();
        case SimCimType::EXPLICIT:
            switch (element.vt) {
                case VT_BSTR:
                    v = Variant::fromString(tagged(p.name, index));
                    break;
                case VT_R4:
                case VT_R8:
                    v = Variant::fromDouble(element.vt, static_cast<double>(index) + 0.5);
                    break;
                case VT_BOOL:
                    v = Variant::fromBool(n % 2 == 0);
                    break;
                case VT_UNKNOWN:
                    return Variant::null();
                default:
                    v = integerOf(element.vt, n);
                    break;
            }
            break;
    }
    if (!p.type.isArray()) {
        return v;
    }
    Variant array;
    array.vt = p.type.vt;
    array.array.push_back(std::move(v));
    return array;
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
