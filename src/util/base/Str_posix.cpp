#include "util/base/Str.h"
#include "util/base/Utf8.h"

namespace morvax {

// Without the platform's converters the portable coder does the work; like them it turns
// invalid input into U+FFFD and leaves errno alone.
Str& Str::appendWide(const char16_t* wide, size_t length) {
    if (length == 0) {
        return *this;
    }
    reserve(length_ + length);
    Utf8::appendUtf16AsUtf8(*this, wide, length);
    return *this;
}

void Str::appendToWide(WStr& target, const char* bytes, size_t length) {
    if (length == 0) {
        return;
    }
    target.reserve(target.size() + length);
    Utf8::appendUtf8AsUtf16(target, bytes, length);
}

}  // namespace morvax
