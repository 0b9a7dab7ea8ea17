#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "wmi/Wmi.h"
#include "wmi/sim/SimClass.h"

namespace morvax::wmi {

// The values of generated instances: a pure function of the property and the index, computed
// when asked for, so that a million objects cost no memory and little time.
class SimSynthetic {
  public:
    // Instances of an ordinary class.
    explicit SimSynthetic(std::shared_ptr<const SimClass> cls);
    // Records of event log `logFile` (the class is Win32_NTLogEvent); record n has number n+1.
    SimSynthetic(std::shared_ptr<const SimClass> cls, std::u16string logFile,
                 std::u16string computerName);

    const std::shared_ptr<const SimClass>& simClass() const { return class_; }
    Variant value(size_t property, uint64_t index) const;
    // As value(), into `out`, whose text storage it reuses: no allocation once the text fits.
    // Inline, as it runs for every value of every generated object.
    void fill(size_t property, uint64_t index, Variant& out) const {
        if (property < plans_.size() && plans_[property].arrayVt == VT_NULL) {
            fillScalar(plans_[property], property, index, out);
        } else {
            fillOther(property, index, out);
        }
    }

    // The DMTF text ("yyyymmddHHMMSS.mmmmmmsUUU") of `seconds` after 1 January 2024 UTC.
    static std::u16string dateTime(uint64_t seconds, const char16_t* offset = u"+000");

  private:
    // How one property's value is made; worked out once per class, so that a value costs only
    // its arithmetic and the writing of its text.
    enum class Kind : uint8_t {
        NUL,            // no value to make: null
        TAGGED,         // text: `text`, then the index
        DECIMAL,        // text: index * 1000 + property
        DATETIME,       // text: the date `index` seconds on, with offset `text`
        SIGNED,         // `i`: (index + property) % modulus + base
        UNSIGNED,       // `u`: (index + property) % modulus
        REAL,           // `d`: index + 0.5
        BOOL,           // `b`: index + property is even
        FIXED_TEXT,     // text: `text`
        EVENT_CODE,     // `i`: 1000 + index % 100
        EVENT_TYPE,     // `u`: 1, 2 or 3 by the record's kind
        TYPE,           // text: the name of the record's kind
        RECORD_NUMBER,  // `i`: index + 1, in 31 bits
        MESSAGE,        // text: `text`, the record number, `suffix`
        NUMBER_ARRAY,   // one text element: the record number
    };

    struct Plan {
        Kind kind = Kind::NUL;
        uint16_t vt = VT_NULL;       // of the value, or of its element in an array
        uint16_t arrayVt = VT_NULL;  // the array's type; VT_NULL for a scalar
        uint64_t modulus = 0;        // 0: none
        int64_t base = 0;
        std::u16string text;
        std::u16string suffix;
    };

    static Plan plainPlan(const SimClass& cls, size_t property);
    static void fillScalar(const Plan& plan, size_t property, uint64_t index, Variant& out);
    static void fillArray(const Plan& plan, size_t property, uint64_t index, Variant& out);
    // fill for an array or a property beyond the class.
    void fillOther(size_t property, uint64_t index, Variant& out) const;

    std::shared_ptr<const SimClass> class_;
    std::vector<Plan> plans_;
};

}  // namespace morvax::wmi
