#pragma once

namespace morvax {

// Per-thread set-up that a module needs on every Thread (such as a COM apartment): made by a
// ThreadLifeHookFactory on the new thread before its main() runs, destroyed on the same thread
// after main() ends.
class ThreadLifeHook {
  public:
    virtual ~ThreadLifeHook() = default;
};

}  // namespace morvax
