#pragma once

#include <atomic>
#include <cstdint>

#include "util/base/LogFormatter.h"

namespace morvax {

// A note for the crash report that holds for the length of a scope: what the thread is doing
// right now. The constructor puts the object on the calling thread's list, the destructor takes
// it off; the crash writer reads the lists of all threads without locks or heap.
//
// Create and destroy a notation on the same thread. A derived class should set its fields in
// its member-initialiser list, so that the entry is whole as soon as possible after linking.
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

  private:
    List* const list_;  // the creating thread's
    std::atomic<ScopedPerThreadCrashLogNotation*> next_{nullptr};
};

}  // namespace morvax
