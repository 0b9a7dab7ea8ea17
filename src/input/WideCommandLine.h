#pragma once

#include <cstddef>
#include <vector>

#include "util/base/Str.h"

namespace morvax {

// A Windows command line split into its arguments by the rules of the platform's shell: the
// program name up to a blank, or between its quotes taken as they stand; then arguments between
// blanks and tabs, where quotes group, 2n backslashes before a quote give n and the quote
// groups, 2n+1 give n and a literal quote, other backslashes stand, and a doubled quote inside
// quotes is a literal quote that ends them. No shell library is loaded for it.
class WideCommandLine {
  public:
    // The longest line that is split, in code units; the system's own limit is 32,767.
    static constexpr size_t kMaxLength = 32768;

    // False, with nothing split, for a longer line.
    bool split(const WStr& line);

    const std::vector<WStr>& arguments() const { return arguments_; }
    // The arguments as a null-terminated array of pointers, valid while this object lives.
    const char16_t* const* argv();

  private:
    std::vector<WStr> arguments_;
    std::vector<const char16_t*> pointers_;
};

}  // namespace morvax
