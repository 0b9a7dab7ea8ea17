#include <cstring>

#include "util/base/LogFormatter.h"

namespace morvax {

namespace {

// Texts of the platform's messages for the HRESULTs that reach the collector most often; the
// Linux build has no system message table for them.
struct CommonText {
    uint32_t code;
    const char16_t* text;
};

constexpr CommonText kCommonTexts[] = {
    {0x00000000u, u"The operation completed successfully."},
    {0x80004001u, u"Not implemented"},
    {0x80004002u, u"No such interface supported"},
    {0x80004003u, u"Invalid pointer"},
    {0x80004004u, u"Operation aborted"},
    {0x80004005u, u"Unspecified error"},
    {0x8000FFFFu, u"Catastrophic failure"},
    {0x80010106u, u"Cannot change thread mode after it is set."},
    {0x80010119u,
     u"Security must be initialized before any interfaces are marshalled or unmarshalled. It "
     u"cannot be changed once initialized."},
    {0x80040154u, u"Class not registered"},
    {0x80070002u, u"The system cannot find the file specified."},
    {0x80070005u, u"Access is denied."},
    {0x80070006u, u"The handle is invalid."},
    {0x8007000Eu, u"Not enough memory resources are available to complete this operation."},
    {0x80070057u, u"The parameter is incorrect."},
    {0x800706BAu, u"The RPC server is unavailable."},
    {0x800706BEu, u"The remote procedure call failed."},
    {0x800706BFu, u"The remote procedure call failed and did not execute."},
    {0x80070422u,
     u"The service cannot be started, either because it is disabled or because it has no enabled "
     u"devices associated with it."},
    {0x800705B4u, u"This operation returned because the timeout period expired."},
};

}  // namespace

bool SystemErrorText::lookup(uint32_t code, WStr& out) {
    if (code >= 1 && code <= 4095) {
        char buf[256];
        // GNU strerror_r may return a static text instead of filling the buffer.
        const char* text = strerror_r(static_cast<int>(code), buf, sizeof buf);
        if (!text || !*text) {
            return false;
        }
        out.clear();
        Str::appendToWide(out, text, std::strlen(text));
        return true;
    }
    for (const CommonText& row : kCommonTexts) {
        if (row.code == code) {
            out = row.text;
            return true;
        }
    }
    return false;
}

}  // namespace morvax
