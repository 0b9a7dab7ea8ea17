#pragma once

#include <cstddef>
#include <cstdint>

#include "util/base/LogFormatter.h"

namespace morvax {

// The sink of a crash report. Whatever the report's parts do, the report must end: single
// writes, the total size and a writer that keeps going after the cut are all bounded. It never
// uses the heap.
class CrashLogSink : public FormatSink {
  public:
    // Where the bytes go, and the clock and exit that the looping rule needs.
    class Target {
      public:
        virtual ~Target() = default;
        virtual void write(const char* bytes, size_t length) = 0;
        // Milliseconds on any clock that counts forward.
        virtual uint64_t nowMs() = 0;
        // Ends the process at once; a test target may return.
        virtual void exitProcess(int status) = 0;
    };

    // A single write above this is replaced by a note.
    static constexpr size_t MAX_SINGLE_WRITE = 51200;
    // A write that would bring the report to this size ends it.
    static constexpr uint64_t MAX_TOTAL = 0x80000;
    // After the end, writes are counted; at each multiple of this the clock is checked.
    static constexpr uint64_t LOOP_CHECK_BYTES = 2 * 1024 * 1024;
    static constexpr uint64_t LOOP_LIMIT_MS = 3000;
    static constexpr int LOOP_EXIT_STATUS = 87;

    static const char OVERSIZED_WRITE[];
    static const char OVERFLOWED[];
    static const char LOOPING[];

    explicit CrashLogSink(Target& target) : target_(target) {}

    void write(const char* bytes, size_t length) override;

    uint64_t written() const { return written_; }
    bool overflowed() const { return overflowed_; }

  private:
    Target& target_;
    uint64_t written_ = 0;
    bool overflowed_ = false;
    uint64_t overflowedAtMs_ = 0;
    // Bytes attempted after the overflow.
    uint64_t discarded_ = 0;
};

}  // namespace morvax
