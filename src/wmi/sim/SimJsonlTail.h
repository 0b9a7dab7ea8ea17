#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iosfwd>

#include "util/base/Str.h"

namespace morvax::wmi {

// Follows a file of one JSON object per line that grows at its end, and hands each new line that
// is not blank to a sink as it is read, for the sink to parse. A refresh reads only what was
// appended, besides a bounded fingerprint of what was taken before (its first bytes and the end
// of its last line), which tells an append from a rewrite: a rewritten, shortened or removed file
// starts a new generation. A last line without its LF is not taken until the LF arrives. Lines
// longer than kMaxLineBytes are reported with file and line and skipped. Not thread-safe: its
// owner serialises the calls.
class SimJsonlTail {
  public:
    // A longer line is refused, so that a file cannot make one refresh hold more than this.
    static constexpr size_t kMaxLineBytes = 1 << 20;

    class Sink {
      public:
        // What came before is gone: the file was rewritten, shortened or removed.
        virtual void restart() = 0;
        // A new line, `number` in the file from 1; `text` is without its line end.
        virtual void line(uint32_t number, StrSegment text) = 0;

      protected:
        ~Sink() = default;
    };

    explicit SimJsonlTail(std::filesystem::path path);

    const std::filesystem::path& path() const { return path_; }

    // Takes in what changed since the last call and returns the generation.
    uint64_t refresh(Sink& sink);
    // Every byte the refreshes have read, for the measure of what they cost.
    uint64_t bytesRead() const { return bytesRead_; }

  private:
    // What identifies the bytes taken so far: their length, their first bytes and the end of
    // the last line.
    struct Taken {
        uint64_t size = 0;
        Str head;
        Str last;
    };

    bool readAt(std::ifstream& in, uint64_t offset, size_t count, Str& out);
    bool stillPrefix(std::ifstream& in, uint64_t size);
    void restart(Sink& sink);
    void takeLines(std::ifstream& in, uint64_t size, Sink& sink);
    void takeLine(StrSegment line, bool tooLong, bool first, Sink& sink);

    std::filesystem::path path_;
    std::filesystem::file_time_type lastWrite_{};
    uint64_t lastSize_ = 0;
    bool seen_ = false;
    uint64_t generation_ = 0;
    Taken taken_;
    uint32_t lineNumber_ = 0;
    uint64_t bytesRead_ = 0;
};

}  // namespace morvax::wmi
