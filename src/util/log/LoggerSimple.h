#pragma once

#include "util/log/Logger.h"

namespace morvax {

// A Logger whose text must reach the file untouched: no escaping, no shortening.
class LoggerSimple : public Logger {
  public:
    explicit LoggerSimple(const char* name);
    ~LoggerSimple() override;
    bool escapesMessages() const override;
    bool truncatesMessages() const override;
};

}  // namespace morvax
