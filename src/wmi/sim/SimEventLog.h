#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "util/thread/Mutex.h"
#include "wmi/sim/SimEventRecords.h"
#include "wmi/sim/SimInstance.h"
#include "wmi/sim/SimJsonlTail.h"
#include "wmi/sim/SimSynthetic.h"

namespace morvax::wmi {

// One event log of one host: `synthetic` generated records (numbers 1 to N) followed by the
// records of its JSONL file, each line a Win32_NTLogEvent with `Logfile` filled in. Appended
// lines become records at the next refresh, which reads only them; a rewritten file is a cleared
// log (a new generation). The records of the file are held packed (SimEventRecords). Safe to
// share between threads.
class SimEventLog final : private SimJsonlTail::Sink {
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
    // The records of the file as they are now: those of the current generation, and how many
    // it holds (it may gain more later, which are not part of this view).
    void records(std::shared_ptr<const SimEventRecords>& out, size_t& count) const;
    // Records of the file from position `from` of `generation` on; false when the log was
    // cleared since.
    bool recordsFrom(uint64_t generation, size_t from,
                     std::vector<std::shared_ptr<const SimInstance>>& out) const;
    void position(uint64_t& generation, size_t& count) const;

  private:
    void restart() override;
    void line(uint32_t number, StrSegment text) override;

    Setup setup_;
    std::shared_ptr<const SimSynthetic> synthetic_;
    mutable Mutex mutex_;
    std::unique_ptr<SimJsonlTail> file_;
    uint64_t generation_ = 0;
    // A new generation gets a new one: queries still reading the old one keep it.
    std::shared_ptr<SimEventRecords> records_;
    uint32_t lastNumber_;
    bool fullReported_ = false;
};

}  // namespace morvax::wmi
