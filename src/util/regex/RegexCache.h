#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "util/base/StrSegment.h"
#include "util/regex/RegexRecord.h"

namespace morvax {

// Compiled patterns by (pattern text, options), so that a pattern that many objects use is
// compiled once. Records in use are found through weak references; a record whose last user
// went away waits in the new map, then in the old one, until the new map has filled twice, so
// that a pattern used now and then is not compiled each time.
class RegexCache {
  public:
    using Compiler =
        std::function<std::unique_ptr<const RegexRecord>(StrSegment pattern, uint64_t options)>;

    struct Counters {
        uint64_t hits = 0;
        uint64_t misses = 0;
        // Compiles whose result was thrown away because another compile of the same key won.
        uint64_t races = 0;
        size_t liveRecords = 0;
        size_t newIdleRecords = 0;
        size_t oldIdleRecords = 0;
    };

    static constexpr size_t DEFAULT_NEW_MAP_LIMIT = 100;

    // The default compiler uses JIT as the process's RegexSettings allow.
    explicit RegexCache(size_t newMapLimit = DEFAULT_NEW_MAP_LIMIT, Compiler compiler = nullptr);
    // Frees the idle records; records still in use are freed by their last user.
    ~RegexCache();

    RegexCache(const RegexCache&) = delete;
    RegexCache& operator=(const RegexCache&) = delete;

    // The shared record, compiled outside the lock if no record exists. Throws what compiling
    // throws.
    std::shared_ptr<const RegexRecord> get(StrSegment pattern, uint64_t options);
    Counters counters() const;

    static RegexCache& process();

  private:
    struct State;
    class Returner;

    std::shared_ptr<State> state_;
    Compiler compiler_;
};

}  // namespace morvax
