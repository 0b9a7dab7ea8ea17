#pragma once

#include "util/base/Str.h"
#include "util/base/StrSegment.h"

namespace morvax {

// The text of one record on its way to the appenders, escaped at most once: by the setting of
// the first appender that asks for it.
class LogMessage {
  public:
    // `raw` text is written as it is (a Logger that does not escape).
    LogMessage(StrSegment text, bool raw) : raw_(text), rawFlag_(raw) {}
    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    StrSegment rawText() const { return raw_; }
    // The text to write; `escape` counts only on the first call.
    StrSegment text(bool escape);

    // Replaces control bytes below 128 in `text`: LF by "\n", CR by "\r" and, with `escape`,
    // any other byte that is neither printable nor a tab by "\x" and two hexadecimal digits.
    // Appends to `target` and returns true, or returns false when nothing needs replacing.
    static bool escapeText(StrSegment text, bool escape, Str& target);

  private:
    StrSegment raw_;
    StrSegment text_;
    Str escaped_;
    bool rawFlag_;
    bool computed_ = false;
};

}  // namespace morvax
