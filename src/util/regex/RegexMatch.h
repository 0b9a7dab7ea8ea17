#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "util/base/StrSegment.h"

namespace morvax {

// What a Regex search found: one segment per group (0 is the whole match) pointing into the
// subject, an unmatched group having a null pointer. The subject must outlive the result.
struct RegexMatch {
    enum Failure : uint32_t {
        FAILURE_NONE = 0,
        FAILURE_DEPTH_LIMIT = 1,
        FAILURE_MATCH_LIMIT = 2,
    };

    std::vector<StrSegment> groups;
    const char* subjectStart = nullptr;
    const char* subjectEnd = nullptr;
    uint32_t failure = FAILURE_NONE;

    size_t groupCount() const { return groups.size(); }
    bool matched(size_t n) const { return n < groups.size() && groups[n].data() != nullptr; }
    // The text of group `n`; empty with a null pointer when it did not take part.
    StrSegment group(size_t n) const { return n < groups.size() ? groups[n] : StrSegment(); }
};

}  // namespace morvax
