#pragma once

#include "util/base/Str.h"

namespace morvax {

// Runs around the formatting of a message, so that a module can put context before or after
// the text of every line it logs.
class LogFormatCallback {
  public:
    virtual ~LogFormatCallback() = default;
    // Before the format is expanded into `target`.
    virtual void onBegin(Str& target, const char* format) = 0;
    // After it was.
    virtual void onEnd(Str& target) = 0;
};

}  // namespace morvax
