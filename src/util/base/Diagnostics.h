#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "util/base/LogLevel.h"
#include "util/base/StrSegment.h"

namespace morvax {

class DiagnosticsChannel;

// Receives every report of the folders below logging. Logging installs one when its registry
// is built, so that a report becomes a line of the Logger of the channel's name.
using DiagnosticsHook = void (*)(DiagnosticsChannel& channel, int32_t level, const char* fmt,
                                 va_list args);

// Installs `hook` (null: none) and returns the one it replaces.
DiagnosticsHook setDiagnosticsHook(DiagnosticsHook hook);

// A named source of warnings in a folder that may not reach up to the log system: a static
// object of its module, like a Logger. Without a hook (before logging exists, or in a program
// without it) a report at INFO or above goes to standard error as its text and CR LF, as an
// unconfigured log line does. A report keeps the caller's last-error value, which `%m` prints.
class DiagnosticsChannel {
  public:
    // `name` is not copied: it must outlive the object (a literal, in practice).
    explicit constexpr DiagnosticsChannel(const char* name) : name_(name) {}
    DiagnosticsChannel(const DiagnosticsChannel&) = delete;
    DiagnosticsChannel& operator=(const DiagnosticsChannel&) = delete;

    const char* name() const { return name_; }

    void debug(const char* fmt, ...);
    void warn(const char* fmt, ...);
    void fatal(const char* fmt, ...);
    // Text already built; it is not a format.
    void log(int32_t level, StrSegment text);
    void logFormat(int32_t level, const char* fmt, ...);
    void logV(int32_t level, const char* fmt, va_list args);

    // The installed hook's handle for this channel (its Logger), set once by the hook.
    std::atomic<void*>& sink() { return sink_; }

  private:
    const char* name_;
    std::atomic<void*> sink_{nullptr};
};

}  // namespace morvax
