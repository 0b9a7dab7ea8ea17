#pragma once

#include "util/thread/EmptyMainThread.h"

namespace morvax {

// What every run that does real work sets up first, and keeps for its length: logging from
// the command-line log configuration, the installation, crash reports below
// <home>/var/log/morvax, and the primary thread as the process's main thread.
class RunPreamble {
  public:
    RunPreamble();
    RunPreamble(const RunPreamble&) = delete;
    RunPreamble& operator=(const RunPreamble&) = delete;

  private:
    // Members are built in declaration order: the set-up comes before the main thread.
    struct SetUp {
        SetUp();
    };
    SetUp setUp_;
    EmptyMainThread mainThread_;
};

}  // namespace morvax
