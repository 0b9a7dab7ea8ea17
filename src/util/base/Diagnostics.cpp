#include "util/base/Diagnostics.h"

#include <cstdio>

#include "util/base/LastError.h"
#include "util/base/Str.h"

namespace morvax {

namespace {

// In a struct: on Windows va_list carries an attribute that a template argument may not.
struct HookSlot {
    DiagnosticsHook hook;
};
std::atomic<HookSlot> installedHook{HookSlot{nullptr}};

// The road without a hook: the text and CR LF on standard error, in one write.
void writeUnhooked(int32_t level, uint32_t savedError, const char* fmt, va_list args) {
    if (level < LOG_INFO) {
        return;
    }
    try {
        Str text;
        text.appendFormatErrorV(savedError, fmt, args);
        text.append("\r\n");
        std::fwrite(text.data(), 1, text.size(), stderr);
        std::fflush(stderr);
    } catch (...) {
        // A report never brings the process down.
    }
}

}  // namespace

DiagnosticsHook setDiagnosticsHook(DiagnosticsHook hook) {
    return installedHook.exchange(HookSlot{hook}, std::memory_order_acq_rel).hook;
}

void DiagnosticsChannel::logV(int32_t level, const char* fmt, va_list args) {
    if (DiagnosticsHook hook = installedHook.load(std::memory_order_acquire).hook) {
        hook(*this, level, fmt, args);
        return;
    }
    LastErrorPreserver keep;
    writeUnhooked(level, keep.saved(), fmt, args);
}

void DiagnosticsChannel::log(int32_t level, StrSegment text) {
    logFormat(level, "%.*s", static_cast<int>(text.size()), text.data());
}

void DiagnosticsChannel::logFormat(int32_t level, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    logV(level, fmt, args);
    va_end(args);
}

#define MORVAX_DIAGNOSTICS_LEVEL_CALL(method, LEVEL)        \
    void DiagnosticsChannel::method(const char* fmt, ...) { \
        va_list args;                                       \
        va_start(args, fmt);                                \
        logV(LEVEL, fmt, args);                             \
        va_end(args);                                       \
    }

MORVAX_DIAGNOSTICS_LEVEL_CALL(debug, LOG_DEBUG)
MORVAX_DIAGNOSTICS_LEVEL_CALL(warn, LOG_WARN)
MORVAX_DIAGNOSTICS_LEVEL_CALL(fatal, LOG_FATAL)

#undef MORVAX_DIAGNOSTICS_LEVEL_CALL

}  // namespace morvax
