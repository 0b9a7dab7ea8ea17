#pragma once

#include "util/thread/MainThread.h"

namespace morvax {

// The MainThread that the entry function builds first: the thread it stands for is already
// running, so there is nothing for main() to do.
class EmptyMainThread : public MainThread {
  public:
    EmptyMainThread();
    ~EmptyMainThread() override;
    void main() override;
};

}  // namespace morvax
