#include "input/WMIException.h"
#include "input/WMILogger.h"

namespace morvax {

Str formatWMIError(StrSegment message, int32_t code, StrSegment description) {
    const Str text(message);
    const Str detail(description);
    const bool described = !detail.empty();
    Str out;
    out.appendFormatError(static_cast<uint32_t>(code), "%s (error=\"%m\" HRESULT=%X)%s%s%s",
                          text.c_str(), static_cast<uint32_t>(code), described ? " (" : "",
                          described ? detail.c_str() : "", described ? ")" : "");
    return out;
}

WMIException::WMIException(int32_t code, StrSegment message, StrSegment description)
    : BaseException(formatWMIError(message, code, description)), code_(code) {
    wmiLogger().log(LOG_ERROR, this->message());
}

}  // namespace morvax
