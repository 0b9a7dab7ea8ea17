#pragma once

#include <cstdarg>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "util/base/Diagnostics.h"

namespace morvax::test {

// One report of a diagnostics channel.
struct Diagnostic {
    std::string channel;
    int32_t level;
    std::string text;

    // "Channel LEVEL text", the way a test compares it.
    std::string line() const;
};

// Takes the reports of every diagnostics channel while it lives, in place of the installed hook,
// which it restores at the end. `observer`, when given, sees each report as it comes, on the
// reporting thread.
class DiagnosticsCapture {
  public:
    using Observer = std::function<void(const Diagnostic&)>;

    explicit DiagnosticsCapture(Observer observer = nullptr);
    ~DiagnosticsCapture();
    DiagnosticsCapture(const DiagnosticsCapture&) = delete;
    DiagnosticsCapture& operator=(const DiagnosticsCapture&) = delete;

    std::vector<Diagnostic> entries() const;
    // The reports of one channel.
    std::vector<Diagnostic> entriesOf(const std::string& channel) const;
    // Each report as Diagnostic::line gives it.
    std::vector<std::string> lines() const;
    bool has(int32_t level, const std::string& text) const;

  private:
    static void record(DiagnosticsChannel& channel, int32_t level, const char* fmt, va_list args);

    Observer observer_;
    DiagnosticsHook previous_;
    DiagnosticsCapture* outer_;
    mutable std::mutex lock_;
    std::vector<Diagnostic> entries_;
};

}  // namespace morvax::test
