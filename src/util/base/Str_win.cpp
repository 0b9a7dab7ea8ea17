#include <windows.h>

#include <climits>

#include "util/base/Str.h"

namespace morvax {

Str& Str::appendWide(const char16_t* wide, size_t length) {
    if (length == 0 || length > static_cast<size_t>(INT_MAX)) {
        return *this;
    }
    DWORD savedError = GetLastError();
    reserve(length_ + length);
    const wchar_t* w = reinterpret_cast<const wchar_t*>(wide);
    int measure =
        WideCharToMultiByte(CP_UTF8, 0, w, static_cast<int>(length), nullptr, 0, nullptr, nullptr);
    if (measure > 0) {
        size_t old = length_;
        resize(old + static_cast<size_t>(measure));
        int written = WideCharToMultiByte(CP_UTF8, 0, w, static_cast<int>(length), data_ + old,
                                          measure, nullptr, nullptr);
        resize(old + static_cast<size_t>(written > 0 ? written : 0));
    }
    SetLastError(savedError);
    return *this;
}

void Str::appendToWide(WStr& target, const char* bytes, size_t length) {
    if (length == 0 || length > static_cast<size_t>(INT_MAX)) {
        return;
    }
    DWORD savedError = GetLastError();
    target.reserve(target.size() + length);
    int measure = MultiByteToWideChar(CP_UTF8, 0, bytes, static_cast<int>(length), nullptr, 0);
    if (measure > 0) {
        size_t old = target.size();
        target.resize(old + static_cast<size_t>(measure));
        int written = MultiByteToWideChar(CP_UTF8, 0, bytes, static_cast<int>(length),
                                          reinterpret_cast<wchar_t*>(target.data() + old), measure);
        target.resize(old + static_cast<size_t>(written > 0 ? written : 0));
    }
    SetLastError(savedError);
}

}  // namespace morvax
