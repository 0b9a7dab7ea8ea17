#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "util/thread/Mutex.h"
#include "wmi/sim/SimInstance.h"
#include "wmi/sim/SimJsonlFile.h"
#include "wmi/sim/SimSynthetic.h"

namespace morvax::wmi {

// One event log of one host: `synthetic` generated records (numbers 1 to N) followed by the
// records of its JSONL file, each line a Win32_NTLogEvent with `Logfile` filled in. Appended
// lines become records at the next refresh; a rewritten file is a cleared log (a new
// generation). Safe to share between threads.
class SimEventLog {
  public:
    struct Setup {
        std::u16string name;
        bool descending = true;
        uint64_t synthetic = 0;
        std::u16string computerName;
        std::filesystem::path file;  // empty: no file

        bool operator==(const Setup& other) const = default;
    };

    explicit SimEventLog(Setup setup);

    const Setup& setup() const { return setup_; }
    const std::u16string& name() const { return setup_.name; }
    bool descending() const { return setup_.descending; }
    const std::shared_ptr<const SimSynthetic>& synthetic() const { return synthetic_; }

    // Takes in what the file gained or lost. Returns the generation.
    uint64_t refresh();
    // Records of the file from position `from` of `generation` on; false when the log was
    // cleared since.
    bool recordsFrom(uint64_t generation, size_t from,
                     std::vector<std::shared_ptr<const SimInstance>>& out) const;
    void position(uint64_t& generation, size_t& count) const;

  private:
    std::shared_ptr<const SimInstance> record(const SimJsonlFile::Line& line) const;

    Setup setup_;
    std::shared_ptr<const SimSynthetic> synthetic_;
    std::unique_ptr<SimJsonlFile> file_;
    mutable Mutex mutex_;
    uint64_t generation_ = 0;
    std::vector<std::shared_ptr<const SimInstance>> records_;
};

}  // namespace morvax::wmi
