#pragma once

#include <string>
#include <utility>
#include <vector>

namespace morvax::wmi {

// A LIKE pattern, compiled once: `%` any run, `_` any one character, `[abc]`, `[a-z]` and
// `[^...]` one character of (or not of) a set. Matching ignores case. A `[` without its `]`
// stands for itself; a `]` right after `[` or `[^` belongs to the set.
class WqlLikePattern {
  public:
    explicit WqlLikePattern(const std::u16string& pattern);

    bool matches(const std::u16string& text) const;

  private:
    enum class Kind { ANY_RUN, ANY_ONE, LITERAL, SET };
    struct Element {
        explicit Element(Kind k) : kind(k) {}
        Kind kind;
        char32_t ch = 0;  // LITERAL, folded
        bool negated = false;
        std::vector<std::pair<char32_t, char32_t>> ranges;  // SET: as written and folded
    };

    static bool matchesOne(const Element& element, char32_t folded);

    std::vector<Element> elements_;
};

}  // namespace morvax::wmi
