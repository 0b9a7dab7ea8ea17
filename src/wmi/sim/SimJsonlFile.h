#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "util/base/Str.h"
#include "util/thread/Mutex.h"
#include "wmi/sim/SimJsonlTail.h"

namespace morvax::wmi {

// A file of one JSON object per line that grows at its end, with the text of its lines kept:
// appended lines become new lines here, a rewritten (or shortened) file starts a new generation,
// and a last line without its LF is not taken until the LF arrives (SimJsonlTail reads it).
// Lines that are not JSON objects are reported with file and line and skipped. Safe to share
// between threads.
class SimJsonlFile final : private SimJsonlTail::Sink {
  public:
    struct Line {
        uint32_t number = 0;  // in the file, from 1
        Str text;
    };

    explicit SimJsonlFile(std::filesystem::path path);

    const std::filesystem::path& path() const { return tail_.path(); }

    // Takes in what changed since the last call. Returns the generation.
    uint64_t refresh();
    // The lines from position `from` of generation `generation` on; false (and nothing) when
    // the file was rewritten since.
    bool linesFrom(uint64_t generation, size_t from, std::vector<Line>& out) const;
    // The current generation and its number of lines.
    void position(uint64_t& generation, size_t& count) const;

  private:
    void restart() override;
    void line(uint32_t number, StrSegment text) override;

    mutable Mutex mutex_;
    SimJsonlTail tail_;
    uint64_t generation_ = 0;
    std::vector<Line> lines_;
};

}  // namespace morvax::wmi
