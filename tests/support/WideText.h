#pragma once

#include <string>

#include "util/base/Str.h"

namespace morvax::test {

// UTF-8 and the platform's wide text, for the Windows halves of the test support.
inline std::wstring wide(const std::string& text) {
    WStr converted = Str::toWide(StrSegment(text.data(), text.size()));
    return std::wstring(reinterpret_cast<const wchar_t*>(converted.data()), converted.size());
}

inline std::string narrow(const wchar_t* text, size_t length) {
    return Str::fromWide(reinterpret_cast<const char16_t*>(text), length).toStdString();
}

inline std::string narrow(const wchar_t* text) {
    return narrow(text, std::char_traits<wchar_t>::length(text));
}

}  // namespace morvax::test
