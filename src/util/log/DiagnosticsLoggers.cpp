#include "util/log/DiagnosticsLoggers.h"

#include "util/base/Diagnostics.h"
#include "util/log/Logger.h"

namespace morvax {

void DiagnosticsLoggers::install() {
    setDiagnosticsHook(&DiagnosticsLoggers::report);
}

void DiagnosticsLoggers::report(DiagnosticsChannel& channel, int32_t level, const char* fmt,
                                va_list args) {
    void* sink = channel.sink().load(std::memory_order_acquire);
    if (sink == nullptr) {
        // Made outside any lock: two first reports may race, and the loser's Logger goes.
        auto* made = new Logger(channel.name());
        if (channel.sink().compare_exchange_strong(sink, made, std::memory_order_acq_rel)) {
            sink = made;
        } else {
            delete made;
        }
    }
    static_cast<Logger*>(sink)->logV(level, fmt, args);
}

}  // namespace morvax
