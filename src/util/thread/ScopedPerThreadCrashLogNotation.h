#pragma once

#include <atomic>
#include <cstdint>

#include "util/base/LogFormatter.h"

namespace morvax {

// A note for the crash report that holds for the length of a scope: what the thread is doing
// right now. The crash writer reads the lists of all threads without locks or heap, and calls
// write() on each entry, so an entry is listed only while it is whole: the most derived class
// calls link() at the end of its constructor and unlink() first thing in its destructor (the base
// destructor unlinks an entry that is still listed, as a last resort).
//
// Create and destroy a notation on the same thread.
class ScopedPerThreadCrashLogNotation {
  public:
    // One thread's list, newest entry first.
    using List = std::atomic<ScopedPerThreadCrashLogNotation*>;

    // A longer walk means the links were overwritten; the writer gives up rather than loop.
    static constexpr uint32_t MAX_WALK = 1024;

    ScopedPerThreadCrashLogNotation();
    virtual ~ScopedPerThreadCrashLogNotation();
    virtual void write(FormatSink& sink) const = 0;

    ScopedPerThreadCrashLogNotation(const ScopedPerThreadCrashLogNotation&) = delete;
    ScopedPerThreadCrashLogNotation& operator=(const ScopedPerThreadCrashLogNotation&) = delete;

    // The calling thread's list, so that a Thread can publish it to the crash writer.
    static List* currentThreadList();
    // Writes every entry of `list`, at most MAX_WALK of them. Heap-free.
    static void writeList(const List& list, FormatSink& sink);
    // The calling thread's entries, whether or not it has a Thread object.
    static void writeCurrentThreadNotations(FormatSink& sink);

  protected:
    // Puts the entry on the creating thread's list; takes it off.
    void link();
    void unlink();

  private:
    List* const list_;  // the creating thread's
    std::atomic<ScopedPerThreadCrashLogNotation*> next_{nullptr};
    bool linked_ = false;
};

}  // namespace morvax
