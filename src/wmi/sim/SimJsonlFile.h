#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "util/base/Str.h"
#include "util/thread/Mutex.h"

namespace morvax::wmi {

// A file of one JSON object per line that grows at its end: appended lines become new lines
// here, a rewritten (or shortened) file starts a new generation, and a last line without its
// LF is not taken until the LF arrives. Lines that are not JSON objects are reported with file
// and line and skipped. Safe to share between threads.
class SimJsonlFile {
  public:
    struct Line {
        uint32_t number = 0;  // in the file, from 1
        Str text;
    };

    explicit SimJsonlFile(std::filesystem::path path);

    const std::filesystem::path& path() const { return path_; }

    // Takes in what changed since the last call. Returns the generation.
    uint64_t refresh();
    // The lines from position `from` of generation `generation` on; false (and nothing) when
    // the file was rewritten since.
    bool linesFrom(uint64_t generation, size_t from, std::vector<Line>& out) const;
    // The current generation and its number of lines.
    void position(uint64_t& generation, size_t& count) const;

  private:
    // What identifies the bytes taken so far: their length, the first bytes and the last line.
    struct Taken {
        uint64_t size = 0;
        Str head;
        Str lastLine;
    };

    bool readFrom(uint64_t offset, Str& out) const;
    bool stillPrefix(const Str& content) const;
    void takeLines(const Str& bytes, uint64_t offset);

    std::filesystem::path path_;
    mutable Mutex mutex_;
    std::filesystem::file_time_type lastWrite_{};
    uint64_t lastSize_ = 0;
    bool seen_ = false;
    uint64_t generation_ = 0;
    Taken taken_;
    uint32_t lineNumber_ = 0;
    std::vector<Line> lines_;
};

}  // namespace morvax::wmi
