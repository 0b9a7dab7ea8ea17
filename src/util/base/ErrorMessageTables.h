#pragma once

#include <cstdint>

namespace morvax {

// Texts for directory-service (0x80005000..0x80005014) and WMI (0x80041001..0x8004108A) result
// codes, which the system's own message tables usually do not know. Every code of both ranges
// has a text; the pointers refer to static storage.
class ErrorMessageTables {
  public:
    static constexpr uint32_t kDirectoryFirst = 0x80005000;
    static constexpr uint32_t kDirectoryLast = 0x80005014;
    static constexpr uint32_t kWmiFirst = 0x80041001;
    static constexpr uint32_t kWmiLast = 0x8004108A;

    // The text for `code` from either table, or nullptr when neither range holds it.
    static const char16_t* find(uint32_t code);
    // The text for `code` from the directory table alone, or nullptr outside its range.
    static const char16_t* directoryText(uint32_t code);
    // The text for `code` from the WMI table alone, or nullptr outside its range.
    static const char16_t* wmiText(uint32_t code);
};

}  // namespace morvax
