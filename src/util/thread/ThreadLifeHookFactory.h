#pragma once

#include <memory>

#include "util/thread/ThreadLifeHook.h"

namespace morvax {

class Thread;

// Registered with Thread::addLifeHookFactory; the registrant keeps ownership and must keep the
// factory alive while threads may start.
class ThreadLifeHookFactory {
  public:
    virtual ~ThreadLifeHookFactory() = default;
    // Runs on `thread` itself. Null means this thread needs no hook.
    virtual std::unique_ptr<ThreadLifeHook> create(Thread& thread) = 0;
};

}  // namespace morvax
