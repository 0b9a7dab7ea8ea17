#pragma once

#include "util/base/StrSegment.h"

namespace morvax {

struct LogRecord;

// Sees each finished line of its channel's first appender before the line is stored.
class LogFilter {
  public:
    virtual ~LogFilter() = default;
    virtual void see(const LogRecord& record, StrSegment line) = 0;
};

}  // namespace morvax
