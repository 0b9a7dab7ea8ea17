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
    // As value(), into `out`, whose text storage it reuses.
    void fill(size_t property, uint64_t index, Variant& out) const;

    // The DMTF text ("yyyymmddHHMMSS.mmmmmmsUUU") of `seconds` after 1 January 2024 UTC.
    static std::u16string dateTime(uint64_t seconds, const char16_t* offset = u"+000");

  private:
    enum class Role : uint8_t {
        PLAIN,
        CATEGORY,
        COMPUTER_NAME,
        EVENT_CODE,
        EVENT_TYPE,
        INSERTION_STRINGS,
        LOGFILE,
        MESSAGE,
        RECORD_NUMBER,
        SOURCE_NAME,
        TIME,
        TYPE,
        NONE,
    };

    void fillPlain(size_t property, uint64_t index, Variant& out) const;
    Variant recordValue(Role role, uint64_t index) const;

    std::shared_ptr<const SimClass> class_;
    std::vector<Role> roles_;
    std::u16string logFile_;
    std::u16string computerName_;
};

}  // namespace morvax::wmi
