#pragma once

#include "util/thread/ScopedPerThreadCrashLogNotation.h"

namespace morvax {

// A notation of fixed text, written with CR LF behind it. The text is not copied: it must
// outlive the notation (a literal, as a rule).
class ScopedPerThreadCrashLogConstantStringNotation : public ScopedPerThreadCrashLogNotation {
  public:
    explicit ScopedPerThreadCrashLogConstantStringNotation(const char* text);
    ~ScopedPerThreadCrashLogConstantStringNotation() override;
    void write(FormatSink& sink) const override;

  private:
    const char* const text_;
};

}  // namespace morvax
