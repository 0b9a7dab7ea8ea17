#include "util/thread/ScopedPerThreadCrashLogNotation.h"

#include <cstring>

namespace morvax {

namespace {

// Constant-initialised, so reaching it never runs code on the thread, even while crashing.
thread_local ScopedPerThreadCrashLogNotation::List currentList{nullptr};

const char TOO_MANY_NOTATIONS[] =
    "Max crashlog notation count exceeded (1024), probably linked list of notations corrupted. "
    "breaking out.\r\n";

}  // namespace

ScopedPerThreadCrashLogNotation::ScopedPerThreadCrashLogNotation() : list_(&currentList) {}

ScopedPerThreadCrashLogNotation::~ScopedPerThreadCrashLogNotation() {
    unlink();
}

void ScopedPerThreadCrashLogNotation::link() {
    if (linked_) {
        return;
    }
    // The link to the rest is in place before the entry becomes visible to a reader.
    next_.store(list_->load(std::memory_order_relaxed), std::memory_order_relaxed);
    list_->store(this, std::memory_order_release);
    linked_ = true;
}

void ScopedPerThreadCrashLogNotation::unlink() {
    if (!linked_) {
        return;
    }
    linked_ = false;
    ScopedPerThreadCrashLogNotation* next = next_.load(std::memory_order_relaxed);
    if (list_->load(std::memory_order_relaxed) == this) {
        list_->store(next, std::memory_order_release);
        return;
    }
    // Destroyed out of order (an entry that was not a plain scoped object): find the one before.
    for (ScopedPerThreadCrashLogNotation* entry = list_->load(std::memory_order_relaxed); entry;
         entry = entry->next_.load(std::memory_order_relaxed)) {
        if (entry->next_.load(std::memory_order_relaxed) == this) {
            entry->next_.store(next, std::memory_order_release);
            return;
        }
    }
}

ScopedPerThreadCrashLogNotation::List* ScopedPerThreadCrashLogNotation::currentThreadList() {
    return &currentList;
}

void ScopedPerThreadCrashLogNotation::writeList(const List& list, FormatSink& sink) {
    uint32_t written = 0;
    for (const ScopedPerThreadCrashLogNotation* entry = list.load(std::memory_order_acquire); entry;
         entry = entry->next_.load(std::memory_order_acquire)) {
        if (written == MAX_WALK) {
            sink.write(TOO_MANY_NOTATIONS, sizeof(TOO_MANY_NOTATIONS) - 1);
            return;
        }
        entry->write(sink);
        ++written;
    }
}

void ScopedPerThreadCrashLogNotation::writeCurrentThreadNotations(FormatSink& sink) {
    writeList(currentList, sink);
}

}  // namespace morvax
