#pragma once

// What every fuzz target needs: a broken invariant aborts, which libFuzzer and the corpus
// driver both take as a finding.

#include <cstdio>
#include <cstdlib>

namespace morvax::fuzz {

inline void check(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "invariant broken: %s\n", what);
        std::abort();
    }
}

}  // namespace morvax::fuzz
