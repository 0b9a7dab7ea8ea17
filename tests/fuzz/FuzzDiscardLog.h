#pragma once

#include "util/log/Logger.h"

namespace morvax::fuzz {

// Bad input is logged by the thousand while fuzzing; the log is not the subject. Installed for
// the life of the process on the first input.
class DiscardLog : public LogWriter {
  public:
    void write(const Logger&, int32_t, StrSegment) override {}

    static void install() {
        static DiscardLog discard;
        static LogWriter* const previous = Logger::setWriter(&discard);
        (void)previous;
    }
};

}  // namespace morvax::fuzz
