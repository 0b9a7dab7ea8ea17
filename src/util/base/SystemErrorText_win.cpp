#include <windows.h>

#include "util/base/LogFormatter.h"

namespace morvax {

namespace {

// Releases the buffer that FormatMessageW allocated, on every path.
class LocalBuffer {
  public:
    ~LocalBuffer() {
        if (text) {
            LocalFree(text);
        }
    }
    wchar_t* text = nullptr;
};

}  // namespace

bool SystemErrorText::lookup(uint32_t code, WStr& out) {
    LocalBuffer buffer;
    // Inserts are ignored: we have no arguments for them, and a message with "%1" must not fail.
    DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, static_cast<DWORD>(code), 1024, reinterpret_cast<LPWSTR>(&buffer.text), 0,
        nullptr);
    if (length == 0 || !buffer.text) {
        return false;
    }
    out.assign(reinterpret_cast<const char16_t*>(buffer.text), length);
    return true;
}

}  // namespace morvax
