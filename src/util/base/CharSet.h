#pragma once

#include <cstddef>
#include <cstdint>

namespace morvax {

// A set of byte values: four 64-bit words, one bit per byte.
class CharSet {
  public:
    constexpr CharSet() = default;
    // The members are the bytes of `members`; with `complement` the set holds every other byte.
    constexpr explicit CharSet(const char* members, bool complement = false) {
        for (const char* p = members; p && *p; ++p) {
            add(static_cast<unsigned char>(*p));
        }
        if (complement) {
            for (uint64_t& w : words_)
                w = ~w;
        }
    }

    constexpr void add(unsigned char c) { words_[c >> 6] |= uint64_t{1} << (c & 63); }
    constexpr bool contains(unsigned char c) const { return (words_[c >> 6] >> (c & 63)) & 1; }
    constexpr bool contains(char c) const { return contains(static_cast<unsigned char>(c)); }

    // Blank, tab, CR, LF, vertical tab and form feed.
    static constexpr CharSet whitespace() { return CharSet(" \t\r\n\v\f"); }

  private:
    uint64_t words_[4] = {0, 0, 0, 0};
};

}  // namespace morvax
