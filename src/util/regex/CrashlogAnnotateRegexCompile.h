#pragma once

#include <atomic>
#include <cstddef>

#include "util/base/StrSegment.h"
#include "util/thread/ScopedPerThreadCrashLogNotation.h"

namespace morvax {

// Tells a crash report which pattern the thread was compiling, and in which phase, since a
// crash inside the regex library says nothing of the pattern that caused it.
class CrashlogAnnotateRegexCompile : public ScopedPerThreadCrashLogNotation {
  public:
    // The pattern's bytes are not copied: they must outlive the notation.
    explicit CrashlogAnnotateRegexCompile(StrSegment pattern);
    ~CrashlogAnnotateRegexCompile() override;

    // `phase` is a literal, or null for none.
    void setPhase(const char* phase) { phase_.store(phase, std::memory_order_release); }
    // "WHILE COMPILING REGEX: /<pattern>/ (<phase>)" and CR LF; heap-free.
    void write(FormatSink& sink) const override;

  private:
    const char* const pattern_;
    const size_t patternLength_;
    std::atomic<const char*> phase_{nullptr};
};

}  // namespace morvax
