#include "wmi/sim/SimSynthetic.h"

#include <array>
#include <bit>
#include <iterator>
#include <string_view>

namespace morvax::wmi {

namespace {

// 1 January 2024 as days since 1 January 1970.
constexpr int64_t kBaseDays = 19723;
// "yyyymmddHHMMSS.mmmmmm"
constexpr size_t kDateTimeDigits = 21;

// "00", "01", ... "99": digits are written two at a time.
constexpr std::array<char16_t, 200> kDigitPairs = [] {
    std::array<char16_t, 200> pairs{};
    for (int i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char16_t>(u'0' + i / 10);
        pairs[2 * i + 1] = static_cast<char16_t>(u'0' + i % 10);
    }
    return pairs;
}();

// Writes `value` (below 100) as two digits at `at`.
void putTwo(char16_t* at, uint64_t value) {
    const size_t pair = static_cast<size_t>(value) * 2;
    at[0] = kDigitPairs[pair];
    at[1] = kDigitPairs[pair + 1];
}

// 1, 10, 100, ... 10^19.
constexpr std::array<uint64_t, 20> kPowersOfTen = [] {
    std::array<uint64_t, 20> powers{};
    uint64_t power = 1;
    for (uint64_t& p : powers) {
        p = power;
        power *= 10;
    }
    return powers;
}();

size_t decimalDigits(uint64_t value) {
    // The bit width tells the count of digits, or one fewer.
    const auto guess = static_cast<size_t>(std::bit_width(value | 1) * 1233 >> 12);
    return guess + ((value | 1) >= kPowersOfTen[guess] ? 1 : 0);
}

// Writes the decimal digits of `value` so that they end at `end`.
void putDecimal(char16_t* end, uint64_t value) {
    while (value >= 100) {
        const uint64_t rest = value / 100;
        end -= 2;
        putTwo(end, value - rest * 100);
        value = rest;
    }
    if (value >= 10) {
        putTwo(end - 2, value);
    } else {
        end[-1] = static_cast<char16_t>(u'0' + value);
    }
}

// "yyyymmddHHMMSS.000000" at `text`.
void putDateTime(char16_t* text, uint64_t seconds) {
    // Civil date from a day count (the proleptic Gregorian calendar).
    int64_t z = kBaseDays + static_cast<int64_t>(seconds / 86400) + 719468;
    const int64_t era = z / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const int64_t month = mp < 10 ? mp + 3 : mp - 9;
    const auto year = static_cast<uint64_t>(yoe + era * 400 + (month <= 2 ? 1 : 0));
    const uint64_t secondOfDay = seconds % 86400;

    putTwo(text, year / 100 % 100);
    putTwo(text + 2, year % 100);
    putTwo(text + 4, static_cast<uint64_t>(month));
    putTwo(text + 6, static_cast<uint64_t>(day));
    putTwo(text + 8, secondOfDay / 3600);
    putTwo(text + 10, secondOfDay / 60 % 60);
    putTwo(text + 12, secondOfDay % 60);
    std::char_traits<char16_t>::copy(text + 14, u".000000", 7);
}

// Every tenth record an error (0), every tenth after it a warning (1), the rest information (2).
uint64_t recordKind(uint64_t index) {
    const uint64_t kind = index % 10;
    return kind < 2 ? kind : 2;
}

// Values are written in place, so that a variant read into again and again keeps the storage
// of its text.
std::u16string& textOf(Variant& out) {
    out.reset();
    out.vt = VT_BSTR;
    return out.str;
}

// The text of `out`, `size` units long, to be written in place. Its storage stays from value to
// value, so this allocates only when a text outgrows it. The units are written straight into
// the string: put together elsewhere and copied, a text's narrow stores would stall the wide
// loads of the copy.
char16_t* textOf(Variant& out, size_t size) {
    std::u16string& text = textOf(out);
    text.resize(size);
    return text.data();
}

// `head`, the decimal digits of `value`, then `tail`, as the text of `out`.
void setNumbered(Variant& out, std::u16string_view head, uint64_t value,
                 std::u16string_view tail = {}) {
    using Traits = std::char_traits<char16_t>;
    const size_t count = decimalDigits(value);
    char16_t* at = textOf(out, head.size() + count + tail.size());
    Traits::copy(at, head.data(), head.size());
    putDecimal(at + head.size() + count, value);
    Traits::copy(at + head.size() + count, tail.data(), tail.size());
}

void setDateTime(Variant& out, uint64_t seconds, std::u16string_view offset) {
    char16_t* at = textOf(out, kDateTimeDigits + offset.size());
    putDateTime(at, seconds);
    std::char_traits<char16_t>::copy(at + kDateTimeDigits, offset.data(), offset.size());
}

}  // namespace

SimSynthetic::SimSynthetic(std::shared_ptr<const SimClass> cls) : class_(std::move(cls)) {
    const size_t count = class_->properties().size();
    plans_.reserve(count);
    for (size_t property = 0; property < count; ++property) {
        plans_.push_back(plainPlan(*class_, property));
    }
}

SimSynthetic::SimSynthetic(std::shared_ptr<const SimClass> cls, std::u16string logFile,
                           std::u16string computerName)
    : class_(std::move(cls)) {
    auto scalar = [](Kind kind, uint16_t vt) {
        Plan plan;
        plan.kind = kind;
        plan.vt = vt;
        return plan;
    };
    auto text = [](Kind kind, std::u16string value) {
        Plan plan;
        plan.kind = kind;
        plan.vt = VT_BSTR;
        plan.text = std::move(value);
        return plan;
    };
    Plan category = scalar(Kind::SIGNED, VT_I4);
    category.modulus = 1;  // always 0
    Plan message = text(Kind::MESSAGE, u"Synthetic event ");
    message.suffix = u" of " + logFile;
    Plan insertionStrings = scalar(Kind::NUMBER_ARRAY, VT_BSTR);
    insertionStrings.arrayVt = VT_ARRAY | VT_BSTR;

    struct Named {
        const char16_t* name;
        Plan plan;
    };
    const Named roles[] = {
        {u"Category", category},
        {u"ComputerName", text(Kind::FIXED_TEXT, computerName)},
        {u"EventCode", scalar(Kind::EVENT_CODE, VT_I4)},
        {u"EventIdentifier", scalar(Kind::EVENT_CODE, VT_I4)},
        {u"EventType", scalar(Kind::EVENT_TYPE, VT_UI1)},
        {u"InsertionStrings", insertionStrings},
        {u"Logfile", text(Kind::FIXED_TEXT, logFile)},
        {u"Message", message},
        {u"RecordNumber", scalar(Kind::RECORD_NUMBER, VT_I4)},
        {u"SourceName", text(Kind::FIXED_TEXT, u"MorvaxSim")},
        {u"TimeGenerated", text(Kind::DATETIME, u"-000")},
        {u"TimeWritten", text(Kind::DATETIME, u"-000")},
        {u"Type", scalar(Kind::TYPE, VT_BSTR)},
    };
    for (const SimProperty& property : class_->properties()) {
        Plan plan;
        for (const Named& named : roles) {
            if (SimClass::sameName(property.name, named.name)) {
                plan = named.plan;
            }
        }
        plans_.push_back(std::move(plan));
    }
}

SimSynthetic::Plan SimSynthetic::plainPlan(const SimClass& cls, size_t property) {
    const SimProperty& p = cls.properties()[property];
    const SimType element = p.type.element();
    Plan plan;
    auto number = [&plan](Kind kind, uint16_t vt, uint64_t modulus, int64_t base = 0) {
        plan.kind = kind;
        plan.vt = vt;
        plan.modulus = modulus;
        plan.base = base;
    };
    auto tagged = [&plan](std::u16string head) {
        plan.kind = Kind::TAGGED;
        plan.vt = VT_BSTR;
        plan.text = std::move(head);
    };
    switch (element.cim) {
        case SimCimType::STRING:
            tagged(p.name + u"_");
            break;
        case SimCimType::DATETIME:
            plan.kind = Kind::DATETIME;
            plan.vt = VT_BSTR;
            plan.text = u"+000";
            break;
        case SimCimType::REFERENCE:
            tagged(cls.name() + u".Index=");
            break;
        case SimCimType::SINT8:
            number(Kind::SIGNED, VT_I2, 128);
            break;
        case SimCimType::SINT16:
            number(Kind::SIGNED, VT_I2, 32768);
            break;
        case SimCimType::CHAR16:
            number(Kind::SIGNED, VT_I2, 26, u'A');
            break;
        case SimCimType::UINT8:
            number(Kind::UNSIGNED, VT_UI1, 256);
            break;
        case SimCimType::UINT16:
            number(Kind::SIGNED, VT_I4, 65536);
            break;
        case SimCimType::SINT32:
        case SimCimType::UINT32:
            number(Kind::SIGNED, VT_I4, 2147483648u);
            break;
        case SimCimType::SINT64:
        case SimCimType::UINT64:
            plan.kind = Kind::DECIMAL;
            plan.vt = VT_BSTR;
            break;
        case SimCimType::REAL32:
        case SimCimType::REAL64:
            number(Kind::REAL, element.vt, 0);
            break;
        case SimCimType::BOOLEAN:
            number(Kind::BOOL, VT_BOOL, 0);
            break;
        case SimCimType::OBJECT:
            break;
        case SimCimType::EXPLICIT:
            switch (element.vt) {
                case VT_BSTR:
                    tagged(p.name + u"_");
                    break;
                case VT_R4:
                case VT_R8:
                    number(Kind::REAL, element.vt, 0);
                    break;
                case VT_BOOL:
                    number(Kind::BOOL, VT_BOOL, 0);
                    break;
                case VT_UNKNOWN:
                    break;
                case VT_I1:
                    number(Kind::SIGNED, VT_I1, 128);
                    break;
                case VT_I2:
                    number(Kind::SIGNED, VT_I2, 32768);
                    break;
                case VT_I4:
                case VT_INT:
                    number(Kind::SIGNED, element.vt, 2147483648u);
                    break;
                case VT_I8:
                    number(Kind::SIGNED, VT_I8, 0);
                    break;
                case VT_UI1:
                    number(Kind::UNSIGNED, VT_UI1, 256);
                    break;
                case VT_UI2:
                    number(Kind::UNSIGNED, VT_UI2, 65536);
                    break;
                case VT_UI4:
                case VT_UINT:
                    number(Kind::UNSIGNED, element.vt, 4294967296u);
                    break;
                default:
                    number(Kind::UNSIGNED, VT_UI8, 0);
                    break;
            }
            break;
    }
    // An array holds the one value; there is none when its element has no value to make.
    if (p.type.isArray() && plan.kind != Kind::NUL) {
        plan.arrayVt = p.type.vt;
    }
    return plan;
}

std::u16string SimSynthetic::dateTime(uint64_t seconds, const char16_t* offset) {
    Variant out;
    setDateTime(out, seconds, offset);
    return std::move(out.str);
}

void SimSynthetic::fillScalar(const Plan& plan, size_t property, uint64_t index, Variant& out) {
    const uint64_t n = index + property;
    switch (plan.kind) {
        case Kind::NUL:
            out.reset();
            out.vt = VT_NULL;
            return;
        case Kind::TAGGED:
            setNumbered(out, plan.text, index);
            return;
        case Kind::DECIMAL:
            setNumbered(out, {}, index * 1000 + property);
            return;
        case Kind::DATETIME:
            setDateTime(out, index, plan.text);
            return;
        case Kind::SIGNED:
            out.reset();
            out.vt = plan.vt;
            out.i = static_cast<int64_t>(plan.modulus != 0 ? n % plan.modulus : n) + plan.base;
            return;
        case Kind::UNSIGNED:
            out.reset();
            out.vt = plan.vt;
            out.u = plan.modulus != 0 ? n % plan.modulus : n;
            return;
        case Kind::REAL:
            out.reset();
            out.vt = plan.vt;
            out.d = static_cast<double>(index) + 0.5;
            return;
        case Kind::BOOL:
            out.reset();
            out.vt = VT_BOOL;
            out.b = n % 2 == 0;
            return;
        case Kind::FIXED_TEXT:
            textOf(out).append(plan.text);
            return;
        case Kind::EVENT_CODE:
            out.reset();
            out.vt = VT_I4;
            out.i = static_cast<int64_t>(1000 + index % 100);
            return;
        case Kind::EVENT_TYPE:
            out.reset();
            out.vt = VT_UI1;
            out.u = recordKind(index) + 1;
            return;
        case Kind::TYPE: {
            static constexpr std::u16string_view kNames[] = {u"Error", u"Warning", u"Information"};
            textOf(out).append(kNames[recordKind(index)]);
            return;
        }
        case Kind::RECORD_NUMBER:
            out.reset();
            out.vt = VT_I4;
            out.i = static_cast<int64_t>((index + 1) % 2147483648u);
            return;
        case Kind::MESSAGE:
            setNumbered(out, plan.text, index + 1, plan.suffix);
            return;
        case Kind::NUMBER_ARRAY:
            setNumbered(out, {}, index + 1);
            return;
    }
}

Variant SimSynthetic::value(size_t property, uint64_t index) const {
    Variant v;
    fill(property, index, v);
    return v;
}

void SimSynthetic::fillOther(size_t property, uint64_t index, Variant& out) const {
    if (property >= plans_.size()) {
        out.reset();
        out.vt = VT_NULL;
        return;
    }
    fillArray(plans_[property], property, index, out);
}

void SimSynthetic::fillArray(const Plan& plan, size_t property, uint64_t index, Variant& out) {
    // The element keeps the storage of the text that was there, as the value does.
    Variant element;
    if (out.array.size() == 1) {
        element = std::move(out.array.front());
    }
    out.reset();
    out.vt = plan.arrayVt;
    fillScalar(plan, property, index, element);
    out.array.push_back(std::move(element));
}

}  // namespace morvax::wmi
