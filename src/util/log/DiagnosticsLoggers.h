#pragma once

#include <cstdarg>
#include <cstdint>

namespace morvax {

class DiagnosticsChannel;

// Gives each diagnostics channel of the folders below logging a Logger of the same name, so
// that their reports are log lines of that channel, with its level and appenders.
class DiagnosticsLoggers {
  public:
    // Installs the hook; the registry does it when it is built.
    static void install();
    // The hook: the channel's Logger, made on its first report and kept until the process ends
    // (a report may come from a static destructor).
    static void report(DiagnosticsChannel& channel, int32_t level, const char* fmt, va_list args);
};

}  // namespace morvax
