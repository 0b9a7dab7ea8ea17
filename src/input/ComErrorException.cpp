#include "input/ComErrorException.h"

namespace morvax {

namespace {

Str describe(int32_t code) noexcept {
    Str text;
    try {
        text.appendFormatError(static_cast<uint32_t>(code), "COM error (error=\"%m\" HRESULT=%X)",
                               static_cast<uint32_t>(code));
    } catch (...) {
        text.clear();
    }
    return text;
}

}  // namespace

ComErrorException::ComErrorException(int32_t code) noexcept
    : BaseException(describe(code)), code_(code) {}

}  // namespace morvax
